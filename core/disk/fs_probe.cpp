// The probe table, the volume reader the probes ask for bytes, and the check dispatcher.
#include "core/disk/fs_probe.h"

#include <algorithm>

#include "core/disk/disk_errors.h"

namespace Disk {

VolumeReader::VolumeReader(SectorReader& disk, std::uint64_t firstSector, std::uint64_t sectorCount)
    : disk_(disk), firstSector_(firstSector), sizeBytes_(0) {
    const std::uint64_t total = disk.SectorCount();
    const std::uint64_t inside = firstSector < total ? std::min(sectorCount, total - firstSector) : 0;
    sizeBytes_ = inside * disk.SectorSize();
}

Common::Error VolumeReader::Read(std::uint64_t offset, std::size_t length, std::vector<std::uint8_t>& data) {
    const std::uint32_t sectorSize = disk_.SectorSize();
    if (offset > sizeBytes_ || length > sizeBytes_ - offset)
        return OutsideDevice(firstSector_ + offset / sectorSize, (length + sectorSize - 1) / sectorSize,
                             sizeBytes_ / sectorSize);
    const std::uint64_t first = offset / sectorSize;
    const std::uint64_t end = (offset + length + sectorSize - 1) / sectorSize;
    std::vector<std::uint8_t> sectors;
    if (auto error = disk_.Read(firstSector_ + first, static_cast<std::uint32_t>(end - first), sectors); error.Failed())
        return error;
    const auto begin = sectors.begin() + static_cast<std::ptrdiff_t>(offset - first * sectorSize);
    data.assign(begin, begin + static_cast<std::ptrdiff_t>(length));
    return {};
}

std::span<const FsDescriptor> FileSystemDescriptors() {
    static constexpr FsDescriptor kDescriptors[] = {
        {"exfat", FsType::kExfat, ProbeExfat},
        {"ntfs", FsType::kNtfs, ProbeNtfs},
        {"BitLocker", FsType::kBitLocker, ProbeBitLocker},
        {"ReFS", FsType::kRefs, ProbeRefs},
        {"vfat", FsType::kFat32, ProbeFat},
        {"ext", FsType::kExt4, ProbeExt},
        {"xfs", FsType::kXfs, ProbeXfs},
        {"swap", FsType::kLinuxSwap, ProbeLinuxSwap},
        {"LVM2_member", FsType::kLvmPv, ProbeLvmPv},
        {"hfsplus", FsType::kHfsPlus, ProbeHfsPlus},
        {"jfs", FsType::kJfs, ProbeJfs},
        {"reiser4", FsType::kReiser4, ProbeReiser4},
        {"reiserfs", FsType::kReiser, ProbeReiser},
        {"gfs2", FsType::kGfs2, ProbeGfs2},
        {"hpfs", FsType::kHpfs, ProbeHpfs},
        {"oracle", FsType::kOracle, ProbeOracle},
    };
    return kDescriptors;
}

ProbeResult ProbeFileSystem(VolumeReader& volume) {
    std::optional<ProbeResult> failed;
    for (const auto& descriptor : FileSystemDescriptors()) {
        ProbeResult result = descriptor.probe(volume);
        if (result.outcome == ProbeOutcome::kFound) return result;
        if (result.outcome == ProbeOutcome::kFailed && !failed) {
            result.failure = std::string(descriptor.name) + ": " + result.failure;
            failed = std::move(result);
        }
    }
    return failed ? *failed : ProbeResult::NotThisFormat();
}

Common::Error CheckFileSystem(VolumeReader& volume, const FileSystemInfo& info, CheckResult& result) {
    result = {};
    if (info.sizeBytes > volume.Size())
        result.issues.push_back({Problem::kFileSystemLargerThanPartition,
                                 "The file system claims " + std::to_string(info.sizeBytes) + " bytes; its partition holds " +
                                     std::to_string(volume.Size()) + "."});
    if (info.type == FsType::kFat16 || info.type == FsType::kFat32) return CheckFat(volume, info, result);
    return {};
}

std::u16string LabelFromBytes(std::span<const std::uint8_t> bytes) {
    std::u16string label(bytes.begin(), bytes.end());
    while (!label.empty() && (label.back() == u' ' || label.back() == 0)) label.pop_back();
    return label;
}

std::u16string LabelFromUtf8(std::span<const std::uint8_t> bytes) {
    bytes = bytes.first(static_cast<std::size_t>(std::find(bytes.begin(), bytes.end(), 0) - bytes.begin()));
    std::u16string label;
    for (std::size_t i = 0; i < bytes.size();) {
        const std::uint8_t lead = bytes[i];
        const std::size_t length = lead < 0xC2 ? 1 : lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : lead < 0xF5 ? 4 : 1;
        char32_t point = length == 2 ? lead & 0x1F : length == 3 ? lead & 0x0F : length == 4 ? lead & 0x07 : lead;
        bool sound = length > 1 && i + length <= bytes.size();
        for (std::size_t k = 1; sound && k < length; ++k) {
            sound = (bytes[i + k] & 0xC0) == 0x80;
            point = point << 6 | (bytes[i + k] & 0x3F);
        }
        // Overlong and surrogate forms are not sound UTF-8.
        sound = sound && !(length == 3 && (point < 0x800 || (point >= 0xD800 && point <= 0xDFFF))) &&
                !(length == 4 && (point < 0x10000 || point > 0x10FFFF));
        if (!sound) {
            label.push_back(lead);
            ++i;
            continue;
        }
        if (point >= 0x10000) {
            label.push_back(static_cast<char16_t>(0xD800 + ((point - 0x10000) >> 10)));
            label.push_back(static_cast<char16_t>(0xDC00 + ((point - 0x10000) & 0x3FF)));
        } else {
            label.push_back(static_cast<char16_t>(point));
        }
        i += length;
    }
    while (!label.empty() && label.back() == u' ') label.pop_back();
    return label;
}

std::u16string LabelFromUtf16Le(std::span<const std::uint8_t> bytes) {
    std::u16string label;
    for (std::size_t i = 0; i + 1 < bytes.size(); i += 2) {
        const char16_t unit = static_cast<char16_t>(bytes[i] | bytes[i + 1] << 8);
        if (unit == 0) break;
        label.push_back(unit);
    }
    return label;
}

}  // namespace Disk
