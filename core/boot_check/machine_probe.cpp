// The machine model from the DA-API and the firmware variables.
#include "core/boot_check/machine_probe.h"

#include <algorithm>

#include "core/boot_check/bcd_elements.h"
#include "core/common/log.h"
#include "core/common/strings.h"
#include "core/da_api/da_properties.h"
#include "core/da_api/disks_report_access.h"
#include "core/da_api/disks_report_walk.h"
#include "core/disk/bytes.h"
#include "core/disk/partition_types.h"
#include "core/grub_parser/uefi_bootvars/boot_entries.h"
#include "core/grub_parser/uefi_bootvars/boot_order.h"
#include "core/grub_parser/uefi_bootvars/bootvars_report.h"
#include "core/grub_parser/uefi_bootvars/load_options.h"

namespace BootCheck {
namespace {

using namespace DaApi;
using DisksReport::Get;

std::string Why(const Common::Error& error) {
    std::string text = Common::WideToUtf8(error.Message());
    return text.empty() ? "error 0x" + [&] {
        char hex[16];
        std::snprintf(hex, sizeof hex, "%X", static_cast<unsigned>(error.Code()));
        return std::string(hex);
    }() : text;
}

std::string LowerText(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return text;
}

// EFI_LOAD_OPTION: attributes (4), FilePathListLength (2), a zero-terminated UTF-16 description, the
// device-path list, then the optional data (UEFI specification, section 3.1.3).
std::span<const std::uint8_t> OptionalData(std::span<const std::uint8_t> raw) {
    if (raw.size() < 6) return {};
    std::size_t pathLength = Disk::Le16(raw, 4);
    std::size_t offset = 6;
    while (offset + 1 < raw.size() && Disk::Le16(raw, offset) != 0) offset += 2;
    offset += 2 + pathLength;
    return offset <= raw.size() ? raw.subspan(offset) : std::span<const std::uint8_t>{};
}

FirmwareEntry ProbeEntry(Uefi::BootEntry& boot) {
    FirmwareEntry entry;
    entry.number = boot.GetNumber();
    std::shared_ptr<Uefi::LoadOptions> options;
    std::vector<std::uint8_t> raw;
    if (Common::Error error = boot.GetRawData(raw); error.Failed()) {
        entry.unreadable = "the variable cannot be read: " + Why(error);
        return entry;
    }
    if (Common::Error error = boot.GetLoadOptions(options); error.Failed() || !options) {
        entry.unreadable = "the load option cannot be decoded: " + Why(error);
        return entry;
    }
    std::u16string text;
    if (options->GetDescription(text).Succeeded()) entry.description = Uefi::NarrowToLowBytes(text);
    if (options->GetPath(text).Succeeded()) entry.filePath = Uefi::NarrowToLowBytes(text);
    std::uint32_t diskType = 0;
    HardDriveNode node;
    if (options->GetDiskType(diskType).Succeeded() && options->GetPartitionNumber(node.partitionNumber).Succeeded() &&
        options->GetPartitionStart(node.start).Succeeded() && options->GetPartitionSize(node.size).Succeeded()) {
        Uefi::Guid guid;
        if (diskType == Uefi::DiskType::kGpt && options->GetPartitionGUID(guid).Succeeded()) {
            node.gpt = true;
            node.partitionGuid = LowerText(Uefi::FormatPartitionGuid(guid));
            entry.hardDrive = node;
        } else if (diskType == Uefi::DiskType::kMbr && options->GetNtSignature(node.diskSignature).Succeeded()) {
            entry.hardDrive = node;
        }
    }
    entry.bcdObject = FindBcdObject(OptionalData(raw));
    return entry;
}

void ProbeFirmware(Uefi::VariableStore& store, Firmware& firmware) {
    if (!store.BootVariablesAllowed()) {
        firmware.unavailable = "this system gives no access to them (no UEFI, or no privilege)";
        return;
    }
    std::shared_ptr<Uefi::BootEntriesEnumerator> enumerator;
    if (Common::Error error = Uefi::GetBootEntriesEnumerator(store, enumerator); error.Failed()) {
        firmware.unavailable = Why(error);
        return;
    }
    for (const Uefi::BootEntryPtr& entry : *enumerator) {
        firmware.variables.push_back(entry->GetNumber());
        firmware.entries.push_back(ProbeEntry(*entry));
    }
    std::shared_ptr<Uefi::BootOrder> order;
    if (Common::Error error = Uefi::GetBootOrder(store, order); error.Failed()) {
        firmware.bootOrderUnreadable = Why(error);
        return;
    }
    firmware.bootOrder.emplace();
    for (const Uefi::BootEntryPtr& entry : *order) firmware.bootOrder->push_back(entry->GetNumber());
}

// Boot files and BCD stores live on the file systems that firmware and the boot manager read.
bool HoldsBootFiles(Value fsType) {
    using Disk::FsType;
    for (FsType type : {FsType::kNtfs, FsType::kFat16, FsType::kFat32, FsType::kExfat})
        if (fsType == static_cast<Value>(type)) return true;
    return false;
}

std::vector<std::uint8_t> ReadSector(std::uint64_t sector) {
    std::vector<std::uint8_t> data;
    if (Common::Error error = Instance().ReadSectors(sector, 1, data); error.Failed()) return {};
    return data;
}

void ProbeDisk(MachineDisk& disk, std::vector<Value>& volumeHandles) {
    disk.number = static_cast<std::uint32_t>(Get(Prop::kDiskNumber));
    Value scheme = Get(Prop::kSchemeKind);
    disk.gpt = scheme == SchemeKind::kGpt;
    disk.mbr = scheme == SchemeKind::kMbr;
    disk.guid = LowerText(DisksReport::GetText8(Prop::kGptDiskGuid));
    disk.sectorSize = static_cast<std::uint32_t>(DisksReport::SectorSize());
    disk.biosFirst = Get(Prop::kHasBiosNumber) != 0 && Get(Prop::kBiosNumber) == 0x80;
    disk.sector0 = ReadSector(0);
    if (disk.sector0.size() >= 512) disk.signature = Disk::Le32(disk.sector0, 440);
    DisksReport::ForEachObject([&](const DisksReport::Place& place) {
        Value number = Get(Prop::kPartitionNumber);
        if (place.volumeGroup || number == 0 || Get(Prop::kExtendedTable) != 0) return;
        Partition partition;
        partition.number = static_cast<std::uint32_t>(number);
        partition.start = Get(Prop::kFirstSector);
        partition.size = Get(Prop::kSectorCount);
        partition.guid = LowerText(DisksReport::GetText8(Prop::kObjectGuid));
        partition.active = Get(Prop::kActive) != 0;
        partition.logical = disk.mbr && number > 4;
        partition.bootSector = ReadSector(partition.start);
        disk.partitions.push_back(std::move(partition));
        volumeHandles.push_back(HoldsBootFiles(Get(Prop::kFsType)) ? Get(Prop::kVolumeHandle) : 0);
    });
}

void ProbeDisks(Machine& machine) {
    if (Common::Error error = DisksReport::BeginPass(); error.Failed()) {
        machine.disksUnavailable = Why(error);
        return;
    }
    machine.biosFirmware = Get(Prop::kFirmwareKind) == FirmwareKind::kBios;
    std::vector<std::vector<Value>> handles;
    DisksReport::ForEachDisk([&] {
        machine.disks.emplace_back();
        handles.emplace_back();
        ProbeDisk(machine.disks.back(), handles.back());
    });
    DisksReport::EndPass();
    // Mounted after the walk: a mount may move the selection the walk stands on.
    for (std::size_t d = 0; d < machine.disks.size(); ++d)
        for (std::size_t p = 0; p < machine.disks[d].partitions.size(); ++p) {
            Partition& partition = machine.disks[d].partitions[p];
            if (handles[d][p] == 0) continue;
            Common::Error error = Common::CatchErrors([&] { return DaMountVolume(handles[d][p], partition.volume); });
            if (error.Failed() || !partition.volume) {
                partition.volume.reset();
                partition.unmounted = error.Failed() ? Why(error) : "the disk library gave no volume";
            }
        }
    DisksReport::EndPass();
    DisksReport::ReleaseComputer();
}

}  // namespace

std::optional<std::string> FindBcdObject(std::span<const std::uint8_t> optionalData) {
    std::optional<std::vector<std::string>> strings;
    // The text may start at an odd offset inside a binary header: try both alignments.
    for (std::size_t shift = 0; shift < 2 && shift < optionalData.size(); ++shift) {
        std::span<const std::uint8_t> data = optionalData.subspan(shift);
        strings = Utf16Strings(data.first(data.size() & ~std::size_t{1}));
        for (const std::string& text : strings.value_or(std::vector<std::string>{})) {
            std::size_t at = text.find("BCDOBJECT=");
            if (at != std::string::npos)
                if (std::optional<std::string> guid = ParseGuidText(text.substr(at + 10, 38))) return guid;
        }
    }
    return std::nullopt;
}

Machine ProbeMachine(Uefi::VariableStore& store) {
    Machine machine;
    Common::Error error = Common::CatchErrors([&] { ProbeFirmware(store, machine.firmware); });
    if (error.Failed() && machine.firmware.unavailable.empty()) machine.firmware.unavailable = Why(error);
    error = Common::CatchErrors([&] { ProbeDisks(machine); });
    if (error.Failed()) {
        Common::Log::WriteError(Common::Log::kWarning, "Boot check: the disks cannot be walked whole: ", error);
        if (machine.disks.empty()) machine.disksUnavailable = Why(error);
    }
    return machine;
}

}  // namespace BootCheck
