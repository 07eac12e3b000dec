// Reading one device-path node of a path list.
#include "core/grub_parser/uefi_bootvars/device_path_factory.h"

#include "core/grub_parser/uefi_bootvars/uefi_errors.h"

namespace Uefi {

Common::Error GetEfiDevicePathNode(ByteReader& reader, DevicePathNodePtr& node) {
    std::ptrdiff_t leftBeforeHeader = reader.Left();
    if (leftBeforeHeader < static_cast<std::ptrdiff_t>(kDevicePathHeaderSize)) return MakeMalformedError();
    DevicePathHeader header;
    reader.ReadU8(header.type);
    reader.ReadU8(header.subType);
    reader.ReadU16(header.length);
    if (header.length > leftBeforeHeader) return MakeMalformedError();

    if (header.type == DevicePathType::kMedia && header.subType == MediaSubType::kHardDrive) {
        return HardDrivePathNode::CreateInstance(header, reader, node);
    }
    if (header.type == DevicePathType::kMedia && header.subType == MediaSubType::kFilePath) {
        return FileDevicePathNode::CreateInstance(header, reader, node);
    }
    if (header.type == DevicePathType::kEnd) return EndDevicePathNode::CreateInstance(header, reader, node);
    return CommonDevicePathNode::CreateInstance(header, reader, node);
}

}  // namespace Uefi
