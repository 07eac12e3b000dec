// The machine's disks on Linux: /sys/block for the list and the facts, /dev/<name> for the sectors,
// /proc/self/mountinfo and statvfs for mounted partitions. Partitions are read through the whole-disk
// device, so no partition nodes are needed (there are none without udev).
#include "core/disk/system_source_posix.h"

#include <fcntl.h>
#include <linux/hdreg.h>
#include <sys/ioctl.h>
#include <sys/statvfs.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <map>
#include <sstream>
#include <system_error>

#include "core/common/log.h"
#include "core/disk/file_block_device.h"

namespace Disk {
namespace {

namespace fs = std::filesystem;

std::string ReadLine(const fs::path& path) {
    std::ifstream in(path);
    std::string line;
    std::getline(in, line);
    const auto end = line.find_last_not_of(" \t\r\n");
    return end == std::string::npos ? std::string() : line.substr(0, end + 1);
}

std::uint64_t ReadNumber(const fs::path& path) {
    const std::string text = ReadLine(path);
    return text.empty() ? 0 : std::strtoull(text.c_str(), nullptr, 10);
}

// Devices that are not disks of their own: memory disks, and the device-mapper and MD devices built over
// partitions that the report already shows.
bool IsListed(const std::string& name) {
    for (const char* prefix : {"ram", "zram", "dm-", "md"})
        if (name.rfind(prefix, 0) == 0) return false;
    return true;
}

// The interface from where the kernel put the device in its tree (`disk` is the disk's folder in sysfs).
std::uint32_t InterfaceOf(const fs::path& disk, const std::optional<ScsiAddress>& scsi) {
    std::error_code error;
    const std::string where = fs::canonical(disk, error).string();
    if (where.find("/virtual/block/loop") != std::string::npos) return 15;  // file-backed virtual
    if (where.find("/usb") != std::string::npos) return 7;
    if (where.find("/nvme") != std::string::npos) return 17;
    if (where.find("/virtio") != std::string::npos) return 14;
    if (where.find("/mmc") != std::string::npos) return ReadLine(disk / "device/type") == "SD" ? 12 : 13;
    if (where.find("/ata") != std::string::npos) return 11;
    if (scsi) return 1;
    return 0;
}

// The device link ends in "host:channel:target:lun" for SCSI-attached disks.
std::optional<ScsiAddress> ScsiAddressOf(const fs::path& disk) {
    std::error_code error;
    const std::string last = fs::read_symlink(disk / "device", error).filename().string();
    ScsiAddress address;
    char tail = 0;
    if (std::sscanf(last.c_str(), "%u:%u:%u:%u%c", &address.host, &address.bus, &address.target, &address.lun, &tail) != 4)
        return std::nullopt;
    return address;
}

std::string SerialOf(const fs::path& disk) {
    const fs::path device = disk / "device";
    if (auto serial = ReadLine(device / "serial"); !serial.empty()) return serial;
    // SCSI VPD page 0x80: a four-byte header, then the unit serial number.
    std::ifstream in(device / "vpd_pg80", std::ios::binary);
    std::string page((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    if (page.size() <= 4) return {};
    std::string serial = page.substr(4);
    serial.erase(std::remove_if(serial.begin(), serial.end(), [](char c) { return c == '\0'; }), serial.end());
    const auto first = serial.find_first_not_of(' ');
    const auto last = serial.find_last_not_of(' ');
    return first == std::string::npos ? std::string() : serial.substr(first, last - first + 1);
}

// Mount points by "major:minor", from the mounts of this process's namespace (octal escapes undone).
std::map<std::string, std::string> MountPoints() {
    std::map<std::string, std::string> mounts;
    std::ifstream in("/proc/self/mountinfo");
    std::string line;
    while (std::getline(in, line)) {
        std::istringstream fields(line);
        std::string id, parent, device, root, point;
        if (!(fields >> id >> parent >> device >> root >> point) || root != "/") continue;
        std::string unescaped;
        for (std::size_t i = 0; i < point.size(); ++i) {
            if (point[i] == '\\' && i + 3 < point.size()) {
                unescaped.push_back(static_cast<char>(std::strtol(point.substr(i + 1, 3).c_str(), nullptr, 8)));
                i += 3;
            } else {
                unescaped.push_back(point[i]);
            }
        }
        mounts.emplace(device, unescaped);
    }
    return mounts;
}

void AddMount(VolumeFacts& volume, const std::map<std::string, std::string>& mounts, const std::string& device) {
    const auto mount = mounts.find(device);
    if (mount == mounts.end()) return;
    volume.mountPoint = mount->second;
    struct statvfs status {};
    if (::statvfs(mount->second.c_str(), &status) == 0)
        volume.freeBytes = std::uint64_t{status.f_bfree} * status.f_frsize;
}

// The kernel's partitions of a disk (sysfs counts their start and size in 512-byte units). The kernel
// knows them without read access to the disk.
std::vector<VolumeFacts> VolumesOf(const fs::path& disk) {
    std::vector<VolumeFacts> volumes;
    const auto mounts = MountPoints();
    std::error_code error;
    for (const auto& entry : fs::directory_iterator(disk, error)) {
        if (!fs::exists(entry.path() / "partition", error)) continue;
        VolumeFacts volume;
        volume.offsetBytes = ReadNumber(entry.path() / "start") * 512;
        volume.lengthBytes = ReadNumber(entry.path() / "size") * 512;
        volume.osPartitionNumber = static_cast<std::uint32_t>(ReadNumber(entry.path() / "partition"));
        AddMount(volume, mounts, ReadLine(entry.path() / "dev"));
        volumes.push_back(std::move(volume));
    }
    // A file system on the whole disk.
    VolumeFacts whole;
    whole.lengthBytes = ReadNumber(disk / "size") * 512;
    AddMount(whole, mounts, ReadLine(disk / "dev"));
    if (!whole.mountPoint.empty()) volumes.push_back(std::move(whole));
    std::sort(volumes.begin(), volumes.end(),
              [](const VolumeFacts& a, const VolumeFacts& b) { return a.offsetBytes < b.offsetBytes; });
    return volumes;
}

std::unique_ptr<BlockDevice> OpenDisk(const fs::path& disk, const fs::path& devices) {
    const std::string name = disk.filename().string();
    const fs::path queue = disk / "queue";
    DeviceFacts facts;
    facts.deviceName = (devices / name).string();
    facts.systemName = name;
    facts.model = ReadLine(disk / "device/model");
    facts.serial = SerialOf(disk);
    facts.scsi = ScsiAddressOf(disk);
    facts.interfaceType = InterfaceOf(disk, facts.scsi);
    facts.physicalSectorSize = static_cast<std::uint32_t>(ReadNumber(queue / "physical_block_size"));
    facts.alignmentOffsetBytes = ReadNumber(disk / "alignment_offset");
    std::uint32_t sectorSize = static_cast<std::uint32_t>(ReadNumber(queue / "logical_block_size"));
    if (sectorSize < 512) sectorSize = 512;

    RawFile file;
    std::uint64_t bytes = ReadNumber(disk / "size") * 512;
    Common::Error error = RawFile::Open(facts.deviceName, file);
    if (error.Succeeded()) {
        std::uint64_t deviceBytes = 0;
        if (file.Size(deviceBytes).Succeeded()) bytes = deviceBytes;
        hd_geometry geometry{};
        if (::ioctl(static_cast<int>(file.Native()), HDIO_GETGEO, &geometry) == 0 && geometry.heads && geometry.sectors)
            facts.geometry = Geometry{bytes / sectorSize / (std::uint64_t{geometry.heads} * geometry.sectors),
                                      geometry.heads, geometry.sectors};
    } else {
        Common::Log::WriteError(Common::Log::kWarning, "Disk " + facts.deviceName + " cannot be opened: ", error);
    }
    return std::make_unique<FileBlockDevice>(std::move(file), error, sectorSize, bytes / sectorSize, std::move(facts),
                                             [disk] { return VolumesOf(disk); });
}

class LinuxSource final : public DiskSource {
public:
    LinuxSource(fs::path sysBlock, fs::path devices) : sysBlock_(std::move(sysBlock)), devices_(std::move(devices)) {}

    std::vector<std::unique_ptr<BlockDevice>> Enumerate() override {
        std::vector<fs::path> found;
        std::error_code error;
        for (const auto& entry : fs::directory_iterator(sysBlock_, error)) {
            if (IsListed(entry.path().filename().string()) && ReadNumber(entry.path() / "size") > 0)
                found.push_back(entry.path());
        }
        if (error) Common::Log::Warning("The block devices cannot be listed: " + error.message());
        std::sort(found.begin(), found.end());
        std::vector<std::unique_ptr<BlockDevice>> disks;
        for (const auto& disk : found) disks.push_back(OpenDisk(disk, devices_));
        return disks;
    }

private:
    fs::path sysBlock_;
    fs::path devices_;
};

}  // namespace

std::unique_ptr<DiskSource> MakeLinuxSource(std::filesystem::path sysBlock, std::filesystem::path devices) {
    return std::make_unique<LinuxSource>(std::move(sysBlock), std::move(devices));
}

std::unique_ptr<DiskSource> MakeSystemSource() { return MakeLinuxSource("/sys/block", "/dev"); }

std::unique_ptr<DiskSource> MakeDefaultSource() {
    const char* images = std::getenv("SYSTEM_REPORT_DISK_IMAGES");
    auto paths = SplitPathList(std::string_view(images ? images : ""), ':');
    if (paths.empty()) return MakeSystemSource();
    return MakeImageSource(std::move(paths));
}

}  // namespace Disk
