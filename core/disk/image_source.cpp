// Image files standing in for disks, with the sector size inferred from their contents.
#include <algorithm>

#include "core/common/log.h"
#include "core/common/strings.h"
#include "core/disk/bytes.h"
#include "core/disk/disk_errors.h"
#include "core/disk/file_block_device.h"
#include "core/disk/fs_probe.h"
#include "core/disk/mbr.h"

namespace Disk {
namespace {

// The image read with a trial sector size, without taking the file over.
class TrialView final : public SectorReader {
public:
    TrialView(RawFile& file, std::uint64_t bytes, std::uint32_t sectorSize)
        : file_(file), sectorSize_(sectorSize), sectorCount_(bytes / sectorSize) {}
    std::uint32_t SectorSize() const override { return sectorSize_; }
    std::uint64_t SectorCount() const override { return sectorCount_; }
    Common::Error Read(std::uint64_t first, std::uint32_t count, std::vector<std::uint8_t>& data) override {
        if (!InsideDevice(first, count, sectorCount_)) return OutsideDevice(first, count, sectorCount_);
        data.resize(std::size_t{count} * sectorSize_);
        return file_.ReadAt(first * sectorSize_, data);
    }

private:
    RawFile& file_;
    std::uint32_t sectorSize_;
    std::uint64_t sectorCount_;
};

// How many of the MBR's entries make sense with sectors of `sectorSize` bytes: the entry fits the image
// and a file system or a signed table starts where it says.
int MbrEntriesThatFit(RawFile& file, std::uint64_t bytes, const Mbr& mbr, std::uint32_t sectorSize) {
    TrialView view(file, bytes, sectorSize);
    int score = 0;
    for (const MbrEntry& entry : mbr.entries) {
        if (entry.Empty() || entry.type == kGptProtectiveType) continue;
        if ((std::uint64_t{entry.firstLba} + entry.sectorCount) > view.SectorCount()) continue;
        std::vector<std::uint8_t> sector;
        if (view.Read(entry.firstLba, 1, sector).Succeeded() && sector[510] == 0x55 && sector[511] == 0xAA) {
            ++score;
            continue;
        }
        VolumeReader volume(view, entry.firstLba, entry.sectorCount);
        if (ProbeFileSystem(volume).outcome == ProbeOutcome::kFound) ++score;
    }
    return score;
}

// A GPT header sits in the second sector, whatever its size. Without one, a 4096-byte sector size is taken
// only when the MBR's entries make more sense with it than with 512.
std::uint32_t InferSectorSize(RawFile& file, std::uint64_t bytes) {
    std::vector<std::uint8_t> head(static_cast<std::size_t>(std::min<std::uint64_t>(bytes, 4096 + 512)));
    if (head.size() < 512 || file.ReadAt(0, head).Failed()) return 512;
    if (HasMagic(head, 512, "EFI PART")) return 512;
    if (HasMagic(head, 4096, "EFI PART")) return 4096;
    const auto mbr = DecodeMbr(head);
    if (!mbr->hasSignature || bytes < 8192) return 512;
    return MbrEntriesThatFit(file, bytes, *mbr, 4096) > MbrEntriesThatFit(file, bytes, *mbr, 512) ? 4096 : 512;
}

class ImageSource final : public DiskSource {
public:
    explicit ImageSource(std::vector<std::filesystem::path> images) : images_(std::move(images)) {}

    std::vector<std::unique_ptr<BlockDevice>> Enumerate() override {
        std::vector<std::unique_ptr<BlockDevice>> disks;
        for (const auto& path : images_) disks.push_back(OpenImage(path));
        return disks;
    }

private:
    static std::unique_ptr<BlockDevice> OpenImage(const std::filesystem::path& path) {
        DeviceFacts facts;
        facts.deviceName = Common::PathToUtf8(path.filename());
        RawFile file;
        std::uint64_t bytes = 0;
        Common::Error error = RawFile::Open(path, file);
        if (error.Succeeded()) error = file.Size(bytes);
        if (error.Failed()) {
            Common::Log::WriteError(Common::Log::kWarning, "Disk image " + Common::PathToUtf8(path) + " cannot be read",
                                    error);
            return std::make_unique<FileBlockDevice>(RawFile(), error, 512, 0, std::move(facts));
        }
        const std::uint32_t sectorSize = InferSectorSize(file, bytes);
        facts.physicalSectorSize = sectorSize;
        return std::make_unique<FileBlockDevice>(std::move(file), Common::Error(), sectorSize, bytes / sectorSize,
                                                 std::move(facts));
    }

    std::vector<std::filesystem::path> images_;
};

}  // namespace

std::unique_ptr<DiskSource> MakeImageSource(std::vector<std::filesystem::path> images) {
    return std::make_unique<ImageSource>(std::move(images));
}

}  // namespace Disk
