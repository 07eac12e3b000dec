// BCD values decoded from their bytes.
#include "core/boot_check/bcd_elements.h"

#include <algorithm>
#include <array>
#include <cctype>

#include "core/disk/bytes.h"
#include "core/disk/guid.h"

namespace BootCheck {
namespace {

std::string Lower(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return text;
}

struct NamedGuid {
    std::string_view guid;
    std::string_view name;
};

// The identifiers the boot manager and its editor give well-known names.
constexpr std::array<NamedGuid, 16> kWellKnown{{
    {"9dea862c-5cdd-4e70-acc1-f32b344d4795", "{bootmgr}"},
    {"a5a30fa2-3d06-4e9f-b5f4-a01df9d1fcba", "{fwbootmgr}"},
    {"b2721d73-1db4-4c62-bf78-c548a880142d", "{memdiag}"},
    {"466f5a88-0af2-4f76-9038-095b170dc21c", "{ntldr}"},
    {"fa926493-6f1c-4193-a414-58f0b2456d1e", "{current}"},
    {"1cae1eb7-a0df-4d4d-9851-4860e34ef535", "{default}"},
    {"7ea2e1ac-2e61-4728-aaa3-896d9d0a9f0e", "{globalsettings}"},
    {"6efb52bf-1766-41db-a6b3-0ee5eff72bd7", "{bootloadersettings}"},
    {"1afa9c49-16ab-4a5c-901b-212802da9460", "{resumeloadersettings}"},
    {"ae5534e0-a924-466c-b836-758539a3ee3a", "{ramdiskoptions}"},
    {"4636856e-540f-4170-a130-a84776f4c654", "{dbgsettings}"},
    {"0ce4991b-e6b3-4b16-b23c-5e0d9250e5d9", "{emssettings}"},
    {"5189b25c-5558-4bf2-bca4-289b11bd29e2", "{badmemory}"},
    {"7ff607e0-4395-11db-b0de-0800200c9a66", "{hypervisorsettings}"},
    {"313e8eed-7098-4586-a9bf-309c61f8d449", "{kerneldbgsettings}"},
    {"0c334284-9a41-4de1-99b3-a7e87e8ff07e", "{resumeapp}"},
}};

struct NamedElement {
    std::uint32_t type;
    std::string_view name;
};

// Element types whose meaning does not depend on the object that holds them.
constexpr std::array<NamedElement, 17> kElements{{
    {0x11000001, "application device"},
    {0x12000002, "application path"},
    {0x12000004, "description"},
    {0x12000005, "locale"},
    {0x14000006, "inherited objects"},
    {0x15000007, "truncate memory"},
    {0x16000009, "auto recovery"},
    {0x1600000b, "bad memory access"},
    {0x16000060, "boot menu policy"},
    {0x21000001, "OS device"},
    {0x22000002, "system root"},
    {0x23000003, "default object"},
    {0x23000006, "resume object"},
    {0x24000001, "display order"},
    {0x24000002, "boot sequence"},
    {0x24000010, "tools display order"},
    {0x25000004, "timeout"},
}};

// Device descriptor kinds (the first word of a descriptor).
constexpr std::uint32_t kBlockIoDevice = 0;
constexpr std::uint32_t kBootDevice = 5;
constexpr std::uint32_t kPartitionDevice = 6;
constexpr std::uint32_t kLocateDevice = 8;
// Block I/O kinds (the first word of a block I/O descriptor's body).
constexpr std::uint32_t kRamDisk = 3;
// Partition styles of a partition descriptor.
constexpr std::uint32_t kGptStyle = 0;
constexpr std::uint32_t kMbrStyle = 1;

// Element: the GUID of an options object, then the device descriptor. Descriptor: kind, flags, its whole
// size in bytes (header included), a reserved word, then the body.
constexpr std::size_t kOptionsGuidSize = 16;
constexpr std::size_t kDescriptorHeader = 16;
// Partition body: partition identifier (GPT: the partition GUID; MBR: its offset in bytes), the disk's
// block I/O kind, the partition style, disk identifier (GPT: the disk GUID; MBR: the signature).
constexpr std::size_t kPartitionBody = 16 + 4 + 4 + 16;
// RAM disk body: block I/O kind, image base, image size, image offset (all zero in a store), then the
// descriptor of the device that holds the image file.
constexpr std::size_t kRamDiskFixed = 4 + 8 + 8 + 4;
// A RAM disk inside a RAM disk is already nonsense; the bound only keeps hostile bytes from recursing.
constexpr int kMaxNesting = 4;

std::string Number(std::size_t value) { return std::to_string(value); }

std::optional<Device> DecodeDescriptor(ByteSpan bytes, int depth, std::string& why) {
    if (bytes.size() < kDescriptorHeader) {
        why = "a device descriptor of " + Number(bytes.size()) + " bytes is shorter than its header";
        return std::nullopt;
    }
    std::uint32_t kind = Disk::Le32(bytes, 0);
    std::uint32_t size = Disk::Le32(bytes, 8);
    if (size < kDescriptorHeader) {
        why = "a device descriptor declares " + Number(size) + " bytes, less than its header";
        return std::nullopt;
    }
    if (size > bytes.size()) {
        why = std::string(depth == 0 ? "a device descriptor" : "a nested descriptor") + " of " + Number(size) +
              " bytes is longer than its parent's " + Number(bytes.size());
        return std::nullopt;
    }
    ByteSpan body = bytes.subspan(kDescriptorHeader, size - kDescriptorHeader);
    Device device;
    switch (kind) {
        case kBootDevice:
            device.kind = Device::Kind::Boot;
            device.description = "the device the boot manager started from";
            return device;
        case kLocateDevice:
            device.kind = Device::Kind::Locate;
            device.description = "the device found by searching for a file";
            return device;
        case kPartitionDevice: {
            if (body.size() < kPartitionBody) {
                why = "a partition descriptor of " + Number(size) + " bytes is shorter than " +
                      Number(kDescriptorHeader + kPartitionBody);
                return std::nullopt;
            }
            std::uint32_t style = Disk::Le32(body, 20);
            DevicePartition partition;
            if (style == kGptStyle) {
                partition.gpt = true;
                partition.partitionGuid = GuidText(body.subspan(0, 16));
                partition.diskGuid = GuidText(body.subspan(24, 16));
            } else if (style == kMbrStyle) {
                partition.offsetBytes = Disk::Le64(body, 0);
                partition.diskSignature = Disk::Le32(body, 24);
            } else {
                device.description = "a partition of style " + Number(style);
                return device;
            }
            device.kind = Device::Kind::Partition;
            device.partition = partition;
            return device;
        }
        case kBlockIoDevice:
            if (body.size() >= 4 && Disk::Le32(body, 0) == kRamDisk) {
                if (body.size() < kRamDiskFixed) {
                    why = "a RAM disk descriptor of " + Number(size) + " bytes is shorter than " +
                          Number(kDescriptorHeader + kRamDiskFixed);
                    return std::nullopt;
                }
                if (depth + 1 >= kMaxNesting) {
                    why = "device descriptors nested deeper than " + Number(kMaxNesting);
                    return std::nullopt;
                }
                std::optional<Device> parent = DecodeDescriptor(body.subspan(kRamDiskFixed), depth + 1, why);
                if (!parent) return std::nullopt;
                parent->ramdisk = true;
                return parent;
            }
            device.description = body.size() >= 4 ? "a block device of kind " + Number(Disk::Le32(body, 0))
                                                   : "a block device";
            return device;
        default:
            device.description = "a device of kind " + Number(kind);
            return device;
    }
}

}  // namespace

std::string GuidText(ByteSpan sixteen) { return Lower(Disk::Guid::FromBytes(sixteen.first(16)).ToString()); }

std::optional<std::string> ParseGuidText(std::string_view text) {
    if (text.size() == 38 && text.front() == '{' && text.back() == '}') text = text.substr(1, 36);
    if (text.size() != 36) return std::nullopt;
    for (std::size_t i = 0; i < text.size(); ++i) {
        bool dash = i == 8 || i == 13 || i == 18 || i == 23;
        if (dash ? text[i] != '-' : !std::isxdigit(static_cast<unsigned char>(text[i]))) return std::nullopt;
    }
    return Lower(std::string(text));
}

std::string_view WellKnownObjectName(std::string_view guid) {
    for (const NamedGuid& known : kWellKnown)
        if (known.guid == guid) return known.name;
    return {};
}

std::string ObjectLabel(std::string_view guid) {
    std::string_view name = WellKnownObjectName(guid);
    return name.empty() ? "{" + std::string(guid) + "}" : std::string(name);
}

std::optional<std::string> ObjectTypeName(std::uint32_t type) {
    // Object kind in bits 28-31: 1 application, 2 inheritable settings, 3 device options.
    switch (type >> 28) {
        case 1: {
            // Application type in bits 0-19.
            static constexpr std::array<std::string_view, 10> kApplications{
                "application", "firmware boot manager", "boot manager", "OS loader", "resume",
                "memory tester", "legacy loader", "setup loader", "boot sector", "startup application"};
            std::uint32_t application = type & 0xFFFFF;
            if (application < kApplications.size()) return std::string(kApplications[application]);
            if (application == 0xFFFFF) return std::string("firmware application");
            return "application " + Number(application);
        }
        case 2: return std::string("inheritable settings");
        case 3: return std::string("device options");
        default: return std::nullopt;
    }
}

std::string_view ElementName(std::uint32_t type) {
    for (const NamedElement& element : kElements)
        if (element.type == type) return element.name;
    return {};
}

std::optional<std::vector<std::string>> Utf16Strings(ByteSpan data) {
    if (data.size() % 2 != 0) return std::nullopt;
    std::vector<std::string> strings;
    std::string current;
    for (std::size_t i = 0; i < data.size(); i += 2) {
        std::uint16_t unit = Disk::Le16(data, i);
        if (unit == 0) {
            if (!current.empty()) strings.push_back(std::move(current));
            current.clear();
        } else {
            current.push_back(static_cast<char>(unit & 0xFF));
        }
    }
    if (!current.empty()) strings.push_back(std::move(current));
    return strings;
}

std::optional<Device> DecodeDevice(ByteSpan data, std::string& why) {
    if (data.size() < kOptionsGuidSize + kDescriptorHeader) {
        why = "a device element of " + Number(data.size()) + " bytes is shorter than its header (" +
              Number(kOptionsGuidSize + kDescriptorHeader) + ")";
        return std::nullopt;
    }
    return DecodeDescriptor(data.subspan(kOptionsGuidSize), 0, why);
}

}  // namespace BootCheck
