// The DA-API over the disk library: the selection model, the property answers and the failure texts.
#include "core/da_api/da_api_impl.h"

#include <atomic>
#include <utility>

#include "core/common/log.h"
#include "core/common/strings.h"
#include "core/da_api/da_properties.h"
#include "core/disk/fs_probe.h"
#include "core/disk/layout.h"
#include "core/disk/mbr.h"
#include "core/disk/partition_types.h"
#include "core/disk/volume_mount.h"

namespace DaApi {
namespace {

using Disk::ObjectKind;

// The library's file-system warning bits are the report's (property 323).
static_assert(Disk::kWarnFatCorrupted == FsWarning::kFatCorrupted);
static_assert(Disk::kWarnDifferentFatCopies == FsWarning::kDifferentFatCopies);
static_assert(Disk::kWarnInvalidFatSize == FsWarning::kInvalidFatSize);

// Codes of the DA-API's failures, one per text.
constexpr std::uint32_t kFacility = 0x40300;

[[noreturn]] void Throw(const wchar_t* text, const char* operation,
                        std::source_location where = std::source_location::current()) {
    static constexpr const wchar_t* kTexts[] = {
        Failure::kInvalidProperty, Failure::kNoMachine,  Failure::kNoDisk,     Failure::kNoPartition,
        Failure::kNoStoragePool,   Failure::kReadOnly,   Failure::kCheckError, Failure::kNoContext,
        Failure::kContextNotFilled, Failure::kInternal,  Failure::kNoComputer,
    };
    std::uint32_t code = kFacility + 0x10;
    for (std::uint32_t i = 0; i < std::size(kTexts); ++i)
        if (kTexts[i] == text) code = kFacility + 1 + i;
    throw Common::ErrorException(Common::Error::Make(code, text, {}, where)
                                     .WithField({"operation", Common::ErrorField::Kind::Text, operation}));
}

Value Pointer(const void* text) { return static_cast<Value>(reinterpret_cast<std::uintptr_t>(text)); }
Value Text(const std::string& text) { return text.empty() ? 0 : Pointer(text.c_str()); }
Value Text(const std::u16string& text) { return text.empty() ? 0 : Pointer(text.c_str()); }
Value Text(std::string_view literal) { return literal.empty() ? 0 : Pointer(literal.data()); }

// Reads of a device stop as soon as the report is asked to stop.
class StoppableReader final : public Disk::SectorReader {
public:
    StoppableReader(Disk::BlockDevice& device, const std::atomic<bool>& stopped) : device_(device), stopped_(stopped) {}
    std::uint32_t SectorSize() const override { return device_.SectorSize(); }
    std::uint64_t SectorCount() const override { return device_.SectorCount(); }
    Common::Error Read(std::uint64_t first, std::uint32_t count, std::vector<std::uint8_t>& data) override {
        if (stopped_) return Common::Error::Make(Common::Codes::kCanceled, L"The report was stopped.");
        return device_.Read(first, count, data);
    }

private:
    Disk::BlockDevice& device_;
    const std::atomic<bool>& stopped_;
};

struct ObjectState {
    Disk::DiskObject object;
    std::optional<Disk::FileSystemInfo> fs;
    std::optional<Disk::VolumeFacts> volume;
    std::vector<Disk::Issue> fsIssues;  // from probing and checking
    std::uint32_t checks = 0;
    bool authoritative = false;
    std::uint32_t fsWarnings = 0;
    // Texts handed out by pointer; they live as long as the object.
    std::string typeGuidText;
    std::string uniqueGuidText;
    std::u16string label;
    std::u16string errorText;

    std::vector<Disk::Issue> Issues() const {
        std::vector<Disk::Issue> all = object.issues;
        all.insert(all.end(), fsIssues.begin(), fsIssues.end());
        return all;
    }
};

struct DiskState {
    std::unique_ptr<Disk::BlockDevice> device;
    std::optional<StoppableReader> reader;
    Value handle = 0;
    Value number = 0;
    bool scanned = false;
    Disk::DiskLayout layout;
    std::vector<ObjectState> objects;
    std::vector<Disk::Issue> issues;
    std::string guidText;
};

std::u16string JoinIssues(const std::vector<Disk::Issue>& issues) {
    std::string joined;
    for (const auto& issue : issues) joined += (joined.empty() ? "" : "; ") + issue.detail;
    const std::string bytes = Common::WideToUtf16Le(Common::Utf8ToWide(joined));
    std::u16string wide;
    for (std::size_t i = 0; i + 1 < bytes.size(); i += 2)
        wide.push_back(static_cast<char16_t>(static_cast<std::uint8_t>(bytes[i]) | static_cast<std::uint8_t>(bytes[i + 1]) << 8));
    return wide;
}

Value SchemeKindValue(Disk::Scheme scheme) {
    switch (scheme) {
    case Disk::Scheme::kRaw: return SchemeKind::kRaw;
    case Disk::Scheme::kMbr: return SchemeKind::kMbr;
    case Disk::Scheme::kGpt: return SchemeKind::kGpt;
    default: return SchemeKind::kNone;
    }
}

bool IsFileSystemProperty(PropertyId id) {
    switch (id) {
    case Prop::kBlockSize: case Prop::kReservedSectors: case Prop::kFatCount: case Prop::kBytesPerInode:
    case Prop::kRootEntries: case Prop::kBlockCount: case Prop::kBadBlocks: case Prop::kFreeBlocks:
    case Prop::kBlockDevices: case Prop::kCharDevices: case Prop::kDirectories: case Prop::kFatSize:
    case Prop::kFatBits: case Prop::kFifos: case Prop::kFiles: case Prop::kInodeSize: case Prop::kInodeCount:
    case Prop::kFreeInodes: case Prop::kJournalBlocks: case Prop::kHardLinks: case Prop::kSymLinks:
    case Prop::kUsedRootEntries: case Prop::kSerialNumber: case Prop::kSockets: case Prop::kUsefulInfo:
    case Prop::kUsefulInfoUnit: case Prop::kSerialNumberLength:
        return true;
    default:
        return (id >= 141 && id <= 159) || (id >= 366 && id <= 370);
    }
}

// The report's option flag identifiers and the library's option bits.
std::uint32_t OptionBit(PropertyId id) {
    switch (id) {
    case Prop::kOptFat12: return Disk::kOptFat12;
    case Prop::kOptExt2SparseSuper: return Disk::kOptExt2SparseSuper;
    case Prop::kOptExt2Filetype: return Disk::kOptExt2Filetype;
    case Prop::kOptExt2LargeFile: return Disk::kOptExt2LargeFile;
    case Prop::kOptExt2ExtAttr: return Disk::kOptExt2ExtAttr;
    case Prop::kOptExt2DirPrealloc: return Disk::kOptExt2DirPrealloc;
    case Prop::kOptExt2DirIndex: return Disk::kOptExt2DirIndex;
    case Prop::kOptExt2MetaBg: return Disk::kOptExt2MetaBg;
    case Prop::kOptExt2ResizeInode: return Disk::kOptExt2ResizeInode;
    case Prop::kOptReiserfs35: return Disk::kOptReiserfs35;
    case Prop::kOptXfs4: return Disk::kOptXfs4;
    case Prop::kOptExt4HugeFile: return Disk::kOptExt4HugeFile;
    case Prop::kOptExt4GdtCsum: return Disk::kOptExt4GdtCsum;
    case Prop::kOptExt4DirNlink: return Disk::kOptExt4DirNlink;
    case Prop::kOptExt4Extents: return Disk::kOptExt4Extents;
    case Prop::kOptExt4_64Bit: return Disk::kOptExt4_64Bit;
    case Prop::kOptExt4FlexBg: return Disk::kOptExt4FlexBg;
    case Prop::kOptExt4ExtraIsize: return Disk::kOptExt4ExtraIsize;
    case Prop::kOptExt4MetadataCsum: return Disk::kOptExt4MetadataCsum;
    default: return 0;  // the APFS volume roles: no APFS support here
    }
}

class InterfaceImpl final : public Interface {
public:
    InterfaceImpl(std::unique_ptr<Disk::DiskSource> source, ComputerFacts computer)
        : source_(std::move(source)), computer_(std::move(computer)) {}

    Value DaGetProperty(PropertyId id) override { return Read(id, "DaGetProperty"); }

    Value DaGetProperty1(PropertyId id, Value parameter) override {
        constexpr const char* kOperation = "DaGetProperty1";
        switch (id) {
        case Prop::kTypeByteName: return Text(Disk::PartitionTypeName(static_cast<std::uint8_t>(parameter)));
        case Prop::kTypeByteFsType:
            return static_cast<Value>(Disk::FileSystemOfTypeByte(static_cast<std::uint8_t>(parameter)));
        case Prop::kLabelLength: return Disk::MaxLabelLength(parameter);
        case Prop::kCountsFreeSpace: return Disk::CountsFreeSpace(parameter) ? 1 : 0;
        case Prop::kVolumeFreeBytes: {
            if (parameter < 'A' || parameter > 'Z' || !computer_.freeBytesOfLetter) return 0;
            return computer_.freeBytesOfLetter(static_cast<char>(parameter)).value_or(0);
        }
        case Prop::kDriveLetter: return LetterOf(CurrentObject(kOperation), parameter);
        default: Throw(Failure::kInvalidProperty, kOperation);
        }
    }

    Value DaGetProperty2(PropertyId id, Value parameter) override {
        constexpr const char* kOperation = "DaGetProperty2";
        ObjectState& object = CurrentObject(kOperation);
        if (id == Prop::kDriveLetter) return LetterOf(object, parameter);
        if (id == Prop::kOsPartitionNumber) return OsNumberOf(object, parameter);
        return Read(id, kOperation);
    }

    Value GetFsProperty(PropertyId id) override {
        if (!IsFileSystemProperty(id)) Throw(Failure::kInvalidProperty, "GetFsProperty");
        return Read(id, "GetFsProperty");
    }

    void DaSetProperty(PropertyId id, Value value) override {
        constexpr const char* kOperation = "DaSetProperty";
        switch (id) {
        case Prop::kSelectComputer:
            EnsureEnumerated();
            computerSelected_ = true;
            return;
        case Prop::kReleaseComputer:
            computerSelected_ = false;
            machineWalk_ = false;
            DropDisk();
            return;
        case Prop::kDropDisk:
            machineWalk_ = false;
            DropDisk();
            return;
        case Prop::kDropVolumeGroup: return;
        case Prop::kContextA: case Prop::kContextB: return;
        case Prop::kDriveLetterView: letterView_ = value; return;
        case Prop::kNumbering: numbering_ = value; return;
        case Prop::kSelectDiskNumber: {
            RequireComputer(kOperation);
            machineWalk_ = false;
            for (std::size_t i = 0; i < disks_.size(); ++i)
                if (disks_[i].number == value) return SelectDisk(i);
            Throw(Failure::kNoDisk, kOperation);
        }
        case Prop::kDiskHandle: {
            RequireComputer(kOperation);
            machineWalk_ = false;
            if (value == 0) return DropDisk();
            for (std::size_t i = 0; i < disks_.size(); ++i)
                if (disks_[i].handle == value) return SelectDisk(i);
            Throw(Failure::kNoDisk, kOperation);
        }
        case Prop::kNextDisk: {
            RequireComputer(kOperation);
            machineWalk_ = false;
            const std::size_t next = currentDisk_ ? *currentDisk_ + 1 : 0;
            if (next < disks_.size()) return SelectDisk(next);
            return DropDisk();
        }
        case Prop::kNextObject: {
            RequireComputer(kOperation);
            // From the computer level (no disk current) the walk goes over every disk's objects in turn,
            // as the boot configuration report walks them.
            if (!currentDisk_) {
                machineWalk_ = true;
                return WalkFromDisk(0);
            }
            DiskState& disk = disks_[*currentDisk_];
            const std::size_t next = currentObject_ ? *currentObject_ + 1 : 0;
            currentObject_.reset();
            if (next < disk.objects.size()) currentObject_ = next;
            else if (machineWalk_) WalkFromDisk(*currentDisk_ + 1);
            return;
        }
        case Prop::kObjectHandle: case Prop::kVolumeHandle: {
            RequireComputer(kOperation);
            if (value == 0 && !currentDisk_) return;
            DiskState& disk = CurrentDisk(kOperation);
            currentVolume_.reset();
            if (value == 0) {
                currentObject_.reset();
                return;
            }
            const std::size_t index = static_cast<std::size_t>(value & 0xFFFFFFFF) - 1;
            if ((value & ~Value{0xFFFFFFFF}) != disk.handle || index >= disk.objects.size())
                Throw(Failure::kNoPartition, kOperation);
            currentObject_ = index;
            if (id == Prop::kVolumeHandle) currentVolume_ = index;
            return;
        }
        case Prop::kNextVolumeObject:
            // A volume here is a partition's own file system: it holds no further objects.
            CurrentDisk(kOperation);
            if (!currentVolume_) Throw(Failure::kNoContext, kOperation);
            currentObject_.reset();
            return;
        case Prop::kRequestCheck: return Check(CurrentObject(kOperation));
        case Prop::kActive: case Prop::kHidden: case Prop::kVolumeLabel: case Prop::kTypeByte:
            CurrentObject(kOperation);
            Throw(Failure::kReadOnly, kOperation);
        default: Throw(Failure::kInvalidProperty, kOperation);
        }
    }

    Common::Error DaGetComputerError() override {
        if (!computerSelected_) Throw(Failure::kNoComputer, "DaGetComputerError");
        return enumerationError_;
    }

    Common::Error ReadSectors(std::uint64_t first, std::uint32_t count, std::vector<std::uint8_t>& data) override {
        if (!computerSelected_ || !currentDisk_)
            return Common::Error::Make(kFacility + 3, Failure::kNoDisk)
                .WithField({"operation", Common::ErrorField::Kind::Text, "ReadSectors"});
        return disks_[*currentDisk_].reader->Read(first, count, data);
    }

    void Stop() override { stopped_ = true; }

    Common::Error MountVolume(Value volumeHandle, std::unique_ptr<Disk::MountedVolume>& volume) override {
        volume.reset();
        const std::size_t disk = static_cast<std::size_t>(volumeHandle >> 32) - 1;
        const std::size_t object = static_cast<std::size_t>(volumeHandle & 0xFFFFFFFF) - 1;
        if (!computerSelected_ || disk >= disks_.size() || object >= disks_[disk].objects.size() ||
            !Mountable(disks_[disk].objects[object]))
            return Common::Error::Make(kFacility + 4, Failure::kNoPartition)
                .WithField({"operation", Common::ErrorField::Kind::Text, "MountVolume"});
        const ObjectState& state = disks_[disk].objects[object];
        Disk::VolumeToMount request;
        request.disk = &*disks_[disk].reader;
        request.firstSector = state.object.first;
        request.sectorCount = state.object.count;
        request.type = state.fs ? state.fs->type : Disk::FsType::kNone;
        request.system = state.volume;
        return Disk::MountVolume(request, volume);
    }

private:
    // A partition's volume can be asked for when it carries a file system or the operating system mounts
    // it; whether it then mounts is MountVolume's answer ("Mount error" in the boot report when not).
    static bool Mountable(const ObjectState& state) {
        return state.object.kind == ObjectKind::kPartition &&
               (state.fs || (state.volume && Disk::SystemMountPath(*state.volume)));
    }

    // Makes the first object of the first disk from `index` on that has any current; past the last disk,
    // the last stays current with no object, so that property 84 reads 0.
    void WalkFromDisk(std::size_t index) {
        for (; index < disks_.size(); ++index) {
            SelectDisk(index);
            if (!disks_[index].objects.empty()) {
                currentObject_ = 0;
                return;
            }
        }
    }

    void EnsureEnumerated() {
        if (enumerated_) return;
        enumerated_ = true;
        if (!source_) return;
        std::vector<std::unique_ptr<Disk::BlockDevice>> devices;
        enumerationError_ = Common::CatchErrors([&] { devices = source_->Enumerate(); });
        if (enumerationError_.Failed())
            Common::Log::WriteError(Common::Log::kError, "The disks cannot be listed", enumerationError_);
        for (auto& device : devices) {
            DiskState& disk = disks_.emplace_back();
            const std::size_t index = disks_.size() - 1;
            disk.handle = Value{index + 1} << 32;
            disk.number = device->Facts().osDiskNumber.value_or(static_cast<std::uint32_t>(index));
            disk.device = std::move(device);
            disk.reader.emplace(*disk.device, stopped_);
        }
    }

    void RequireComputer(const char* operation) const {
        if (!computerSelected_) Throw(Failure::kNoMachine, operation);
    }

    DiskState& CurrentDisk(const char* operation) {
        RequireComputer(operation);
        if (!currentDisk_) Throw(Failure::kNoDisk, operation);
        return disks_[*currentDisk_];
    }

    ObjectState& CurrentObject(const char* operation) {
        DiskState& disk = CurrentDisk(operation);
        if (!currentObject_) Throw(Failure::kNoPartition, operation);
        return disk.objects[*currentObject_];
    }

    void DropDisk() {
        currentDisk_.reset();
        currentObject_.reset();
        currentVolume_.reset();
    }

    void SelectDisk(std::size_t index) {
        DropDisk();
        currentDisk_ = index;
        Scan(disks_[index]);
    }

    // Reads the disk's partition scheme and probes its partitions the first time it is selected.
    void Scan(DiskState& disk) {
        if (disk.scanned) return;
        disk.scanned = true;
        const Common::Error error = Common::CatchErrors([&] { ScanDisk(disk); });
        if (error.Failed()) {
            Common::Log::WriteError(Common::Log::kError, "Disk " + disk.device->Facts().deviceName + " cannot be read",
                                    error);
            disk.issues.push_back({Disk::Problem::kDiskReadFailed, Common::WideToUtf8(error.Message())});
        }
    }

    // A disk that cannot be read still shows the partitions the operating system knows, so that the report
    // lists them (each with " - No I/O disk" in the sector pass).
    void ScanDisk(DiskState& disk) {
        const std::vector<Disk::VolumeFacts> volumes = disk.device->Volumes();
        const std::uint32_t sectorSize = disk.device->SectorSize();
        const bool readable = disk.device->Readable();
        disk.layout = readable ? Disk::ReadLayout(*disk.reader)
                               : Disk::LayoutFromVolumes(volumes, sectorSize, disk.device->SectorCount());
        disk.issues = disk.layout.issues;
        if (disk.layout.diskGuid) disk.guidText = disk.layout.diskGuid->ToString();
        for (const Disk::DiskObject& object : disk.layout.objects) {
            ObjectState& state = disk.objects.emplace_back();
            state.object = object;
            if (object.typeGuid) state.typeGuidText = object.typeGuid->ToString();
            if (object.uniqueGuid) state.uniqueGuidText = object.uniqueGuid->ToString();
            state.errorText = JoinIssues(state.Issues());
            if (object.kind != ObjectKind::kPartition) continue;
            for (const auto& volume : volumes)
                if (volume.offsetBytes == object.first * sectorSize && (volume.osPartitionNumber || object.number == 0))
                    state.volume = volume;
            if (readable) Probe(disk, state);
            else if (state.volume && state.volume->label) state.label = *state.volume->label;
        }
    }

    void Probe(DiskState& disk, ObjectState& state) {
        Disk::VolumeReader volume(*disk.reader, state.object.first, state.object.count);
        const Disk::ProbeResult result = Disk::ProbeFileSystem(volume);
        if (result.outcome == Disk::ProbeOutcome::kFound) {
            state.fs = result.info;
            state.label = result.info.label;
        } else if (result.outcome == Disk::ProbeOutcome::kFailed) {
            state.fsIssues.push_back({Disk::Problem::kFileSystemDamaged, "The file system is damaged: " + result.failure + "."});
        }
        if (state.label.empty() && state.volume && state.volume->label) state.label = *state.volume->label;
        state.errorText = JoinIssues(state.Issues());
    }

    void Check(ObjectState& state) {
        if (!state.fs) return;
        DiskState& disk = disks_[*currentDisk_];
        Disk::VolumeReader volume(*disk.reader, state.object.first, state.object.count);
        Disk::CheckResult result;
        if (const auto error = Disk::CheckFileSystem(volume, *state.fs, result); error.Failed()) {
            Common::Log::WriteError(Common::Log::kWarning, "A file-system check could not run", error);
            Throw(Failure::kCheckError, "DaSetProperty");
        }
        ++state.checks;
        state.authoritative = result.authoritative;
        state.fsWarnings = result.warnings;
        // A repeated check replaces what the previous one found.
        std::erase_if(state.fsIssues, [](const Disk::Issue& issue) {
            return issue.problem == Disk::Problem::kFileSystemDamaged ||
                   issue.problem == Disk::Problem::kFileSystemLargerThanPartition;
        });
        state.fsIssues.insert(state.fsIssues.end(), result.issues.begin(), result.issues.end());
        state.errorText = JoinIssues(state.Issues());
    }

    Value LetterOf(const ObjectState& object, Value view) const {
        if (view != 0 || !object.volume || object.volume->driveLetter == 0) return 0;
        return static_cast<Value>(object.volume->driveLetter);
    }

    Value OsNumberOf(const ObjectState& object, Value numbering) const {
        if (numbering != 2) return object.object.number;
        if (!object.volume || !object.volume->osPartitionNumber) return 65535;
        return *object.volume->osPartitionNumber;
    }

    Value Read(PropertyId id, const char* operation) {
        switch (id) {
        // Computer level.
        case Prop::kComputerName: RequireComputer(operation); return Text(computer_.name);
        case Prop::kComputerError:
            RequireComputer(operation);
            return enumerationError_.Failed() ? static_cast<Value>(Disk::Problem::kEnumerationFailed) : 0;
        case Prop::kOsKind: RequireComputer(operation); return computer_.osKind;
        case Prop::kFirmwareKind: RequireComputer(operation); return computer_.firmwareKind;
        case Prop::kPrimaryGroupGuid: case Prop::kPrimaryGroupName: RequireComputer(operation); return 0;
        case Prop::kDiskCount: RequireComputer(operation); return disks_.size();
        case Prop::kUsedDriveLetters: RequireComputer(operation); return computer_.usedDriveLetters;
        case Prop::kDiskHandle:
            RequireComputer(operation);
            return currentDisk_ ? disks_[*currentDisk_].handle : 0;
        case Prop::kObjectHandle: {
            const DiskState& disk = CurrentDisk(operation);
            return currentObject_ ? disk.handle | (*currentObject_ + 1) : 0;
        }
        case Prop::kSchemeState: {
            // The disk's scheme state, or the container code of the current object (none here).
            const DiskState& disk = CurrentDisk(operation);
            if (currentObject_) return 0;
            switch (disk.layout.state) {
            case Disk::SchemeState::kReadError: return SchemeState::kReadError;
            case Disk::SchemeState::kCorrupted: return SchemeState::kCorrupted;
            default: return SchemeState::kOk;
            }
        }
        default: break;
        }
        if (IsDiskProperty(id)) return ReadDisk(id, CurrentDisk(operation));
        if (IsFileSystemProperty(id)) return ReadFileSystem(id, CurrentObject(operation), CurrentDisk(operation));
        if (IsObjectProperty(id)) return ReadObject(id, CurrentObject(operation), CurrentDisk(operation), operation);
        Throw(Failure::kInvalidProperty, operation);
    }

    static bool IsDiskProperty(PropertyId id) {
        switch (id) {
        case Prop::kGptAlsoMbr: case Prop::kBiosNumber: case Prop::kDiskNumber: case Prop::kStorageSpace:
        case Prop::kDiskError: case Prop::kInVolumeGroup: case Prop::kController: case Prop::kDeviceName:
        case Prop::kGptDiskGuid: case Prop::kGroupName: case Prop::kGroupId: case Prop::kHasBiosNumber:
        case Prop::kHwSerial: case Prop::kInterface: case Prop::kScsiHost: case Prop::kScsiBus: case Prop::kScsiTarget:
        case Prop::kLogicalSectorOffset: case Prop::kModel: case Prop::kPhysicalSectorSize: case Prop::kSchemeKind:
        case Prop::kLastSector: case Prop::kSystemName: case Prop::kIsVolumeGroup: case Prop::kCylinders:
        case Prop::kHeads: case Prop::kSectorsPerTrack: case Prop::kLogicalSectorSize: case Prop::kNoIo:
        case Prop::kCompositeGuid: case Prop::kBiosFixedDiskTable: case Prop::kBiosExtensionsVersion:
        case Prop::kBiosExtensionsSupport: case Prop::kBiosDriveParameters:
            return true;
        default: return false;
        }
    }

    static bool IsObjectProperty(PropertyId id) {
        switch (id) {
        case Prop::kActive: case Prop::kSkip: case Prop::kCheckCount: case Prop::kPartitionNumber:
        case Prop::kGptTypeGuid: case Prop::kHidden: case Prop::kVolumeHandle: case Prop::kVolumeLabel:
        case Prop::kDriveLetter: case Prop::kObjectError: case Prop::kTypeByte: case Prop::kGptMetadataKind:
        case Prop::kFsType: case Prop::kExtendedTable: case Prop::kSectorCount: case Prop::kCheckAuthoritative:
        case Prop::kContainerKind: case Prop::kSchemeTypeByte: case Prop::kSchemeState: case Prop::kFsSectors:
        case Prop::kWarnings: case Prop::kIsMbr: case Prop::kHasFileSystem: case Prop::kIsMetadata:
        case Prop::kIsUnallocated: case Prop::kEncryption: case Prop::kObjectGuid: case Prop::kOsPartitionNumber:
        case Prop::kErrorText: case Prop::kStructureErrors: case Prop::kVolumeLayout: case Prop::kFirstSector:
        case Prop::kTypeName: case Prop::kMountPoint: case Prop::kFsDriverName:
            return true;
        default: return false;
        }
    }

    Value ReadDisk(PropertyId id, const DiskState& disk) const {
        const Disk::DeviceFacts& facts = disk.device->Facts();
        const std::uint64_t sectors = disk.device->SectorCount();
        // Images and devices without a reported geometry get the usual translation of 255 heads and 63
        // sectors per track.
        const Disk::Geometry geometry =
            facts.geometry.value_or(Disk::Geometry{sectors / (255 * 63), 255, 63});
        switch (id) {
        case Prop::kGptAlsoMbr: return disk.layout.scheme == Disk::Scheme::kGpt && disk.layout.gptAlsoMbr;
        case Prop::kDiskNumber: return disk.number;
        case Prop::kDiskError: return disk.issues.empty() ? 0 : static_cast<Value>(disk.issues.front().problem);
        case Prop::kController: return Text(facts.controller);
        case Prop::kDeviceName: return Text(facts.deviceName);
        case Prop::kGptDiskGuid: return Text(disk.guidText);
        case Prop::kHwSerial: return Text(facts.serial);
        case Prop::kInterface: return facts.interfaceType;
        case Prop::kScsiHost: return facts.scsi ? facts.scsi->host : 0;
        case Prop::kScsiBus: return facts.scsi ? facts.scsi->bus : 0;
        case Prop::kScsiTarget: return facts.scsi ? facts.scsi->target : 0;
        case Prop::kLogicalSectorOffset:
            return disk.device->SectorSize() ? facts.alignmentOffsetBytes / disk.device->SectorSize() : 0;
        case Prop::kModel: return Text(facts.model);
        case Prop::kPhysicalSectorSize:
            return facts.physicalSectorSize ? facts.physicalSectorSize : disk.device->SectorSize();
        case Prop::kSchemeKind: return SchemeKindValue(disk.layout.scheme);
        // All ones for an empty disk, so that the sector count 306 + 1 wraps to 0.
        case Prop::kLastSector: return sectors - 1;
        case Prop::kSystemName: return Text(facts.systemName);
        case Prop::kCylinders: return sectors ? geometry.cylinders : 0;
        case Prop::kHeads: return sectors ? geometry.heads : 0;
        case Prop::kSectorsPerTrack: return sectors ? geometry.sectorsPerTrack : 0;
        case Prop::kLogicalSectorSize: return disk.device->SectorSize();
        case Prop::kNoIo: return disk.device->Readable() ? 0 : 1;
        default: return 0;  // BIOS numbers and parameters, volume groups, storage spaces: none here
        }
    }

    Value ReadObject(PropertyId id, ObjectState& state, const DiskState& disk, const char* operation) {
        const Disk::DiskObject& object = state.object;
        const bool gpt = disk.layout.scheme == Disk::Scheme::kGpt;
        switch (id) {
        case Prop::kActive: return object.active;
        case Prop::kCheckCount: return state.checks;
        case Prop::kPartitionNumber: return object.kind == ObjectKind::kPartition ? object.number : 0;
        case Prop::kGptTypeGuid: return Text(state.typeGuidText);
        case Prop::kHidden: return object.hidden;
        case Prop::kVolumeHandle: return Mountable(state) ? disk.handle | (*currentObject_ + 1) : 0;
        // Every object here is one the walks visit: a partition that cannot be read still has its rows in
        // the disk report and its "Mount error" in the boot report.
        case Prop::kSkip: return 0;
        case Prop::kVolumeLabel: return Text(state.label);
        case Prop::kDriveLetter: return LetterOf(state, letterView_);
        case Prop::kObjectError: {
            const auto issues = state.Issues();
            return issues.empty() ? 0 : static_cast<Value>(issues.front().problem);
        }
        case Prop::kTypeByte: return object.typeByte;
        case Prop::kGptMetadataKind: return static_cast<Value>(object.metadata);
        case Prop::kFsType: return state.fs ? static_cast<Value>(state.fs->type) : 0;
        case Prop::kExtendedTable: return object.kind == ObjectKind::kExtendedTable;
        case Prop::kSectorCount: return object.count;
        case Prop::kCheckAuthoritative: return state.checks && state.authoritative;
        case Prop::kSchemeTypeByte: return gpt ? Disk::kGptProtectiveType : object.typeByte;
        case Prop::kFsSectors: return state.fs ? state.fs->sizeBytes / disk.device->SectorSize() : 0;
        case Prop::kWarnings: return state.fsWarnings;
        case Prop::kIsMbr: return object.kind == ObjectKind::kMbr;
        case Prop::kHasFileSystem: return state.fs.has_value();
        case Prop::kIsMetadata:
            return object.kind == ObjectKind::kMetadata || object.kind == ObjectKind::kExtendedTable;
        case Prop::kIsUnallocated: return object.kind == ObjectKind::kUnallocated;
        case Prop::kEncryption: return state.fs && state.fs->encrypted ? 3 : 0;
        case Prop::kObjectGuid: return Text(state.uniqueGuidText);
        case Prop::kOsPartitionNumber:
            if (!numbering_) Throw(Failure::kContextNotFilled, operation);
            return object.kind == ObjectKind::kPartition ? OsNumberOf(state, *numbering_) : 65535;
        case Prop::kErrorText: return Text(state.errorText);
        case Prop::kStructureErrors: return StructureErrors(object);
        case Prop::kFirstSector: return object.first;
        case Prop::kTypeName: return TypeName(object);
        case Prop::kMountPoint: return state.volume ? Text(state.volume->mountPoint) : 0;
        default: return 0;  // skip mark, containers, volume layouts, driver names: none here
        }
    }

    static Value StructureErrors(const Disk::DiskObject& object) {
        Value bits = 0;
        if (object.structureErrors & Disk::kStructureOverlapping) bits |= StructureError::kOverlapping;
        if (object.structureErrors & Disk::kStructureReadError) bits |= StructureError::kReadError;
        if (object.structureErrors & Disk::kStructureNoSignature) bits |= StructureError::kNoTableSignature;
        return bits;
    }

    static Value TypeName(const Disk::DiskObject& object) {
        if (object.typeGuid) {
            const auto type = Disk::LookUpGptType(*object.typeGuid);
            return type ? Text(type->name) : 0;
        }
        // Type 0 marks an unused entry; a partition holding it is a whole-disk volume without a table.
        if (object.typeByte == 0) return 0;
        if (object.kind != ObjectKind::kPartition && object.kind != ObjectKind::kExtendedTable) return 0;
        return Text(Disk::PartitionTypeName(object.typeByte));
    }

    Value ReadFileSystem(PropertyId id, const ObjectState& state, const DiskState& disk) const {
        if (!state.fs) return 0;
        const Disk::FileSystemInfo& fs = *state.fs;
        const std::uint64_t sectorSize = disk.device->SectorSize();
        std::optional<std::uint64_t> freeBlocks = fs.freeBlocks;
        if (!freeBlocks && state.volume && state.volume->freeBytes && fs.blockBytes)
            freeBlocks = *state.volume->freeBytes / fs.blockBytes;
        switch (id) {
        case Prop::kBlockSize: return fs.blockBytes / sectorSize;
        case Prop::kReservedSectors: return fs.reservedBytes / sectorSize;
        case Prop::kFatCount: return fs.fatCount;
        case Prop::kBytesPerInode: return fs.bytesPerInode;
        case Prop::kRootEntries: return fs.rootEntries;
        case Prop::kBlockCount: return fs.blockCount;
        case Prop::kBadBlocks: return fs.badBlocks;
        case Prop::kFreeBlocks: return freeBlocks.value_or(0);
        case Prop::kFatSize: return fs.fatBytes / sectorSize;
        case Prop::kFatBits: return fs.fatBits;
        case Prop::kInodeSize: return fs.inodeSize;
        case Prop::kInodeCount: return fs.inodeCount;
        case Prop::kFreeInodes: return fs.freeInodes;
        case Prop::kJournalBlocks: return fs.journalBlocks;
        case Prop::kUsedRootEntries: return fs.usedRootEntries;
        case Prop::kSerialNumber: return fs.serial.empty() ? 0 : Pointer(fs.serial.data());
        case Prop::kSerialNumberLength: return fs.serial.size();
        case Prop::kUsefulInfo: return freeBlocks && *freeBlocks <= fs.blockCount ? fs.blockCount - *freeBlocks : 0;
        case Prop::kUsefulInfoUnit: return fs.blockBytes;
        default: {
            const std::uint32_t bit = OptionBit(id);
            return bit && (fs.options & bit) ? 1 : 0;  // counts of file kinds are not gathered here
        }
        }
    }

    std::unique_ptr<Disk::DiskSource> source_;
    ComputerFacts computer_;
    std::atomic<bool> stopped_{false};
    bool enumerated_ = false;
    Common::Error enumerationError_;
    std::vector<DiskState> disks_;
    bool computerSelected_ = false;
    std::optional<std::size_t> currentDisk_;
    std::optional<std::size_t> currentObject_;
    std::optional<std::size_t> currentVolume_;
    bool machineWalk_ = false;  // object steps continue on the next disk (a walk begun with no disk current)
    Value letterView_ = 0;
    std::optional<Value> numbering_;
};

}  // namespace

std::unique_ptr<Interface> MakeMachineInterface() { return MakeMachineInterface(Disk::MakeDefaultSource()); }

std::unique_ptr<Interface> MakeMachineInterface(std::unique_ptr<Disk::DiskSource> source) {
    return MakeMachineInterface(std::move(source), QueryComputerFacts());
}

std::unique_ptr<Interface> MakeMachineInterface(std::unique_ptr<Disk::DiskSource> source, ComputerFacts computer) {
    return std::make_unique<InterfaceImpl>(std::move(source), std::move(computer));
}

const char* MessageText(Value id) {
    const std::string_view text = Disk::ProblemText(id);
    return text.empty() ? nullptr : text.data();
}

}  // namespace DaApi
