// The disk layout report over images made by the real partitioning and formatting tools: the whole text
// against its golden copy, and the printed boot-sector values against the tools' own reports.
#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <sstream>

#include "core/da_api/da_api_impl.h"
#include "core/da_api/da_properties.h"
#include "core/da_api/disks_report.h"
#include "core/disk/block_device.h"
#include "tests/core/disk/disk_fixtures.h"

namespace {

// An MBR disk with logical partitions (FAT16, NTFS, ext4, exFAT), a GPT disk (ESP on FAT32, MSR, NTFS), a
// GPT disk of 4096-byte sectors, the damaged ones (FAT32 with 0 sectors per cluster, a looping EBR chain, a
// GPT with a bad primary header, partitions past the end, a zero-length image), a hybrid MBR, a legacy MBR
// over a GPT, and an image that is not there. The end-to-end test of the report run names the same images,
// in this order.
const char* const kImages[] = {"mbr.img",      "gpt.img",       "gpt4k.img", "fat32-spc0.img",   "ebr-loop.img",
                               "gpt-badcrc.img", "past-end.img", "empty.img", "hybrid.img", "mbr-over-gpt.img",
                               "missing.img"};

// The computer level is fixed here, so that the text does not depend on the machine.
DaApi::ComputerFacts GoldenComputer() {
    DaApi::ComputerFacts facts;
    facts.name = "GOLDEN";
    facts.osKind = DaApi::OsKind::kLinux;
    facts.firmwareKind = DaApi::FirmwareKind::kBios;
    return facts;
}

std::string ReadGolden(const char* name) {
    std::ifstream in(std::string(SR_TEST_DATA_DIR) + "/disks_report/" + name, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), {});
}

class DisksReportFixtureTest : public ::testing::Test {
protected:
    void SetUp() override {
        std::string why;
        std::optional<std::filesystem::path> folder = TestSupport::DiskFixtures(why);
        if (!folder) GTEST_SKIP() << why;
        folder_ = *folder;
        std::vector<std::filesystem::path> images;
        for (const char* image : kImages) images.push_back(folder_ / image);
        DaApi::Install(DaApi::MakeMachineInterface(Disk::MakeImageSource(images), GoldenComputer()));
        std::ostringstream out;
        Common::Error error = DaApi::WriteDisksReport(&out);
        ASSERT_TRUE(error.Succeeded()) << error.ToString();
        text_ = out.str();
    }

    // The block under the title line `title`: up to the next line that is neither empty nor indented.
    std::string Block(const std::string& title) const {
        std::size_t at = text_.find("\r\n" + title + "\r\n");
        if (at == std::string::npos) return {};
        std::size_t end = at + title.size() + 4;
        while (end < text_.size() && (text_[end] == ' ' || text_.compare(end, 2, "\r\n") == 0)) {
            end = text_.find("\r\n", end) + 2;
        }
        return text_.substr(at, end - at);
    }

    std::string Report(const char* name) const { return TestSupport::FixtureReport(folder_, name); }

    std::filesystem::path folder_;
    std::string text_;
};

// Checked by hand, line by line, against the formats; see also the cross-checks below.
TEST_F(DisksReportFixtureTest, Golden) {
    std::string golden = ReadGolden("fixture_disks.txt");
    ASSERT_FALSE(golden.empty());
    EXPECT_EQ(text_, golden);
}

using TestSupport::NumberAfter;
using TestSupport::NumberBefore;

TEST_F(DisksReportFixtureTest, FatPrintoutsAgreeWithFsckFat) {
    struct Case {
        const char* title;
        const char* report;
    };
    for (Case c : {Case{"Partition 0-1: of type 06 (FAT16) and size 16M", "mbr.p1.fsck.txt"},
                   Case{"Partition 1-1: of GPT type C12A7328-F81F-11D2-BA4B-00A0C93EC93B and size 40M", "gpt.p1.fsck.txt"}}) {
        SCOPED_TRACE(c.title);
        std::string block = Block(c.title);
        std::string fsck = Report(c.report);
        ASSERT_FALSE(block.empty());
        ASSERT_FALSE(fsck.empty());
        std::uint64_t sectorSize = *NumberAfter(block, "Sector size (512):");
        EXPECT_EQ(sectorSize, NumberBefore(fsck, "bytes per logical sector"));
        EXPECT_EQ(*NumberAfter(block, "Sectors per cluster:") * sectorSize, NumberBefore(fsck, "bytes per cluster"));
        EXPECT_EQ(NumberAfter(block, "Reserved sectors:"), NumberBefore(fsck, "reserved sectors"));
        EXPECT_EQ(NumberAfter(block, "FAT copies:"), NumberBefore(fsck, "FATs,"));
        EXPECT_EQ(NumberAfter(block, "Hidden sectors:"), NumberBefore(fsck, "hidden sectors"));
        EXPECT_EQ(NumberAfter(block, "Sectors per track:"), NumberBefore(fsck, "sectors/track"));
        EXPECT_EQ(NumberAfter(block, "Number of heads:"), NumberBefore(fsck, "heads"));
        // The FAT size in sectors: "(= 32 sectors)".
        EXPECT_EQ(NumberAfter(block.substr(block.rfind("FAT size:")), "FAT size:"), NumberAfter(fsck, "(="));
    }
    // FAT32: the clusters counted from the data area are the data clusters fsck.fat counts.
    std::string esp = Block("Partition 1-1: of GPT type C12A7328-F81F-11D2-BA4B-00A0C93EC93B and size 40M");
    EXPECT_EQ(NumberAfter(esp, "Clusters from Data:"), NumberBefore(Report("gpt.p1.fsck.txt"), "data clusters"));
    EXPECT_EQ(NumberAfter(esp, "Big total sectors:"), NumberBefore(Report("gpt.p1.fsck.txt"), "sectors total"));
}

TEST_F(DisksReportFixtureTest, NtfsPrintoutAgreesWithNtfsinfo) {
    std::string block = Block("Partition 0-2: of type 07 (NTFS/exFAT) and size 12M");
    std::string info = Report("mbr.p2.ntfsinfo.txt");
    ASSERT_FALSE(block.empty());
    ASSERT_FALSE(info.empty());
    std::uint64_t clusterBytes = *NumberAfter(block, "Sectors per cluster:") * *NumberAfter(block, "Sector size (512):");
    EXPECT_EQ(clusterBytes, NumberAfter(info, "Cluster Size:"));
    EXPECT_EQ(NumberAfter(block, "MFT cluster:"), NumberAfter(info, "LCN of Data Attribute for FILE_MFT:"));
    EXPECT_EQ(NumberAfter(block, "MFTmirr cluster:"), NumberAfter(info, "LCN of Data Attribute for File_MFTMirr:"));
    // Total sectors cover the clusters ntfsinfo counts (the last, partial cluster is not one).
    EXPECT_EQ(*NumberAfter(block, "Big total sectors:       ") * 512 / clusterBytes, NumberAfter(info, "Volume Size in Clusters:"));
    // A record size of -10 means 2^10 bytes.
    EXPECT_NE(block.find("MFT record size:         -10\r\n"), std::string::npos);
    EXPECT_EQ(NumberAfter(info, "MFT Record Size:"), 1024u);
}

}  // namespace
