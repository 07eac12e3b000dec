// Reading one device-path node of a path list: the header decides which node class takes the bytes.
#pragma once

#include "core/common/error.h"
#include "core/grub_parser/uefi_bootvars/byte_reader.h"
#include "core/grub_parser/uefi_bootvars/device_path_node.h"

namespace Uefi {

// Every failure carries code 0x12F000D and no message.
Common::Error GetEfiDevicePathNode(ByteReader& reader, DevicePathNodePtr& node);

}  // namespace Uefi
