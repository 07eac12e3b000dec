// The Linux block-device backend on loop devices: a disk attached from an image must answer as the image does.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>

#include "core/da_api/da_api_impl.h"
#include "core/da_api/da_properties.h"
#include "tests/core/da_api/impl/da_api_dump.h"
#include "tests/core/disk/disk_fixtures.h"

namespace {

using namespace DaApi;

// A read-only loop device over an image, with the kernel's partition scan; detached at the end.
class LoopDevice {
public:
    LoopDevice(const std::filesystem::path& image, unsigned sectorSize) {
        const std::string command = "losetup -r -b " + std::to_string(sectorSize) + " -f --show -P '" +
                                    image.string() + "' 2>&1";
        if (FILE* pipe = ::popen(command.c_str(), "r")) {
            char line[256] = {};
            while (std::fgets(line, sizeof line, pipe)) output_ += line;
            ::pclose(pipe);
        }
        while (!output_.empty() && (output_.back() == '\n' || output_.back() == ' ')) output_.pop_back();
        if (output_.rfind("/dev/loop", 0) == 0) device_ = output_;
    }
    ~LoopDevice() {
        if (!device_.empty()) std::system(("losetup -d " + device_).c_str());
    }
    LoopDevice(const LoopDevice&) = delete;
    LoopDevice& operator=(const LoopDevice&) = delete;

    const std::string& device() const { return device_; }
    const std::string& output() const { return output_; }

private:
    std::string device_;
    std::string output_;
};

ComputerFacts Computer() {
    ComputerFacts facts;
    facts.name = "LOOPTEST";
    return facts;
}

struct LoopCase {
    const char* image;
    unsigned sectorSize;
};

TEST(DaApiLoopDevice, BlockDeviceAnswersAsTheImage) {
    if (::geteuid() != 0) GTEST_SKIP() << "attaching a loop device needs root";
    std::string why;
    const auto fixtures = TestSupport::DiskFixtures(why);
    if (!fixtures) GTEST_SKIP() << why;
    for (const LoopCase& loopCase : {LoopCase{"mbr.img", 512}, LoopCase{"gpt4k.img", 4096}}) {
        SCOPED_TRACE(loopCase.image);
        const auto image = *fixtures / loopCase.image;
        LoopDevice loop(image, loopCase.sectorSize);
        if (loop.device().empty()) GTEST_SKIP() << "losetup could not attach a loop device: " << loop.output();

        auto fromImage = MakeMachineInterface(Disk::MakeImageSource({image}), Computer());
        auto fromDevice = MakeMachineInterface(Disk::MakeSystemSource(), Computer());
        const std::string expected = TestSupport::DumpDisks(*fromImage, TestSupport::DumpScope::kContents);
        const std::string actual = TestSupport::DumpDisks(*fromDevice, TestSupport::DumpScope::kContents, loop.device());
        ASSERT_FALSE(actual.empty()) << loop.device() << " is not among the block devices";
        EXPECT_EQ(actual, expected);

        // What only the device knows: a file-backed virtual disk, and the kernel's partition numbers where the
        // kernel scanned the partitions (some containers do not; then there is no number, 65535).
        const std::string everything = TestSupport::DumpDisks(*fromDevice, TestSupport::DumpScope::kEverything,
                                                              loop.device());
        EXPECT_NE(everything.find("device=" + loop.device() + " model=- iface=15"), std::string::npos) << everything;
        const std::string name = std::filesystem::path(loop.device()).filename().string();
        const bool scanned = std::filesystem::exists("/sys/block/" + name + "/" + name + "p1");
        for (const char* number : {"1", "2"}) {
            const auto at = everything.find(std::string("#") + number + " type=");
            ASSERT_NE(at, std::string::npos);
            const std::string os = everything.substr(everything.find(" os=", at) + 4);
            EXPECT_EQ(os.substr(0, os.find('\n')), scanned ? number : "65535");
        }
    }
}

}  // namespace
