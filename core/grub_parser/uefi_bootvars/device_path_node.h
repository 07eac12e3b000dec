// Device-path nodes of a load option's path list (UEFI standard, "Device Path Protocol").
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "core/common/error.h"
#include "core/grub_parser/uefi_bootvars/byte_reader.h"
#include "core/grub_parser/uefi_bootvars/guid.h"

namespace Uefi {

// EFI_DEVICE_PATH_PROTOCOL: the 4 bytes that open every node.
struct DevicePathHeader {
    std::uint8_t type = 0;
    std::uint8_t subType = 0;
    std::uint16_t length = 0;  // of the whole node, header included
};

inline constexpr std::size_t kDevicePathHeaderSize = 4;

namespace DevicePathType {
inline constexpr std::uint8_t kMedia = 4;
inline constexpr std::uint8_t kEnd = 0x7F;
}  // namespace DevicePathType
namespace MediaSubType {
inline constexpr std::uint8_t kHardDrive = 1;
inline constexpr std::uint8_t kFilePath = 4;
}  // namespace MediaSubType
inline constexpr std::uint8_t kEndEntireSubType = 0xFF;

class BaseEfiDevicePathNode {
public:
    virtual ~BaseEfiDevicePathNode() = default;
    virtual DevicePathHeader GetHeader() const = 0;
    // The length that counts the path list down: the header's, even where a node consumed another amount.
    virtual std::uint16_t GetLength() const = 0;
};

using DevicePathNodePtr = std::shared_ptr<BaseEfiDevicePathNode>;

class EfiDevicePathNode : public BaseEfiDevicePathNode {
public:
    explicit EfiDevicePathNode(const DevicePathHeader& header) : header_(header) {}
    DevicePathHeader GetHeader() const override { return header_; }
    std::uint16_t GetLength() const override { return header_.length; }

private:
    DevicePathHeader header_;
};

// Media device path, hard drive (4, 1): a partition by number, extent and signature.
class HardDrivePathNode final : public EfiDevicePathNode {
public:
    static constexpr std::size_t kNodeSize = 42;
    // Signature types of the UEFI standard.
    static constexpr std::uint8_t kSignatureMbr = 1;
    static constexpr std::uint8_t kSignatureGuid = 2;

    // Type 4, subtype 1, length 42, every field zero.
    HardDrivePathNode();
    // The reader stands just past `header`. Only 42 bytes are taken even when the header declares more:
    // the rest is read as the next node.
    static Common::Error CreateInstance(const DevicePathHeader& header, ByteReader& reader, DevicePathNodePtr& node);

    std::uint32_t PartitionNumber() const;
    std::uint64_t PartitionStart() const;  // in logical blocks
    std::uint64_t PartitionSize() const;   // in logical blocks
    std::array<std::uint8_t, 16> PartitionSignature() const;
    std::uint8_t PartitionFormat() const;
    std::uint8_t SignatureType() const;

private:
    HardDrivePathNode(const DevicePathHeader& header, std::span<const std::uint8_t> bytes);
    std::array<std::uint8_t, kNodeSize> bytes_{};
};

// Media device path, file path (4, 4): a null-terminated UTF-16 path name.
class FileDevicePathNode final : public EfiDevicePathNode {
public:
    static constexpr std::size_t kMinimumSize = 6;
    static Common::Error CreateInstance(const DevicePathHeader& header, ByteReader& reader, DevicePathNodePtr& node);
    // The UTF-16 units as stored.
    const std::u16string& PathName() const { return pathName_; }

private:
    FileDevicePathNode(const DevicePathHeader& header, std::u16string pathName)
        : EfiDevicePathNode(header), pathName_(std::move(pathName)) {}
    std::u16string pathName_;
};

// End of a path instance or of the whole path (type 0x7F, any subtype).
class EndDevicePathNode final : public EfiDevicePathNode {
public:
    // Type 0x7F, subtype 0xFF, length 4.
    EndDevicePathNode() : EfiDevicePathNode({DevicePathType::kEnd, kEndEntireSubType, kDevicePathHeaderSize}) {}
    // Consumes nothing beyond the header, whatever length the header declares.
    static Common::Error CreateInstance(const DevicePathHeader& header, ByteReader& reader, DevicePathNodePtr& node);

private:
    explicit EndDevicePathNode(const DevicePathHeader& header) : EfiDevicePathNode(header) {}
};

// Any other node, kept as its raw body.
class CommonDevicePathNode final : public EfiDevicePathNode {
public:
    static Common::Error CreateInstance(const DevicePathHeader& header, ByteReader& reader, DevicePathNodePtr& node);
    const std::vector<std::uint8_t>& Body() const { return body_; }

private:
    CommonDevicePathNode(const DevicePathHeader& header, std::vector<std::uint8_t> body)
        : EfiDevicePathNode(header), body_(std::move(body)) {}
    std::vector<std::uint8_t> body_;
};

}  // namespace Uefi
