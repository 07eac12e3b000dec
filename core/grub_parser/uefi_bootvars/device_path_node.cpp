// Device-path nodes: each concrete class takes its bytes from the reader by its own length rule.
#include "core/grub_parser/uefi_bootvars/device_path_node.h"

#include <algorithm>

#include "core/grub_parser/uefi_bootvars/uefi_errors.h"

namespace Uefi {
namespace {

// Field offsets of HARDDRIVE_DEVICE_PATH in the UEFI standard.
constexpr std::size_t kPartitionNumberOffset = 4;
constexpr std::size_t kPartitionStartOffset = 8;
constexpr std::size_t kPartitionSizeOffset = 16;
constexpr std::size_t kSignatureOffset = 24;
constexpr std::size_t kPartitionFormatOffset = 40;
constexpr std::size_t kSignatureTypeOffset = 41;

template <typename Integer>
Integer LittleEndianAt(const std::array<std::uint8_t, HardDrivePathNode::kNodeSize>& bytes, std::size_t offset) {
    Integer value = 0;
    for (std::size_t i = sizeof(Integer); i-- > 0;) value = static_cast<Integer>(value << 8 | bytes[offset + i]);
    return value;
}

}  // namespace

HardDrivePathNode::HardDrivePathNode()
    : EfiDevicePathNode({DevicePathType::kMedia, MediaSubType::kHardDrive, kNodeSize}) {
    bytes_[0] = DevicePathType::kMedia;
    bytes_[1] = MediaSubType::kHardDrive;
    bytes_[2] = static_cast<std::uint8_t>(kNodeSize);
}

HardDrivePathNode::HardDrivePathNode(const DevicePathHeader& header, std::span<const std::uint8_t> bytes)
    : EfiDevicePathNode(header) {
    std::copy(bytes.begin(), bytes.end(), bytes_.begin());
}

Common::Error HardDrivePathNode::CreateInstance(const DevicePathHeader& header, ByteReader& reader,
                                                DevicePathNodePtr& node) {
    if (header.length < kNodeSize) return MakeMalformedError();
    // The node is kept whole, header included, so the reader steps back over the header first.
    if (!reader.StepBack(kDevicePathHeaderSize)) return MakeMalformedError();
    std::span<const std::uint8_t> bytes;
    if (!reader.Read(kNodeSize, bytes)) return MakeMalformedError();
    node = DevicePathNodePtr(new HardDrivePathNode(header, bytes));
    return {};
}

std::uint32_t HardDrivePathNode::PartitionNumber() const {
    return LittleEndianAt<std::uint32_t>(bytes_, kPartitionNumberOffset);
}
std::uint64_t HardDrivePathNode::PartitionStart() const {
    return LittleEndianAt<std::uint64_t>(bytes_, kPartitionStartOffset);
}
std::uint64_t HardDrivePathNode::PartitionSize() const {
    return LittleEndianAt<std::uint64_t>(bytes_, kPartitionSizeOffset);
}
std::array<std::uint8_t, 16> HardDrivePathNode::PartitionSignature() const {
    std::array<std::uint8_t, 16> signature;
    std::copy_n(bytes_.begin() + kSignatureOffset, signature.size(), signature.begin());
    return signature;
}
std::uint8_t HardDrivePathNode::PartitionFormat() const { return bytes_[kPartitionFormatOffset]; }
std::uint8_t HardDrivePathNode::SignatureType() const { return bytes_[kSignatureTypeOffset]; }

Common::Error FileDevicePathNode::CreateInstance(const DevicePathHeader& header, ByteReader& reader,
                                                 DevicePathNodePtr& node) {
    if (header.length < kMinimumSize) return MakeMalformedError();
    // PathName is CHAR16[]: a body of odd length holds no UTF-16 text, so the node fails.
    // UEFI 2.10's File Path Media Device Path calls PathName null-terminated and sizes it by the node's
    // Length; a body without the zero unit is taken whole, because the Length bounds the text and a path
    // shown is worth more to the report than an entry dropped.
    std::size_t bodyLength = header.length - kDevicePathHeaderSize;
    if (bodyLength % 2 != 0) return MakeMalformedError();
    std::span<const std::uint8_t> body;
    if (!reader.Read(bodyLength, body)) return MakeMalformedError();
    bool terminated = false;
    node = DevicePathNodePtr(new FileDevicePathNode(header, Utf16UpToZero(body, terminated)));
    return {};
}

Common::Error EndDevicePathNode::CreateInstance(const DevicePathHeader& header, ByteReader&, DevicePathNodePtr& node) {
    if (header.length < kDevicePathHeaderSize) return MakeMalformedError();
    node = DevicePathNodePtr(new EndDevicePathNode(header));
    return {};
}

Common::Error CommonDevicePathNode::CreateInstance(const DevicePathHeader& header, ByteReader& reader,
                                                   DevicePathNodePtr& node) {
    std::ptrdiff_t bodyLength = static_cast<std::ptrdiff_t>(header.length) - static_cast<std::ptrdiff_t>(kDevicePathHeaderSize);
    if (bodyLength < 0 || bodyLength > reader.Left()) return MakeMalformedError();
    std::span<const std::uint8_t> body;
    reader.Read(static_cast<std::size_t>(bodyLength), body);
    node = DevicePathNodePtr(new CommonDevicePathNode(header, std::vector<std::uint8_t>(body.begin(), body.end())));
    return {};
}

}  // namespace Uefi
