// The load option decoder: EFI_LOAD_OPTION bytes into a description and a list of device-path nodes.
#pragma once

#include <memory>
#include <vector>

#include "core/grub_parser/uefi_bootvars/device_path_node.h"
#include "core/grub_parser/uefi_bootvars/load_options.h"

namespace Uefi {

class LoadOptionsImpl final : public LoadOptions {
public:
    // Decodes Attributes, FilePathListLength, Description and FilePathList (UEFI standard,
    // EFI_LOAD_OPTION); OptionalData is left undecoded. A failure leaves a partial state: discard the object.
    Common::Error Fill(ByteReader& reader) override;

    Common::Error GetDescription(std::u16string& description) const override;
    Common::Error GetPath(std::u16string& path) const override;
    Common::Error GetPartitionNumber(std::uint32_t& number) const override;
    Common::Error GetPartitionStart(std::uint64_t& start) const override;
    Common::Error GetPartitionSize(std::uint64_t& size) const override;
    Common::Error GetDiskType(std::uint32_t& type) const override;
    Common::Error GetPartitionGUID(Guid& guid) const override;
    Common::Error GetNtSignature(std::uint32_t& signature) const override;

    std::uint32_t Attributes() const { return attributes_; }
    std::uint16_t PathListLength() const { return pathListLength_; }
    const std::vector<DevicePathNodePtr>& Nodes() const { return nodes_; }
    // Path-list bytes that followed an end node but could not be read as nodes.
    const std::vector<std::uint8_t>& TrailingBytes() const { return trailingBytes_; }

private:
    Common::Error FindHardDrive(const HardDrivePathNode*& node) const;

    std::uint32_t attributes_ = 0;
    std::uint16_t pathListLength_ = 0;
    std::u16string description_;
    std::vector<DevicePathNodePtr> nodes_;
    std::vector<std::uint8_t> trailingBytes_;
};

}  // namespace Uefi
