// The mounted-volume readers over images that mkfs, mtools and ntfscp made: listings against mdir's and
// The Sleuth Kit's fls, contents against the files put in, and damaged FAT structures that must fail
// cleanly. Also the FAT check against fsck.fat's findings, and how much of a large FAT it reads.
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <fstream>
#include <iterator>
#include <set>
#include <sstream>

#include "core/disk/block_device.h"
#include "core/disk/bytes.h"
#include "core/disk/fs_probe.h"
#include "core/disk/memory_disk.h"
#include "core/disk/volume_mount.h"
#include "tests/core/disk/disk_fixtures.h"

namespace {

using namespace Disk;

std::vector<std::uint8_t> ReadAll(const std::filesystem::path& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

// Every path below `directory` as mdir -/ -b writes it ("::/EFI/", "::/EFI/bootx64.efi"); every file is
// read whole on the way, and the first failure ends the walk.
Common::Error Walk(VolumeDirectory& directory, const std::string& prefix, std::set<std::string>& paths, int depth = 0) {
    std::vector<VolumeEntry> entries;
    if (auto error = directory.List(entries); error.Failed()) return error;
    for (const VolumeEntry& entry : entries) {
        const std::string path = prefix + entry.name;
        if (!entry.directory) {
            paths.insert(path);
            std::string bytes;
            std::uint64_t size = 0;
            if (auto error = directory.ReadFile(entry.name, ~0ull, bytes, size); error.Failed()) return error;
            if (bytes.size() != size) return Common::Error::Make(1, L"short read");
            continue;
        }
        paths.insert(path + "/");
        std::unique_ptr<VolumeDirectory> sub;
        if (auto error = directory.OpenDirectory(entry.name, sub); error.Failed()) return error;
        if (depth > 16) return Common::Error::Make(1, L"folders nest too deep");
        if (auto error = Walk(*sub, path + "/", paths, depth + 1); error.Failed()) return error;
    }
    return {};
}

// mdir -/ -b: one path per line.
std::set<std::string> MdirPaths(const std::string& report) {
    std::set<std::string> paths;
    std::istringstream lines(report);
    for (std::string line; std::getline(lines, line);)
        if (line.rfind("::/", 0) == 0) paths.insert(line);
    return paths;
}

// fls -r -p: "r/r 6:\tbootmgr", "d/d 4:\tEFI". What the library makes up or keeps for itself ($-names,
// alternate data streams, the volume label entry) is not a file of the volume.
std::set<std::string> FlsPaths(const std::string& report) {
    std::set<std::string> paths;
    std::istringstream lines(report);
    for (std::string line; std::getline(lines, line);) {
        const auto tab = line.find('\t');
        if (tab == std::string::npos || (line.rfind("r/r", 0) != 0 && line.rfind("d/d", 0) != 0)) continue;
        const std::string path = line.substr(tab + 1);
        if (path[0] == '$' || path.find(':') != std::string::npos || path.find("(Volume Label Entry)") != std::string::npos)
            continue;
        paths.insert("::/" + path + (line[0] == 'd' ? "/" : ""));
    }
    return paths;
}

class MountedVolumeTest : public ::testing::Test {
protected:
    void SetUp() override {
        std::string why;
        const auto folder = TestSupport::DiskFixtures(why);
        if (!folder) GTEST_SKIP() << why;
        folder_ = *folder;
    }

    Common::Error Mount(SectorReader& disk, std::uint64_t first, std::uint64_t count, FsType type,
                        std::unique_ptr<MountedVolume>& mounted) {
        VolumeToMount volume;
        volume.disk = &disk;
        volume.firstSector = first;
        volume.sectorCount = count ? count : disk.SectorCount() - first;
        volume.type = type;
        return MountVolume(volume, mounted);
    }

    std::string Fixture(const char* name) {
        const auto bytes = ReadAll(folder_ / name);
        return {bytes.begin(), bytes.end()};
    }

    std::filesystem::path folder_;
};

TEST_F(MountedVolumeTest, ListingsMatchMdirAndFlsAndFilesReadBack) {
    struct Case {
        const char* image;
        std::uint64_t first, count;
        FsType type;
        const char* mdir;  // nullptr: not a FAT volume
        const char* fls;
        const char* way;
    };
    const Case cases[] = {
        {"fat12-files.img", 0, 0, FsType::kFat16, "fat12-files.mdir.txt", "fat12-files.fls.txt", "FAT reader"},
        {"files.img", 2048, 40960, FsType::kFat16, "files.p1.mdir.txt", "files.p1.fls.txt", "FAT reader"},
        {"files.img", 43008, 49152, FsType::kNtfs, nullptr, "files.p2.fls.txt", "file-system library"},
    };
    const std::string bootmgr = Fixture("files.bootmgr");
    for (const Case& c : cases) {
        SCOPED_TRACE(c.fls);
        auto disks = MakeImageSource({folder_ / c.image})->Enumerate();
        std::unique_ptr<MountedVolume> mounted;
        ASSERT_TRUE(Mount(*disks.at(0), c.first, c.count, c.type, mounted).Succeeded());
        EXPECT_EQ(mounted->Way(), c.way);
        auto root = mounted->Root();
        std::set<std::string> paths;
        ASSERT_TRUE(Walk(*root, "::/", paths).Succeeded());
        EXPECT_EQ(paths, FlsPaths(TestSupport::FixtureReport(folder_, c.fls)));
        if (c.mdir) {
            EXPECT_EQ(paths, MdirPaths(TestSupport::FixtureReport(folder_, c.mdir)));
        }

        // Names are found whatever their case; a cut read still tells the whole size.
        std::string bytes;
        std::uint64_t size = 0;
        ASSERT_TRUE(ReadVolumeFile(*root, "BOOTMGR", ~0ull, bytes, size).Succeeded());
        EXPECT_EQ(bytes, bootmgr);
        ASSERT_TRUE(ReadVolumeFile(*root, "/bootmgr", 100, bytes, size).Succeeded());
        EXPECT_EQ(bytes, bootmgr.substr(0, 100));
        EXPECT_EQ(size, bootmgr.size());
        EXPECT_TRUE(ReadVolumeFile(*root, "no such file", 100, bytes, size).Failed());
        if (!c.mdir) continue;
        ASSERT_TRUE(ReadVolumeFile(*root, "efi\\MICROSOFT/boot\\bcd", ~0ull, bytes, size).Succeeded());
        EXPECT_EQ(bytes, bootmgr);
        ASSERT_TRUE(ReadVolumeFile(*root, "zorbelt/a LONG file name.TXT", ~0ull, bytes, size).Succeeded());
        EXPECT_EQ(bytes, Fixture("files.boot.ini"));
        ASSERT_TRUE(ReadVolumeFile(*root, "boot.ini", ~0ull, bytes, size).Succeeded());
        EXPECT_EQ(size, 0u);
        EXPECT_TRUE(ReadVolumeFile(*root, "EFI", ~0ull, bytes, size).Failed());  // a folder is not a file
    }
}

// The FAT16 partition of files.img, damaged in one place each: every case fails with an error.
TEST_F(MountedVolumeTest, DamagedFatFailsWithoutHangingOrCrashing) {
    const auto whole = ReadAll(folder_ / "files.img");
    const std::vector<std::uint8_t> fat16(whole.begin() + 2048 * 512, whole.begin() + (2048 + 40960) * 512);
    // Where things are, from the boot sector and the root directory's short entries.
    const std::uint64_t fat = Le16(fat16, 14) * 512ull;
    const std::uint64_t fatBytes = Le16(fat16, 22) * 512ull;
    auto entry = [&](std::string_view shortName) {
        const auto at = std::search(fat16.begin(), fat16.end(), shortName.begin(), shortName.end());
        return static_cast<std::size_t>(at - fat16.begin());
    };
    const std::size_t bootmgr = entry("BOOTMGR    ");
    const std::size_t zorbelt = entry("ZORBELT    ");
    auto cluster = [&](std::size_t at) { return std::uint32_t{Le16(fat16, at + 26)}; };
    auto link = [&](std::vector<std::uint8_t>& bytes, std::uint32_t from, std::uint32_t to) {
        for (std::uint64_t copy = 0; copy < 2; ++copy) {
            bytes[fat + copy * fatBytes + from * 2] = static_cast<std::uint8_t>(to);
            bytes[fat + copy * fatBytes + from * 2 + 1] = static_cast<std::uint8_t>(to >> 8);
        }
    };
    struct Case {
        const char* what;
        std::function<void(std::vector<std::uint8_t>&)> damage;
    };
    const Case cases[] = {
        {"zero bytes per sector", [](auto& b) { b[11] = b[12] = 0; }},
        {"huge bytes per sector", [](auto& b) { b[11] = 0; b[12] = 0x80; }},
        {"zero sectors per cluster", [](auto& b) { b[13] = 0; }},
        {"huge sectors per cluster", [](auto& b) { b[13] = 0x80; }},
        {"a file's chain loops", [&](auto& b) { link(b, cluster(bootmgr) + 1, cluster(bootmgr)); }},
        {"a chain leaves the data area", [&](auto& b) { link(b, cluster(bootmgr), 0xFF00); }},
        {"a folder never ends", [&](auto& b) { link(b, cluster(zorbelt), cluster(zorbelt)); }},
        {"the image is cut short", [](auto& b) { b.resize(b.size() / 2); }},
        {"a file larger than the volume", [&](auto& b) { b[bootmgr + 31] = 0xF0; }},
        {"a file larger than its chain", [&](auto& b) { b[bootmgr + 30] = 0x10; }},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        auto bytes = fat16;
        c.damage(bytes);
        MemoryDisk disk(std::move(bytes), 512);
        std::unique_ptr<MountedVolume> mounted;
        if (Mount(disk, 0, disk.SectorCount(), FsType::kFat16, mounted).Failed()) continue;
        std::set<std::string> paths;
        EXPECT_TRUE(Walk(*mounted->Root(), "::/", paths).Failed());
    }
}

// fsck.fat -n finds a circular chain in one image and a lost cluster in the other; the check must too.
TEST_F(MountedVolumeTest, FatCheckFindsWhatFsckFatFinds) {
    struct Case {
        const char* image;
        const char* fsck;
        const char* finding;  // in fsck.fat's report; nullptr for a clean volume
        std::uint32_t warning;
    };
    const Case cases[] = {
        {"fat16-circular.img", "fat16-circular.fsck.txt", "Circular cluster chain", kWarnFatCorrupted},
        {"fat16-lost.img", "fat16-lost.fsck.txt", "Reclaimed 1 unused cluster", kWarnLostClusters},
        {"fat12-files.img", nullptr, nullptr, 0},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.image);
        if (c.fsck) {
            ASSERT_NE(TestSupport::FixtureReport(folder_, c.fsck).find(c.finding), std::string::npos);
        }
        auto disks = MakeImageSource({folder_ / c.image})->Enumerate();
        VolumeReader volume(*disks.at(0), 0, disks[0]->SectorCount());
        const ProbeResult probe = ProbeFileSystem(volume);
        CheckResult result;
        ASSERT_TRUE(CheckFileSystem(volume, probe.info, result).Succeeded());
        EXPECT_EQ(result.warnings, c.warning);
        EXPECT_EQ(result.issues.size(), c.warning ? 1u : 0u);
    }
}

// Counts the bytes read inside one region of the disk.
class CountingReader final : public SectorReader {
public:
    CountingReader(SectorReader& disk, std::uint64_t begin, std::uint64_t end) : disk_(disk), begin_(begin), end_(end) {}
    std::uint32_t SectorSize() const override { return disk_.SectorSize(); }
    std::uint64_t SectorCount() const override { return disk_.SectorCount(); }
    Common::Error Read(std::uint64_t first, std::uint32_t count, std::vector<std::uint8_t>& data) override {
        const std::uint64_t from = std::max(first * SectorSize(), begin_);
        const std::uint64_t to = std::min((first + count) * SectorSize(), end_);
        if (from < to) counted += to - from;
        return disk_.Read(first, count, data);
    }
    std::uint64_t counted = 0;

private:
    SectorReader& disk_;
    std::uint64_t begin_, end_;
};

TEST_F(MountedVolumeTest, ProbeAndCheckReadTheFirstFatOnce) {
    auto disks = MakeImageSource({folder_ / "fat32-big.img"})->Enumerate();
    const std::string report = TestSupport::FixtureReport(folder_, "fat32-big.fsck.txt");
    const std::uint64_t fatStart = *TestSupport::NumberAfter(report, "First FAT starts at byte");
    const std::uint64_t fatBytes = *TestSupport::NumberBefore(report, "bytes per FAT");
    ASSERT_GT(fatBytes, 4u << 20);
    CountingReader counting(*disks.at(0), fatStart, fatStart + fatBytes);
    VolumeReader volume(counting, 0, counting.SectorCount());
    const ProbeResult probe = ProbeFileSystem(volume);
    CheckResult result;
    ASSERT_TRUE(CheckFileSystem(volume, probe.info, result).Succeeded());
    EXPECT_EQ(result.warnings, 0u);
    // Once whole, plus a few 64 KiB windows for FAT[0] and the root folder's chain; reading it again would
    // double the count.
    EXPECT_LT(counting.counted, fatBytes + fatBytes / 4);
}

}  // namespace
