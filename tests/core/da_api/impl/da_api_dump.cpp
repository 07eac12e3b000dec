// The property text of every disk and object an instance lists.
#include "tests/core/da_api/impl/da_api_dump.h"

#include <cstdio>

#include "core/da_api/da_properties.h"

namespace TestSupport {
namespace {

using namespace DaApi;

std::string Text8(Value value) { return value ? DaApi::Text8(value) : "-"; }

std::string Text16(Value value) {
    if (!value) return "-";
    std::string narrow;
    for (const char16_t* c = DaApi::Text16(value); *c; ++c) narrow += *c < 128 ? static_cast<char>(*c) : '?';
    return narrow;
}

std::string Kind(Interface& api) {
    if (api.DaGetProperty(Prop::kIsMbr)) return "mbr";
    if (api.DaGetProperty(Prop::kIsUnallocated)) return "free";
    if (api.DaGetProperty(Prop::kExtendedTable)) return "ebr";
    if (api.DaGetProperty(Prop::kIsMetadata)) return "meta" + std::to_string(api.DaGetProperty(Prop::kGptMetadataKind));
    return "part";
}

std::string Format(const char* format, auto... values) {
    char line[512];
    std::snprintf(line, sizeof line, format, values...);
    return line;
}

using ull = unsigned long long;

}  // namespace

std::string DumpDisks(Interface& api, DumpScope scope, const std::string& device) {
    std::string text;
    api.DaSetProperty(Prop::kSelectComputer, Prop::kComputerName);
    api.DaSetProperty(Prop::kDropDisk, 0);
    api.DaSetProperty(Prop::kNumbering, 2);
    while (true) {
        api.DaSetProperty(Prop::kNextDisk, 0);
        if (api.DaGetProperty(Prop::kDiskHandle) == 0) break;
        if (!device.empty() && Text8(api.DaGetProperty(Prop::kDeviceName)) != device) continue;
        if (scope == DumpScope::kEverything) text += Format("disk %llu ", ull(api.DaGetProperty(Prop::kDiskNumber)));
        text += Format("scheme=%llu state=%llu last=%llu lss=%llu gptmbr=%llu guid=%s error=%llu noio=%llu\n",
                       ull(api.DaGetProperty(Prop::kSchemeKind)),
                       ull(api.DaGetProperty(Prop::kSchemeState)), ull(api.DaGetProperty(Prop::kLastSector)),
                       ull(api.DaGetProperty(Prop::kLogicalSectorSize)), ull(api.DaGetProperty(Prop::kGptAlsoMbr)),
                       Text8(api.DaGetProperty(Prop::kGptDiskGuid)).c_str(), ull(api.DaGetProperty(Prop::kDiskError)),
                       ull(api.DaGetProperty(Prop::kNoIo)));
        if (scope == DumpScope::kEverything)
            text += Format("  device=%s model=%s iface=%llu chs=%llu/%llu/%llu pss=%llu\n",
                           Text8(api.DaGetProperty(Prop::kDeviceName)).c_str(),
                           Text8(api.DaGetProperty(Prop::kModel)).c_str(), ull(api.DaGetProperty(Prop::kInterface)),
                           ull(api.DaGetProperty(Prop::kCylinders)), ull(api.DaGetProperty(Prop::kHeads)),
                           ull(api.DaGetProperty(Prop::kSectorsPerTrack)),
                           ull(api.DaGetProperty(Prop::kPhysicalSectorSize)));
        api.DaSetProperty(Prop::kObjectHandle, 0);
        while (true) {
            api.DaSetProperty(Prop::kNextObject, 0);
            if (api.DaGetProperty(Prop::kObjectHandle) == 0) break;
            text += Format("  %-5s %llu+%llu #%llu type=%02llX %s active=%llu hidden=%llu err=%llu bits=%llu",
                           Kind(api).c_str(), ull(api.DaGetProperty(Prop::kFirstSector)),
                           ull(api.DaGetProperty(Prop::kSectorCount)), ull(api.DaGetProperty(Prop::kPartitionNumber)),
                           ull(api.DaGetProperty(Prop::kTypeByte)), Text8(api.DaGetProperty(Prop::kTypeName)).c_str(),
                           ull(api.DaGetProperty(Prop::kActive)), ull(api.DaGetProperty(Prop::kHidden)),
                           ull(api.DaGetProperty(Prop::kObjectError)), ull(api.DaGetProperty(Prop::kStructureErrors)));
            if (scope == DumpScope::kEverything)
                text += Format(" os=%llu", ull(api.DaGetProperty(Prop::kOsPartitionNumber)));
            text += "\n";
            if (!api.DaGetProperty(Prop::kHasFileSystem)) continue;
            std::string serial;
            const Value serialBytes = api.GetFsProperty(Prop::kSerialNumber);
            for (Value i = 0; i < api.GetFsProperty(Prop::kSerialNumberLength); ++i)
                serial += Format("%02X", reinterpret_cast<const unsigned char*>(static_cast<std::uintptr_t>(serialBytes))[i]);
            text += Format("    fs=%llu size=%llu label=%s block=%llu blocks=%llu free=%llu reserved=%llu fat=%llux%llu/%llu "
                           "root=%llu/%llu inodes=%llu/%llu@%llu journal=%llu serial=%s\n",
                           ull(api.DaGetProperty(Prop::kFsType)), ull(api.DaGetProperty(Prop::kFsSectors)),
                           Text16(api.DaGetProperty(Prop::kVolumeLabel)).c_str(), ull(api.GetFsProperty(Prop::kBlockSize)),
                           ull(api.GetFsProperty(Prop::kBlockCount)), ull(api.GetFsProperty(Prop::kFreeBlocks)),
                           ull(api.GetFsProperty(Prop::kReservedSectors)), ull(api.GetFsProperty(Prop::kFatCount)),
                           ull(api.GetFsProperty(Prop::kFatSize)), ull(api.GetFsProperty(Prop::kFatBits)),
                           ull(api.GetFsProperty(Prop::kUsedRootEntries)), ull(api.GetFsProperty(Prop::kRootEntries)),
                           ull(api.GetFsProperty(Prop::kFreeInodes)), ull(api.GetFsProperty(Prop::kInodeCount)),
                           ull(api.GetFsProperty(Prop::kInodeSize)), ull(api.GetFsProperty(Prop::kJournalBlocks)),
                           serial.c_str());
        }
    }
    api.DaSetProperty(Prop::kDropDisk, 0);
    return text;
}

}  // namespace TestSupport
