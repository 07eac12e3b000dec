// BCD store contents decoded from bytes: well-known object names, object and element types, object
// references and device elements. No hive, no disk: callers hand over the values' bytes.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace BootCheck {

using ByteSpan = std::span<const std::uint8_t>;

// "9dea862c-5cdd-4e70-acc1-f32b344d4795": the lower-case form every GUID of this check is compared in.
std::string GuidText(ByteSpan sixteen);
// "{9DEA862C-...}" or "9dea862c-..." (a BCD key name, an object reference) in the lower-case form;
// nothing when the text is not a GUID.
std::optional<std::string> ParseGuidText(std::string_view text);

// The boot manager object, {bootmgr}.
inline constexpr std::string_view kBootManagerGuid = "9dea862c-5cdd-4e70-acc1-f32b344d4795";

// "{bootmgr}" for a well-known object GUID (lower-case text), else empty.
std::string_view WellKnownObjectName(std::string_view guid);
// "{bootmgr}" where the GUID has a well-known name, else "{<guid>}".
std::string ObjectLabel(std::string_view guid);

// The object type word (the "Type" value of an object's Description key) as words: "boot manager",
// "OS loader", "firmware application", ...; nothing when its object kind is out of range.
std::optional<std::string> ObjectTypeName(std::uint32_t type);

// Element type words: class in bits 28-31, value format in bits 24-27, subtype below.
namespace ElementFormat {
inline constexpr std::uint32_t kDevice = 1, kString = 2, kObject = 3, kObjectList = 4, kInteger = 5, kBoolean = 6,
                               kIntegerList = 7;
}
inline std::uint32_t ElementFormatOf(std::uint32_t type) { return type >> 24 & 0xF; }

namespace Element {
inline constexpr std::uint32_t kApplicationDevice = 0x11000001;
inline constexpr std::uint32_t kApplicationPath = 0x12000002;
inline constexpr std::uint32_t kDescription = 0x12000004;
inline constexpr std::uint32_t kOsDevice = 0x21000001;
inline constexpr std::uint32_t kDefaultObject = 0x23000003;
inline constexpr std::uint32_t kDisplayOrder = 0x24000001;
}  // namespace Element

// "application device", "display order", ...; empty for a type this check does not know.
std::string_view ElementName(std::uint32_t type);

// A UTF-16LE registry string (REG_SZ or REG_MULTI_SZ data) as the strings it holds, narrowed to their
// low bytes (BCD texts here are GUIDs, paths and descriptions). Nothing when the byte count is odd.
std::optional<std::vector<std::string>> Utf16Strings(ByteSpan data);

// One partition named by a device element.
struct DevicePartition {
    bool gpt = false;
    std::string partitionGuid;       // GPT: the partition's unique GUID
    std::string diskGuid;            // GPT: the disk's GUID
    std::uint64_t offsetBytes = 0;   // MBR: where the partition starts on its disk, in bytes
    std::uint32_t diskSignature = 0; // MBR: the disk signature
};

// A decoded device element (formats 1): the partition it names, or what it names when not a partition.
struct Device {
    enum class Kind { Partition, Boot, Locate, Other } kind = Kind::Other;
    bool ramdisk = false;           // the partition holds the image a RAM disk is made from
    std::optional<DevicePartition> partition;
    std::string description;        // for Boot/Locate/Other: what the element names, in words
};

// Decodes a device element. On malformed bytes returns nothing and says why in `why` (one sentence, no
// full stop): "a device element of 40 bytes is shorter than its header", "a nested descriptor of 120 bytes
// is longer than its parent's 72", ...
std::optional<Device> DecodeDevice(ByteSpan data, std::string& why);

}  // namespace BootCheck
