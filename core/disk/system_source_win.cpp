// The machine's disks on Windows: \\.\PhysicalDriveN with the storage IOCTLs for the facts, and the volume
// manager's extents, paths, labels and free space for the partitions that carry mounted volumes.
#include "core/common/windows_api.h"

#include <ntddscsi.h>
#include <winioctl.h>

#include <algorithm>
#include <cwctype>
#include <string>
#include <vector>

#include "core/common/log.h"
#include "core/common/strings.h"
#include "core/common/windows_handles.h"
#include "core/disk/block_device.h"
#include "core/disk/file_block_device.h"

namespace Disk {
namespace {

// Disks are numbered from 0; gaps happen (a removed disk), so every number up to this is tried.
constexpr unsigned kMaxDiskNumber = 64;

using Common::FindVolumeHandle;
using Common::KernelHandle;

// A handle for queries only (no read access needed), so that facts come even when reads are refused.
HANDLE OpenForQueries(const std::wstring& path) {
    return CreateFileW(path.c_str(), 0, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING, 0, nullptr);
}

template <typename Out>
bool Ioctl(HANDLE handle, DWORD code, const void* in, DWORD inSize, Out& out) {
    DWORD returned = 0;
    return DeviceIoControl(handle, code, const_cast<void*>(in), inSize, &out, sizeof out, &returned, nullptr) != 0;
}

std::string Trimmed(const char* text) {
    std::string value(text);
    const auto first = value.find_first_not_of(' ');
    const auto last = value.find_last_not_of(' ');
    return first == std::string::npos ? std::string() : value.substr(first, last - first + 1);
}

// Vendor, product and serial strings sit at offsets inside the descriptor buffer.
void AddDeviceDescriptor(HANDLE handle, DeviceFacts& facts) {
    STORAGE_PROPERTY_QUERY query{};
    query.PropertyId = StorageDeviceProperty;
    query.QueryType = PropertyStandardQuery;
    alignas(8) char buffer[2048] = {};
    DWORD returned = 0;
    if (!DeviceIoControl(handle, IOCTL_STORAGE_QUERY_PROPERTY, &query, sizeof query, buffer, sizeof buffer - 1,
                         &returned, nullptr))
        return;
    const auto* descriptor = reinterpret_cast<const STORAGE_DEVICE_DESCRIPTOR*>(buffer);
    auto field = [&](DWORD offset) { return offset && offset < returned ? Trimmed(buffer + offset) : std::string(); };
    const std::string vendor = field(descriptor->VendorIdOffset);
    const std::string product = field(descriptor->ProductIdOffset);
    facts.model = vendor.empty() ? product : product.empty() ? vendor : vendor + " " + product;
    facts.serial = field(descriptor->SerialNumberOffset);
    // STORAGE_BUS_TYPE numbers the buses as the report's interface table does (1 SCSI ... 17 NVMe).
    const auto bus = static_cast<std::uint32_t>(descriptor->BusType);
    facts.interfaceType = bus <= 17 ? bus : 0;
}

void AddAlignment(HANDLE handle, DeviceFacts& facts, std::uint32_t& logicalSectorSize) {
    STORAGE_PROPERTY_QUERY query{};
    query.PropertyId = StorageAccessAlignmentProperty;
    query.QueryType = PropertyStandardQuery;
    STORAGE_ACCESS_ALIGNMENT_DESCRIPTOR alignment{};
    if (!Ioctl(handle, IOCTL_STORAGE_QUERY_PROPERTY, &query, sizeof query, alignment)) return;
    if (alignment.BytesPerLogicalSector) logicalSectorSize = alignment.BytesPerLogicalSector;
    facts.physicalSectorSize = alignment.BytesPerPhysicalSector;
    facts.alignmentOffsetBytes = alignment.BytesOffsetForSectorAlignment;
}

std::optional<std::wstring> EnvironmentVariable(const wchar_t* name) {
    const DWORD size = GetEnvironmentVariableW(name, nullptr, 0);
    if (size == 0) return std::nullopt;
    std::wstring value(size, L'\0');
    const DWORD length = GetEnvironmentVariableW(name, value.data(), size);
    value.resize(length);
    return value;
}

// Partition numbers of the drive layout, by starting offset.
std::vector<VolumeFacts> LayoutPartitions(HANDLE handle) {
    std::vector<VolumeFacts> partitions;
    std::vector<std::uint8_t> buffer(sizeof(DRIVE_LAYOUT_INFORMATION_EX) + 256 * sizeof(PARTITION_INFORMATION_EX));
    DWORD returned = 0;
    if (!DeviceIoControl(handle, IOCTL_DISK_GET_DRIVE_LAYOUT_EX, nullptr, 0, buffer.data(),
                         static_cast<DWORD>(buffer.size()), &returned, nullptr))
        return partitions;
    const auto* layout = reinterpret_cast<const DRIVE_LAYOUT_INFORMATION_EX*>(buffer.data());
    for (DWORD i = 0; i < layout->PartitionCount; ++i) {
        const PARTITION_INFORMATION_EX& entry = layout->PartitionEntry[i];
        if (entry.PartitionNumber == 0 || entry.PartitionLength.QuadPart == 0) continue;
        VolumeFacts volume;
        volume.offsetBytes = static_cast<std::uint64_t>(entry.StartingOffset.QuadPart);
        volume.lengthBytes = static_cast<std::uint64_t>(entry.PartitionLength.QuadPart);
        volume.osPartitionNumber = entry.PartitionNumber;
        partitions.push_back(volume);
    }
    return partitions;
}

// Adds the drive letter, label and free space of every mounted volume that lies on disk `number`.
void AddMountedVolumes(DWORD number, std::vector<VolumeFacts>& partitions) {
    wchar_t name[MAX_PATH] = {};
    FindVolumeHandle find(FindFirstVolumeW(name, MAX_PATH));
    if (!find) return;
    do {
        std::wstring volumeName(name);  // "\\?\Volume{GUID}\"
        std::wstring device = volumeName;
        if (!device.empty() && device.back() == L'\\') device.pop_back();
        KernelHandle volume(OpenForQueries(device));
        if (!volume) continue;
        VOLUME_DISK_EXTENTS extents{};
        if (!Ioctl(volume.Get(), IOCTL_VOLUME_GET_VOLUME_DISK_EXTENTS, nullptr, 0, extents) ||
            extents.NumberOfDiskExtents != 1 || extents.Extents[0].DiskNumber != number)
            continue;
        const auto offset = static_cast<std::uint64_t>(extents.Extents[0].StartingOffset.QuadPart);
        auto partition = std::find_if(partitions.begin(), partitions.end(),
                                      [&](const VolumeFacts& p) { return p.offsetBytes == offset; });
        if (partition == partitions.end()) {
            VolumeFacts whole;
            whole.offsetBytes = offset;
            whole.lengthBytes = static_cast<std::uint64_t>(extents.Extents[0].ExtentLength.QuadPart);
            partition = partitions.insert(partitions.end(), whole);
        }
        partition->volumePath = Common::WideToUtf8(volumeName);
        wchar_t paths[1024] = {};
        DWORD length = 0;
        if (GetVolumePathNamesForVolumeNameW(volumeName.c_str(), paths, 1024, &length)) {
            for (const wchar_t* path = paths; *path; path += wcslen(path) + 1) {
                if (partition->mountPoint.empty()) partition->mountPoint = Common::WideToUtf8(path);
                if (wcslen(path) == 3 && path[1] == L':' && !partition->driveLetter)
                    partition->driveLetter = static_cast<char>(towupper(path[0]));
            }
        }
        wchar_t label[MAX_PATH + 1] = {};
        if (GetVolumeInformationW(volumeName.c_str(), label, MAX_PATH + 1, nullptr, nullptr, nullptr, nullptr, 0))
            partition->label = std::u16string(label, label + wcslen(label));
        ULARGE_INTEGER freeBytes{};
        if (GetDiskFreeSpaceExW(volumeName.c_str(), nullptr, nullptr, &freeBytes)) partition->freeBytes = freeBytes.QuadPart;
    } while (FindNextVolumeW(find.Get(), name, MAX_PATH));
}

std::vector<VolumeFacts> VolumesOf(DWORD number) {
    const std::wstring path = L"\\\\.\\PhysicalDrive" + std::to_wstring(number);
    KernelHandle handle(OpenForQueries(path));
    if (!handle) return {};
    std::vector<VolumeFacts> partitions = LayoutPartitions(handle.Get());
    AddMountedVolumes(number, partitions);
    return partitions;
}

std::unique_ptr<BlockDevice> OpenDisk(unsigned number, HANDLE query) {
    const std::wstring path = L"\\\\.\\PhysicalDrive" + std::to_wstring(number);
    DeviceFacts facts;
    facts.deviceName = Common::WideToUtf8(path);
    facts.systemName = "PhysicalDrive" + std::to_string(number);
    facts.osDiskNumber = number;
    std::uint32_t sectorSize = 512;
    std::uint64_t bytes = 0;
    DISK_GEOMETRY_EX geometry{};
    if (Ioctl(query, IOCTL_DISK_GET_DRIVE_GEOMETRY_EX, nullptr, 0, geometry)) {
        if (geometry.Geometry.BytesPerSector) sectorSize = geometry.Geometry.BytesPerSector;
        bytes = static_cast<std::uint64_t>(geometry.DiskSize.QuadPart);
        if (geometry.Geometry.TracksPerCylinder && geometry.Geometry.SectorsPerTrack)
            facts.geometry = Geometry{static_cast<std::uint64_t>(geometry.Geometry.Cylinders.QuadPart),
                                      geometry.Geometry.TracksPerCylinder, geometry.Geometry.SectorsPerTrack};
    }
    AddDeviceDescriptor(query, facts);
    AddAlignment(query, facts, sectorSize);
    SCSI_ADDRESS scsi{};
    if (Ioctl(query, IOCTL_SCSI_GET_ADDRESS, nullptr, 0, scsi))
        facts.scsi = ScsiAddress{scsi.PortNumber, scsi.PathId, scsi.TargetId, scsi.Lun};

    // A driver may report any sector size; one the library cannot read leaves the disk unread, with the
    // operating system's partitions, rather than misread in 512-byte pieces.
    RawFile file;
    Common::Error error;
    if (!IsSupportedSectorSize(sectorSize))
        error = Common::Error::Make(Common::Codes::kUnexpected,
                                    L"The sector size " + std::to_wstring(sectorSize) + L" is not supported.");
    else
        error = RawFile::Open(path, file);
    if (error.Succeeded() && bytes == 0 && file.Size(bytes).Failed()) bytes = 0;
    if (error.Failed()) Common::Log::WriteError(Common::Log::kWarning, "Disk " + facts.deviceName + " cannot be read", error);
    return std::make_unique<FileBlockDevice>(std::move(file), error, sectorSize, bytes / sectorSize, std::move(facts),
                                             [number] { return VolumesOf(number); });
}

class WindowsSource final : public DiskSource {
public:
    std::vector<std::unique_ptr<BlockDevice>> Enumerate() override {
        std::vector<std::unique_ptr<BlockDevice>> disks;
        for (unsigned number = 0; number < kMaxDiskNumber; ++number) {
            KernelHandle query(OpenForQueries(L"\\\\.\\PhysicalDrive" + std::to_wstring(number)));
            if (!query) continue;
            disks.push_back(OpenDisk(number, query.Get()));
        }
        return disks;
    }
};

}  // namespace

std::unique_ptr<DiskSource> MakeSystemSource() { return std::make_unique<WindowsSource>(); }

std::unique_ptr<DiskSource> MakeDefaultSource() {
    const auto images = EnvironmentVariable(L"SYSTEM_REPORT_DISK_IMAGES");
    auto paths = SplitPathList(std::wstring_view(images ? *images : std::wstring()), L';');
    if (paths.empty()) return MakeSystemSource();
    return MakeImageSource(std::move(paths));
}

}  // namespace Disk
