// The load option decoder and its queries.
#include "core/grub_parser/uefi_bootvars/load_options_impl.h"

#include "core/grub_parser/uefi_bootvars/device_path_factory.h"
#include "core/grub_parser/uefi_bootvars/uefi_errors.h"

namespace Uefi {
namespace {

// The first node of the given kind, in path-list order.
template <typename Node>
const Node* FindFirst(const std::vector<DevicePathNodePtr>& nodes, std::uint8_t type, std::uint8_t subType) {
    for (const DevicePathNodePtr& node : nodes) {
        DevicePathHeader header = node->GetHeader();
        if (header.type == type && header.subType == subType) return dynamic_cast<const Node*>(node.get());
    }
    return nullptr;
}

Common::Error MakeIncorrectSignatureError(std::source_location where = std::source_location::current()) {
    return Common::Error::Make(Codes::kIncorrectSignature, L"Incorrect boot signature.", {}, where);
}

// Description is a null-terminated UTF-16 string; the cursor moves past its zero.
bool ReadDescription(ByteReader& reader, std::u16string& description) {
    bool terminated = false;
    std::u16string text = Utf16UpToZero(reader.Rest(), terminated);
    std::span<const std::uint8_t> consumed;
    if (!terminated || !reader.Read(2 * text.size() + 2, consumed)) return false;
    description = std::move(text);
    return true;
}

}  // namespace

Common::Error LoadOptionsImpl::Fill(ByteReader& reader) {
    trailingBytes_.clear();
    nodes_.clear();
    if (!reader.ReadU32(attributes_) || !reader.ReadU16(pathListLength_)) return MakeMalformedError();
    if (!ReadDescription(reader, description_)) return MakeMalformedError();

    // Counted down by each node's declared length, which a node may not have consumed: a hard-drive node
    // takes 42 bytes and an end node 4, whatever their headers say.
    std::int32_t left = pathListLength_;
    while (left != 0) {
        if (left < 0) return MakeIncorrectBootPathError();
        DevicePathNodePtr node;
        if (Common::Error error = GetEfiDevicePathNode(reader, node); error.Failed()) {
            // What follows an end node may be a further path instance this decoder cannot read; the nodes
            // up to the end node are still a usable path, and the rest of the list is kept as bytes.
            if (nodes_.empty() || nodes_.back()->GetHeader().type != DevicePathType::kEnd) return error;
            std::span<const std::uint8_t> rest;
            if (!reader.Read(static_cast<std::size_t>(left), rest)) return error;
            trailingBytes_.assign(rest.begin(), rest.end());
            break;
        }
        nodes_.push_back(node);
        left -= node->GetLength();
    }
    return {};
}

Common::Error LoadOptionsImpl::GetDescription(std::u16string& description) const {
    description = description_;
    return {};
}

Common::Error LoadOptionsImpl::GetPath(std::u16string& path) const {
    const auto* node = FindFirst<FileDevicePathNode>(nodes_, DevicePathType::kMedia, MediaSubType::kFilePath);
    if (!node) return MakeIncorrectBootPathError();
    path = node->PathName();
    return {};
}

Common::Error LoadOptionsImpl::FindHardDrive(const HardDrivePathNode*& node) const {
    node = FindFirst<HardDrivePathNode>(nodes_, DevicePathType::kMedia, MediaSubType::kHardDrive);
    return node ? Common::Error() : MakeIncorrectBootPathError();
}

Common::Error LoadOptionsImpl::GetPartitionNumber(std::uint32_t& number) const {
    const HardDrivePathNode* node = nullptr;
    if (Common::Error error = FindHardDrive(node); error.Failed()) return error;
    number = node->PartitionNumber();
    return {};
}

Common::Error LoadOptionsImpl::GetPartitionStart(std::uint64_t& start) const {
    const HardDrivePathNode* node = nullptr;
    if (Common::Error error = FindHardDrive(node); error.Failed()) return error;
    start = node->PartitionStart();
    return {};
}

Common::Error LoadOptionsImpl::GetPartitionSize(std::uint64_t& size) const {
    const HardDrivePathNode* node = nullptr;
    if (Common::Error error = FindHardDrive(node); error.Failed()) return error;
    size = node->PartitionSize();
    return {};
}

Common::Error LoadOptionsImpl::GetDiskType(std::uint32_t& type) const {
    const HardDrivePathNode* node = nullptr;
    if (Common::Error error = FindHardDrive(node); error.Failed()) return error;
    switch (node->SignatureType()) {
        case HardDrivePathNode::kSignatureMbr: type = DiskType::kMbr; break;
        case HardDrivePathNode::kSignatureGuid: type = DiskType::kGpt; break;
        default: type = DiskType::kUnknown; break;
    }
    return {};
}

Common::Error LoadOptionsImpl::GetPartitionGUID(Guid& guid) const {
    std::uint32_t type = 0;
    if (Common::Error error = GetDiskType(type); error.Failed()) return error;
    if (type != DiskType::kGpt) return MakeIncorrectSignatureError();
    const HardDrivePathNode* node = nullptr;
    FindHardDrive(node);
    std::array<std::uint8_t, 16> signature = node->PartitionSignature();
    guid = GuidFromBytes(signature);
    return {};
}

Common::Error LoadOptionsImpl::GetNtSignature(std::uint32_t& signature) const {
    std::uint32_t type = 0;
    if (Common::Error error = GetDiskType(type); error.Failed()) return error;
    if (type != DiskType::kMbr) return MakeIncorrectSignatureError();
    const HardDrivePathNode* node = nullptr;
    FindHardDrive(node);
    std::array<std::uint8_t, 16> bytes = node->PartitionSignature();
    signature = static_cast<std::uint32_t>(bytes[0]) | static_cast<std::uint32_t>(bytes[1]) << 8 |
                static_cast<std::uint32_t>(bytes[2]) << 16 | static_cast<std::uint32_t>(bytes[3]) << 24;
    return {};
}

}  // namespace Uefi
