// The Linux block-device backend: on loop devices a disk attached from an image must answer as the image
// does; over a sysfs tree of the test's own, a disk that cannot be opened still shows the kernel's partitions.
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include <cstdio>
#include <sstream>

#include "core/da_api/da_api_impl.h"
#include "core/da_api/da_properties.h"
#include "core/da_api/disks_report.h"
#include "core/disk/system_source_posix.h"
#include "tests/core/da_api/impl/da_api_dump.h"
#include "tests/core/disk/disk_fixtures.h"
#include "tests/support/zip_test_reader.h"

namespace {

using namespace DaApi;

// A read-only loop device over an image, with the kernel's partition scan; detached at the end. `device` is
// empty when losetup could not attach one, and `output` then says why.
struct LoopDevice {
    LoopDevice(const std::filesystem::path& image, unsigned sectorSize) {
        const std::string command = "losetup -r -b " + std::to_string(sectorSize) + " -f --show -P '" +
                                    image.string() + "' 2>&1";
        if (FILE* pipe = ::popen(command.c_str(), "r")) {
            char line[256] = {};
            while (std::fgets(line, sizeof line, pipe)) output += line;
            ::pclose(pipe);
        }
        while (!output.empty() && (output.back() == '\n' || output.back() == ' ')) output.pop_back();
        if (output.rfind("/dev/loop", 0) == 0) device = output;
    }
    ~LoopDevice() {
        if (!device.empty()) std::system(("losetup -d " + device).c_str());
    }
    LoopDevice(const LoopDevice&) = delete;
    LoopDevice& operator=(const LoopDevice&) = delete;

    std::string device;
    std::string output;
};

ComputerFacts Computer() {
    ComputerFacts facts;
    facts.name = "LOOPTEST";
    return facts;
}

TEST(DaApiLoopDevice, BlockDeviceAnswersAsTheImage) {
    if (::geteuid() != 0) GTEST_SKIP() << "attaching a loop device needs root";
    std::string why;
    const auto fixtures = TestSupport::DiskFixtures(why);
    if (!fixtures) GTEST_SKIP() << why;
    for (const auto& [file, sectorSize] : {std::pair{"mbr.img", 512u}, {"gpt4k.img", 4096u}, {"mbr4k.img", 4096u}}) {
        SCOPED_TRACE(file);
        const auto image = *fixtures / file;
        LoopDevice loop(image, sectorSize);
        if (loop.device.empty()) GTEST_SKIP() << "losetup could not attach a loop device: " << loop.output;

        auto fromImage = MakeMachineInterface(Disk::MakeImageSource({image}), Computer());
        auto fromDevice = MakeMachineInterface(Disk::MakeSystemSource(), Computer());
        const std::string expected = TestSupport::DumpDisks(*fromImage, TestSupport::DumpScope::kContents);
        const std::string actual = TestSupport::DumpDisks(*fromDevice, TestSupport::DumpScope::kContents, loop.device);
        ASSERT_FALSE(actual.empty()) << loop.device << " is not among the block devices";
        EXPECT_EQ(actual, expected);

        // What only the device knows: a file-backed virtual disk, and the kernel's partition numbers where the
        // kernel scanned the partitions (some containers do not; then there is no number, 65535).
        const std::string everything = TestSupport::DumpDisks(*fromDevice, TestSupport::DumpScope::kEverything,
                                                              loop.device);
        EXPECT_NE(everything.find("device=" + loop.device + " model=- iface=15"), std::string::npos) << everything;
        const std::string name = std::filesystem::path(loop.device).filename().string();
        const bool scanned = std::filesystem::exists("/sys/block/" + name + "/" + name + "p1");
        for (const char* number : {"1", "2"}) {
            const auto at = everything.find(std::string("#") + number + " type=");
            ASSERT_NE(at, std::string::npos);
            const std::string os = everything.substr(everything.find(" os=", at) + 4);
            EXPECT_EQ(os.substr(0, os.find('\n')), scanned ? number : "65535");
        }
    }
}

// The kernel lists the disk and its partitions, but there is no device node to open.
TEST(DaApiLinuxSource, DiskThatCannotBeOpenedShowsTheKernelsPartitions) {
    TestSupport::TempFolder temp;
    const auto disk = temp.path() / "block/sdq";
    for (const auto& [file, value] : {std::pair{"size", "65536"}, {"queue/logical_block_size", "512"},
                                      {"sdq1/partition", "1"}, {"sdq1/start", "2048"}, {"sdq1/size", "16384"},
                                      {"sdq2/partition", "2"}, {"sdq2/start", "18432"}, {"sdq2/size", "8192"}})
        TestSupport::WriteFile(disk / file, std::string(value) + "\n");
    Install(MakeMachineInterface(Disk::MakeLinuxSource(temp.path() / "block", temp.path() / "dev"), Computer()));
    std::ostringstream out;
    ASSERT_TRUE(WriteDisksReport(&out).Succeeded());
    const std::string text = out.str();
    EXPECT_NE(text.find("0-   d(?) Read   32M                                          \r\n"
                        "  -1  p(1)         8M             PSmeta 00                          ------\r\n"),
              std::string::npos) << text;
    EXPECT_NE(text.find("  Disk 0: The disk cannot be opened for reading.\n"), std::string::npos);
    EXPECT_NE(text.find("\r\nPartition 0-1: - No I/O disk\r\nPartition 0-2: - No I/O disk\r\n"), std::string::npos);
}

// A partition that the system has mounted is read through its mount point, found in /proc/self/mountinfo by
// the device number. The mount lives in a mount namespace of this process's own and goes with it.
TEST(DaApiLoopDevice, MountedVolumeIsReadThroughItsMountPoint) {
    if (::geteuid() != 0) GTEST_SKIP() << "mounting a loop device needs root";
    std::string why;
    const auto fixtures = TestSupport::DiskFixtures(why);
    if (!fixtures) GTEST_SKIP() << why;
    if (::unshare(CLONE_NEWNS) != 0 || ::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0)
        GTEST_SKIP() << "no private mount namespace: " << std::strerror(errno);
    LoopDevice loop(*fixtures / "ext4-files.img", 512);
    if (loop.device.empty()) GTEST_SKIP() << "losetup could not attach a loop device: " << loop.output;
    TestSupport::TempFolder point;
    ASSERT_EQ(::mount(loop.device.c_str(), point.path().c_str(), "ext4", MS_RDONLY, nullptr), 0) << std::strerror(errno);
    struct Unmount {
        const char* path;
        ~Unmount() { ::umount2(path, MNT_DETACH); }
    } unmount{point.path().c_str()};

    auto api = MakeMachineInterface(Disk::MakeSystemSource(), Computer());
    api->DaSetProperty(Prop::kSelectComputer, Prop::kComputerName);
    std::unique_ptr<Disk::MountedVolume> mounted;
    for (api->DaSetProperty(Prop::kNextDisk, 0); api->DaGetProperty(Prop::kDiskHandle) && !mounted;
         api->DaSetProperty(Prop::kNextDisk, 0)) {
        if (Text8(api->DaGetProperty(Prop::kDeviceName)) != loop.device) continue;
        api->DaSetProperty(Prop::kNextObject, 0);
        ASSERT_TRUE(api->MountVolume(api->DaGetProperty(Prop::kVolumeHandle), mounted).Succeeded());
    }
    ASSERT_TRUE(mounted) << loop.device << " is not among the block devices";
    EXPECT_EQ(mounted->Way(), "mounted at " + point.path().string());
    std::string bytes;
    std::uint64_t size = 0;
    ASSERT_TRUE(Disk::ReadVolumeFile(*mounted->Root(), "BootMgr", ~0ull, bytes, size).Succeeded());
    EXPECT_EQ(bytes, TestSupport::ReadFile(*fixtures / "files.bootmgr"));
}

}  // namespace
