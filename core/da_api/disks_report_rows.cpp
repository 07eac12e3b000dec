// The row writers of the disk report's table and summary.
#include "core/da_api/disks_report_rows.h"

#include <algorithm>
#include <array>

#include "core/da_api/bios_parameters_dump.h"
#include "core/da_api/da_properties.h"
#include "core/da_api/disk_name_tables.h"
#include "core/da_api/disks_report_access.h"
#include "core/da_api/report_printf.h"

namespace DaApi::DisksReport {
namespace {

using ull = unsigned long long;

constexpr std::size_t kLabelWidth = 11;
constexpr Value kNoOsNumber = 65535;
constexpr Value kOsNumbering = 2;
// Drive-letter views of the L9NO column, in column order.
constexpr std::array<Value, 4> kLetterViews = {0, 3, 7, 8};
// File systems whose check is never requested for the flag letters.
constexpr std::array<Value, 3> kUncheckedFileSystems = {7, 16, 23};
constexpr Value kBiosFirstDisk = 0x80;

std::string Blanks(std::size_t count) { return std::string(count, ' '); }

std::string NumberColumn(const Place& place) {
    if (place.inVolume) return "  " + Printf("%-9s", Printf("v(%llu)", static_cast<ull>(place.volumeNumber)).c_str());
    Value number = Get(Prop::kPartitionNumber);
    if (number == 0) return Blanks(4);
    return Printf("%4s", Printf("-%llu", static_cast<ull>(number)).c_str());
}

std::string OsNumberColumn() {
    Set(Prop::kNumbering, kOsNumbering);
    Value number = Get(Prop::kOsPartitionNumber);
    if (number == 0 || number == kNoOsNumber) return Blanks(5);
    return Printf("%5s", Printf("p(%llu)", static_cast<ull>(number)).c_str());
}

std::string LetterColumn(bool hasFileSystem) {
    if (!hasFileSystem) return Blanks(4);
    std::string letters;
    for (Value view : kLetterViews) {
        Set(Prop::kDriveLetterView, view);
        Value letter = Get(Prop::kDriveLetter);
        letters += letter >= 'A' && letter <= 'Z' ? static_cast<char>(letter) : '-';
    }
    return letters;
}

std::string FsColumn(bool hasFileSystem, Value fsType) {
    if (Get(Prop::kIsUnallocated) != 0) {
        Value state = Get(Prop::kSchemeState);
        return state != 0 ? SchemeStateName(state, Get(Prop::kSchemeTypeByte)) : "unallc";
    }
    if (Get(Prop::kIsMbr) != 0) return "MBR";
    if (hasFileSystem) return FileSystemName(fsType, GetFs(Prop::kFatBits));
    switch (Get(Prop::kSchemeKind)) {
        case SchemeKind::kRaw: return "rawMet";
        case SchemeKind::kMbr: return Get(Prop::kExtendedTable) != 0 ? "EPT" : "LPT";
        case SchemeKind::kGpt:
            // Besides the table's two copies, a GPT disk has two kinds of region without a file system: a
            // partition entry's (the Microsoft reserved partition is the usual one), "MSresr", and space that
            // belongs to no partition object, such as the gap after an entry array, "GPTmet".
            switch (Get(Prop::kGptMetadataKind)) {
                case GptMetadataKind::kPrimary: return "GPTpri";
                case GptMetadataKind::kBackup: return "GPTbck";
                default: return Get(Prop::kIsMetadata) == 0 ? "MSresr" : "GPTmet";
            }
        default: return "PSmeta";
    }
}

std::string TypeColumn() {
    Value typeByte = Get(Prop::kTypeByte);
    if (Get(Prop::kIsUnallocated) != 0 || Get(Prop::kIsMbr) != 0 || (Get(Prop::kIsMetadata) != 0 && typeByte == 0)) {
        return Blanks(15);
    }
    return Printf("%02llX %-12.12s", static_cast<ull>(typeByte), GetText8(Prop::kTypeName).c_str());
}

// "e", "w", "c" or "-": errors, else warnings, else checked.
char StateLetter() {
    if (!GetText16(Prop::kErrorText).empty()) return 'e';
    if (Get(Prop::kWarnings) != 0) return 'w';
    if (Get(Prop::kCheckCount) != 0) return 'c';
    return '-';
}

void WriteOptionalText(std::ostream& out, const char* label, PropertyId id) {
    std::string text = GetText8(id);
    if (!text.empty()) WriteLine(out, label + text);
}

void WriteBiosParameters(std::ostream& out) {
    std::string text;
    AppendFixedDiskTable(text, GetBytes(Prop::kBiosFixedDiskTable, kFixedDiskTableBytes));
    if (Value version = Get(Prop::kBiosExtensionsVersion); version != 0) {
        AppendBiosExtensions(text, static_cast<std::uint8_t>(version),
                             static_cast<std::uint16_t>(Get(Prop::kBiosExtensionsSupport)),
                             GetBytes(Prop::kBiosDriveParameters, kExtendedDriveParametersBytes));
    }
    out << text;
}

}  // namespace

void WriteLine(std::ostream& out, std::string_view text) {
    out.write(text.data(), static_cast<std::streamsize>(text.size()));
    out.write("\r\n", 2);
}

void WriteDiskRow(std::ostream& out) {
    std::string bios = Get(Prop::kHasBiosNumber) != 0
                           ? Printf("d(%llu)", static_cast<ull>(Get(Prop::kBiosNumber) - kBiosFirstDisk))
                           : "d(?)";
    std::string scheme = DiskSchemeColumn(Get(Prop::kSchemeState), Get(Prop::kSchemeKind), Get(Prop::kGptAlsoMbr) != 0,
                                          Get(Prop::kSchemeTypeByte));
    Value interfaceType = Get(Prop::kInterface);
    std::string scsi = interfaceType != 0 ? Printf("%llu-%llu-%llu", static_cast<ull>(Get(Prop::kScsiHost)),
                                                   static_cast<ull>(Get(Prop::kScsiBus)),
                                                   static_cast<ull>(Get(Prop::kScsiTarget)))
                                          : "";
    std::string row = Printf("%-4s", Printf("%llu-", static_cast<ull>(Get(Prop::kDiskNumber))).c_str());
    row += " " + Printf("%-5s", bios.c_str());
    row += Printf("%-4.4s", scheme.c_str());
    row += " " + Printf("%5s", Size(Get(Prop::kLastSector) + 1, 0).c_str());
    row += " " + Printf("%-5s", InterfaceName(interfaceType).c_str());
    row += " " + Printf("%-8s", scsi.c_str());
    row += " " + Printf("%-26s", GetText8(Prop::kModel).c_str());
    WriteLine(out, row);
}

void WriteVolumeGroupRow(std::ostream& out) {
    WriteLine(out, Printf("Volume group \"%s\" %s", GetText8(Prop::kGroupName).c_str(), GetText8(Prop::kGroupId).c_str()));
}

void WriteVolumeRow(std::ostream& out, const Place& place) {
    std::string name = Printf("v(%llu)l(%llu)", static_cast<ull>(place.volumeNumber),
                              static_cast<ull>(Get(Prop::kVolumeLayout)));
    WriteLine(out, Blanks(6) + Printf("%-10s", name.c_str()) + " " +
                       Printf("%5s", Size(Get(Prop::kSectorCount), 0).c_str()));
}

std::string LabelText(const std::u16string& label, std::uint64_t maxLength) {
    std::string text;
    for (std::size_t i = 0; i < label.size() && i < maxLength; ++i) {
        char16_t c = label[i];
        text += c >= 32 && c < 256 ? static_cast<char>(c) : '.';
    }
    return text;
}

std::string LabelColumn(const std::u16string& label, std::uint64_t maxLength) {
    std::string column = LabelText(label, std::min<std::uint64_t>(maxLength, kLabelWidth));
    column.resize(kLabelWidth, ' ');
    return column;
}

std::string FlagLetters() {
    bool hasFileSystem = Get(Prop::kHasFileSystem) != 0;
    Value fsType = Get(Prop::kFsType);
    std::string flags;
    flags += Get(Prop::kActive) != 0 ? 'A' : '-';
    flags += StateLetter();

    bool checkable = hasFileSystem && std::find(kUncheckedFileSystems.begin(), kUncheckedFileSystems.end(), fsType) ==
                                          kUncheckedFileSystems.end();
    if (checkable) Set(Prop::kRequestCheck, 0);
    char checked = StateLetter();
    flags += Get(Prop::kCheckAuthoritative) != 0 && checked != '-' ? static_cast<char>(checked - 'a' + 'A') : checked;

    Value hidden = Get(Prop::kHidden);
    flags += hidden == 2 ? 'N' : hidden != 0 ? 'H' : '-';
    flags += Get(Prop::kStructureErrors) != 0 ? 'S' : '-';
    Value encryption = Get(Prop::kEncryption);
    flags += encryption == 3 ? 'E' : encryption == 2 ? 'V' : encryption != 0 ? 'v' : '-';
    return flags;
}

void WritePartitionRow(std::ostream& out, const Place& place) {
    bool hasFileSystem = Get(Prop::kHasFileSystem) != 0;
    Value fsType = Get(Prop::kFsType);
    std::string row = NumberColumn(place);
    row += " " + OsNumberColumn();
    row += " " + LetterColumn(hasFileSystem);
    row += " " + (Get(Prop::kIsMetadata) != 0 ? Blanks(5) : Printf("%5s", Size(Get(Prop::kSectorCount), 0).c_str()));
    row += " " + (hasFileSystem ? Printf("%5s", Size(Get(Prop::kFsSectors), 0).c_str()) : Blanks(5));
    bool countsFree = hasFileSystem && Get1(Prop::kCountsFreeSpace, fsType) != 0;
    row += " " + (countsFree ? Printf("%5s", Size(GetFs(Prop::kFreeBlocks) * GetFs(Prop::kBlockSize), 0).c_str())
                             : Blanks(5));
    row += " " + Printf("%-6.6s", FsColumn(hasFileSystem, fsType).c_str());
    row += " " + TypeColumn();
    row += " " + LabelColumn(GetText16(Prop::kVolumeLabel), Get1(Prop::kLabelLength, fsType));
    row += " " + FlagLetters();
    if (std::u16string error = GetText16(Prop::kErrorText); !error.empty()) row += " " + Narrow(error);
    WriteLine(out, row);
}

void WriteComputerSummary(std::ostream& out) {
    Value used = Get(Prop::kUsedDriveLetters);
    std::string free;
    for (int i = 0; i < 26; ++i) {
        if (((used >> i) & 1) == 0) free += static_cast<char>('A' + i);
    }
    WriteLine(out, "Firmware:           " + FirmwareName(Get(Prop::kFirmwareKind)));
    WriteLine(out, "OS:                 " + OperatingSystemName(Get(Prop::kOsKind)));
    WriteLine(out, "Free letters:       " + free);
    WriteOptionalText(out, "Primary group name: ", Prop::kPrimaryGroupName);
    WriteOptionalText(out, "Primary group GUID: ", Prop::kPrimaryGroupGuid);
}

void WriteDiskProperties(std::ostream& out) {
    WriteLine(out, Printf("Disk %llu properties:", static_cast<ull>(Get(Prop::kDiskNumber))));
    if (Get(Prop::kHasBiosNumber) != 0) {
        WriteLine(out, Printf("  BIOS number:    0x%02llX", static_cast<ull>(Get(Prop::kBiosNumber))));
    }
    WriteLine(out, Printf("  Geometry:       %llu %llu %llu", static_cast<ull>(Get(Prop::kCylinders)),
                          static_cast<ull>(Get(Prop::kHeads)), static_cast<ull>(Get(Prop::kSectorsPerTrack))));
    WriteLine(out, Printf("  LSS: %llu, PSS: %llu, LSO: %llu", static_cast<ull>(SectorSize()),
                          static_cast<ull>(Get(Prop::kPhysicalSectorSize)),
                          static_cast<ull>(Get(Prop::kLogicalSectorOffset))));
    Value total = Get(Prop::kLastSector) + 1;
    WriteLine(out, Printf("  Total sectors:  %llu (0x%llX)", static_cast<ull>(total), static_cast<ull>(total)));
    WriteOptionalText(out, "  Composite GUID: ", Prop::kCompositeGuid);
    WriteOptionalText(out, "  Controller:     ", Prop::kController);
    WriteOptionalText(out, "  Device name:    ", Prop::kDeviceName);
    WriteOptionalText(out, "  GPT GUID:       ", Prop::kGptDiskGuid);
    WriteOptionalText(out, "  HW serial:      ", Prop::kHwSerial);
    WriteOptionalText(out, "  Storage space:  ", Prop::kStorageSpace);
    WriteOptionalText(out, "  Sys name:       ", Prop::kSystemName);
    WriteBiosParameters(out);
}

}  // namespace DaApi::DisksReport
