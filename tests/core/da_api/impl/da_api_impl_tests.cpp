// The DA-API over image files: selection, failures, property answers and sector reads.
#include <gtest/gtest.h>

#include "core/common/strings.h"
#include "core/da_api/da_api_impl.h"
#include "core/da_api/da_properties.h"
#include "core/disk/volume_mount.h"
#include "tests/core/da_api/impl/da_api_dump.h"
#include "tests/core/disk/disk_fixtures.h"

namespace {

using namespace DaApi;

ComputerFacts TestComputer() {
    ComputerFacts facts;
    facts.name = "TESTPC";
    facts.osKind = OsKind::kLinux;
    facts.firmwareKind = FirmwareKind::kUefiX64;
    facts.usedDriveLetters = 0b101;
    facts.freeBytesOfLetter = [](char letter) { return letter == 'C' ? std::optional<std::uint64_t>(4096) : std::nullopt; };
    return facts;
}

// The failure text and operation of what `call` throws; empty when it does not throw.
template <typename Call>
std::string FailureOf(Call&& call) {
    try {
        call();
    } catch (const Common::ErrorException& e) {
        std::string operation;
        for (const auto& field : e.error().Fields())
            if (field.name == "operation") operation = field.text;
        return Common::WideToUtf8(e.error().Message()) + " @" + operation;
    }
    return {};
}

class DaApiImplTest : public ::testing::Test {
protected:
    void SetUp() override {
        std::string why;
        const auto folder = TestSupport::DiskFixtures(why);
        if (!folder) GTEST_SKIP() << why;
        folder_ = *folder;
    }

    std::unique_ptr<Interface> Over(std::initializer_list<const char*> images) {
        std::vector<std::filesystem::path> paths;
        for (const char* image : images) paths.push_back(folder_ / image);
        return MakeMachineInterface(Disk::MakeImageSource(std::move(paths)), TestComputer());
    }

    // Selects the computer and the disk with this number.
    static void SelectDisk(Interface& api, Value number) {
        api.DaSetProperty(Prop::kSelectComputer, Prop::kComputerName);
        api.DaSetProperty(Prop::kSelectDiskNumber, number);
    }

    // Makes the object that starts at `first` current.
    static void SelectObjectAt(Interface& api, Value first) {
        api.DaSetProperty(Prop::kObjectHandle, 0);
        for (api.DaSetProperty(Prop::kNextObject, 0); api.DaGetProperty(Prop::kObjectHandle);
             api.DaSetProperty(Prop::kNextObject, 0))
            if (api.DaGetProperty(Prop::kFirstSector) == first) return;
        FAIL() << "no object at sector " << first;
    }

    std::filesystem::path folder_;
};

// Checked by hand against the script's layouts and the tools' reports (fsck.fat -vn, ntfsinfo -m,
// dumpe2fs -h, dump.exfat): sizes in sectors of 512 bytes, FAT16 clusters of 2048 bytes (4 sectors),
// NTFS's size without its backup boot sector, ext4's 1 KiB blocks (2 sectors) after one boot block,
// exFAT's FAT at sector 2048 of the volume, and the serials the script fixed (little-endian on disk).
TEST_F(DaApiImplTest, ImagesAnswerAsTheirDisks) {
    auto api = Over({"mbr.img", "gpt.img"});
    EXPECT_EQ(TestSupport::DumpDisks(*api),
              "disk 0 scheme=2 state=0 last=131071 lss=512 gptmbr=0 guid=- error=0 noio=0\n"
              "  device=mbr.img model=- iface=0 chs=8/255/63 pss=512\n"
              "  mbr   0+1 #0 type=00 - active=0 hidden=0 err=0 bits=0 os=65535\n"
              "  free  1+2047 #0 type=00 - active=0 hidden=0 err=0 bits=0 os=65535\n"
              "  part  2048+32768 #1 type=06 FAT16 active=1 hidden=0 err=0 bits=0 os=65535\n"
              "    fs=14 size=32768 label=MBRFAT16 block=4 blocks=8167 free=8167 reserved=4 fat=2x32/16 root=1/512 "
              "inodes=0/0@0 journal=0 serial=CDAB3412\n"
              "  part  34816+24576 #2 type=07 NTFS/exFAT active=0 hidden=0 err=0 bits=0 os=65535\n"
              "    fs=10 size=24575 label=MbrNtfs block=8 blocks=3071 free=2446 reserved=0 fat=0x0/0 root=0/0 "
              "inodes=0/0@0 journal=0 serial=EFCDAB8967452301\n"
              "  ebr   59392+1 #0 type=05 Extended active=0 hidden=0 err=0 bits=0 os=65535\n"
              "  free  59393+2047 #0 type=00 - active=0 hidden=0 err=0 bits=0 os=65535\n"
              "  part  61440+24576 #5 type=83 Linux active=0 hidden=0 err=0 bits=0 os=65535\n"
              "    fs=4 size=24576 label=mbrext4 block=2 blocks=12288 free=10283 reserved=2 fat=0x0/0 root=0/0 "
              "inodes=3061/3072@256 journal=1024 serial=11111111222233334444555555555555\n"
              "  ebr   86016+1 #0 type=05 Extended active=0 hidden=0 err=0 bits=0 os=65535\n"
              "  free  86017+2047 #0 type=00 - active=0 hidden=0 err=0 bits=0 os=65535\n"
              "  part  88064+16384 #6 type=07 NTFS/exFAT active=0 hidden=0 err=0 bits=0 os=65535\n"
              "    fs=16 size=16384 label=MbrExfat block=8 blocks=1536 free=1532 reserved=2048 fat=1x16/32 root=0/0 "
              "inodes=0/0@0 journal=0 serial=0F0EED5E\n"
              "  free  104448+26624 #0 type=00 - active=0 hidden=0 err=0 bits=0 os=65535\n"
              "disk 1 scheme=8 state=0 last=131071 lss=512 gptmbr=1 guid=5EED0002-0000-4000-8000-000000000000 error=0 "
              "noio=0\n"
              "  device=gpt.img model=- iface=0 chs=8/255/63 pss=512\n"
              "  mbr   0+1 #0 type=00 - active=0 hidden=0 err=0 bits=0 os=65535\n"
              "  meta1 1+33 #0 type=00 - active=0 hidden=0 err=0 bits=0 os=65535\n"
              "  free  34+2014 #0 type=00 - active=0 hidden=0 err=0 bits=0 os=65535\n"
              "  part  2048+81920 #1 type=EF EFI system active=0 hidden=0 err=0 bits=0 os=65535\n"
              "    fs=15 size=81920 label=ESP block=1 blocks=80628 free=80627 reserved=32 fat=2x630/32 root=1/0 "
              "inodes=0/0@0 journal=0 serial=CDAB3412\n"
              "  part  83968+8192 #2 type=00 MS reserved active=0 hidden=0 err=0 bits=0 os=65535\n"
              "  part  92160+32768 #3 type=07 Basic data active=0 hidden=0 err=0 bits=0 os=65535\n"
              "    fs=10 size=32767 label=GptData block=8 blocks=4095 free=3470 reserved=0 fat=0x0/0 root=0/0 "
              "inodes=0/0@0 journal=0 serial=1032547698BADCFE\n"
              "  free  124928+6111 #0 type=00 - active=0 hidden=0 err=0 bits=0 os=65535\n"
              "  meta2 131039+33 #0 type=00 - active=0 hidden=0 err=0 bits=0 os=65535\n");
}

// Each damage shows as a scheme state, a disk error or an object's error and structure bits; the walk
// ends on every one of them. Their texts are the fixture golden report's.
TEST_F(DaApiImplTest, DamagedImagesShowWhereTheyAreDamaged) {
    auto api = Over({"past-end.img", "ebr-loop.img", "empty.img", "missing.img", "gpt-badcrc.img",
                     "fat32-spc0.img"});
    const std::string dump = TestSupport::DumpDisks(*api, TestSupport::DumpScope::kContents);
    EXPECT_EQ(dump,
              "scheme=2 state=0 last=16383 lss=512 gptmbr=0 guid=- error=0 noio=0\n"
              "  mbr   0+1 #0 type=00 - active=0 hidden=0 err=0 bits=0\n"
              "  free  1+2047 #0 type=00 - active=0 hidden=0 err=0 bits=0\n"
              "  part  2048+24576 #1 type=83 Linux active=0 hidden=0 err=9 bits=2\n"
              "  part  26624+4096 #2 type=83 Linux active=0 hidden=0 err=9 bits=2\n"
              "scheme=2 state=0 last=32767 lss=512 gptmbr=0 guid=- error=0 noio=0\n"
              "  mbr   0+1 #0 type=00 - active=0 hidden=0 err=0 bits=0\n"
              "  free  1+2047 #0 type=00 - active=0 hidden=0 err=0 bits=0\n"
              "  ebr   2048+1 #0 type=05 Extended active=0 hidden=0 err=0 bits=0\n"
              "  free  2049+2047 #0 type=00 - active=0 hidden=0 err=0 bits=0\n"
              "  part  4096+4096 #5 type=83 Linux active=0 hidden=0 err=0 bits=0\n"
              "  ebr   8192+1 #0 type=05 Extended active=0 hidden=0 err=11 bits=0\n"
              "  free  8193+2047 #0 type=00 - active=0 hidden=0 err=0 bits=0\n"
              "  part  10240+4096 #6 type=83 Linux active=0 hidden=0 err=0 bits=0\n"
              "  free  14336+18432 #0 type=00 - active=0 hidden=0 err=0 bits=0\n"
              "scheme=0 state=4098 last=18446744073709551615 lss=512 gptmbr=0 guid=- error=4 noio=0\n"
              "scheme=0 state=4098 last=18446744073709551615 lss=512 gptmbr=0 guid=- error=2 noio=1\n"
              "scheme=8 state=0 last=16383 lss=512 gptmbr=1 guid=5EED0005-0000-4000-8000-000000000000 error=0 "
              "noio=0\n"
              "  mbr   0+1 #0 type=00 - active=0 hidden=0 err=0 bits=0\n"
              "  meta1 1+33 #0 type=00 - active=0 hidden=0 err=6 bits=0\n"
              "  free  34+2014 #0 type=00 - active=0 hidden=0 err=0 bits=0\n"
              "  part  2048+8192 #1 type=07 Basic data active=0 hidden=0 err=0 bits=0\n"
              "  free  10240+6111 #0 type=00 - active=0 hidden=0 err=0 bits=0\n"
              "  meta2 16351+33 #0 type=00 - active=0 hidden=0 err=0 bits=0\n"
              "scheme=2 state=0 last=98303 lss=512 gptmbr=0 guid=- error=0 noio=0\n"
              "  mbr   0+1 #0 type=00 - active=0 hidden=0 err=0 bits=0\n"
              "  free  1+2047 #0 type=00 - active=0 hidden=0 err=0 bits=0\n"
              "  part  2048+81920 #1 type=0C FAT32 LBA active=0 hidden=0 err=16 bits=0\n"
              "  free  83968+14336 #0 type=00 - active=0 hidden=0 err=0 bits=0\n");
}

TEST_F(DaApiImplTest, FailuresCarryTheirTextAndOperation) {
    auto api = Over({"mbr.img"});
    EXPECT_EQ(FailureOf([&] { api->DaGetProperty(Prop::kComputerName); }), "No current machine. @DaGetProperty");
    EXPECT_EQ(FailureOf([&] { api->DaGetComputerError(); }),
              "Object 'Computer' cannot be found. @DaGetComputerError");
    EXPECT_EQ(FailureOf([&] { api->DaSetProperty(Prop::kNextDisk, 0); }), "No current machine. @DaSetProperty");
    api->DaSetProperty(Prop::kSelectComputer, Prop::kComputerName);
    EXPECT_STREQ(Text8(api->DaGetProperty(Prop::kComputerName)), "TESTPC");
    EXPECT_TRUE(api->DaGetComputerError().Succeeded());
    EXPECT_EQ(FailureOf([&] { api->DaGetProperty(Prop::kModel); }), "No current disk. @DaGetProperty");
    EXPECT_EQ(FailureOf([&] { api->DaGetProperty(12345); }), "An invalid property. @DaGetProperty");
    EXPECT_EQ(FailureOf([&] { api->DaSetProperty(Prop::kSelectDiskNumber, 7); }), "No current disk. @DaSetProperty");
    api->DaSetProperty(Prop::kSelectDiskNumber, 0);
    EXPECT_EQ(FailureOf([&] { api->DaGetProperty(Prop::kSectorCount); }), "No current partition. @DaGetProperty");
    EXPECT_EQ(FailureOf([&] { api->GetFsProperty(Prop::kBlockCount); }), "No current partition. @GetFsProperty");
    EXPECT_EQ(FailureOf([&] { api->DaGetProperty2(Prop::kDriveLetter, 0); }), "No current partition. @DaGetProperty2");
    EXPECT_EQ(FailureOf([&] { api->DaSetProperty(Prop::kNextVolumeObject, 0); }), "No context. @DaSetProperty");
    SelectObjectAt(*api, 2048);
    EXPECT_EQ(FailureOf([&] { api->DaGetProperty(Prop::kOsPartitionNumber); }),
              "The context parameter is not filled yet. @DaGetProperty");
    EXPECT_EQ(FailureOf([&] { api->DaSetProperty(Prop::kTypeByte, 0x07); }), "The disk is read-only. @DaSetProperty");
    EXPECT_EQ(FailureOf([&] { api->GetFsProperty(Prop::kSectorCount); }), "An invalid property. @GetFsProperty");
    EXPECT_EQ(FailureOf([&] { api->DaGetProperty1(Prop::kSectorCount, 0); }), "An invalid property. @DaGetProperty1");
    EXPECT_EQ(FailureOf([&] { api->DaSetProperty(Prop::kObjectHandle, 0x999); }),
              "No current partition. @DaSetProperty");
    // Dropping the disk drops the object; releasing the computer drops both.
    api->DaSetProperty(Prop::kDropDisk, 0);
    EXPECT_EQ(api->DaGetProperty(Prop::kDiskHandle), 0u);
    EXPECT_EQ(FailureOf([&] { api->DaGetProperty(Prop::kObjectHandle); }), "No current disk. @DaGetProperty");
    api->DaSetProperty(Prop::kReleaseComputer, Prop::kComputerName);
    EXPECT_EQ(FailureOf([&] { api->DaGetProperty(Prop::kDiskHandle); }), "No current machine. @DaGetProperty");
}

TEST_F(DaApiImplTest, SelectionByNumberHandleAndWalk) {
    auto api = Over({"mbr.img", "gpt.img", "floppy.img"});
    api->DaSetProperty(Prop::kSelectComputer, Prop::kComputerName);
    EXPECT_EQ(api->DaGetProperty(Prop::kDiskCount), 3u);
    std::vector<Value> handles;
    for (api->DaSetProperty(Prop::kNextDisk, 0); api->DaGetProperty(Prop::kDiskHandle);
         api->DaSetProperty(Prop::kNextDisk, 0))
        handles.push_back(api->DaGetProperty(Prop::kDiskHandle));
    ASSERT_EQ(handles.size(), 3u);
    EXPECT_NE(handles[0], handles[1]);
    // A walk past the last disk leaves none current; the next step starts again at the first.
    api->DaSetProperty(Prop::kNextDisk, 0);
    EXPECT_EQ(api->DaGetProperty(Prop::kDiskHandle), handles[0]);

    api->DaSetProperty(Prop::kDiskHandle, handles[1]);
    EXPECT_EQ(api->DaGetProperty(Prop::kDiskNumber), 1u);
    SelectObjectAt(*api, 92160);
    const Value basicData = api->DaGetProperty(Prop::kObjectHandle);
    api->DaSetProperty(Prop::kObjectHandle, 0);
    EXPECT_EQ(api->DaGetProperty(Prop::kObjectHandle), 0u);
    api->DaSetProperty(Prop::kObjectHandle, basicData);
    EXPECT_EQ(api->DaGetProperty(Prop::kPartitionNumber), 3u);
    EXPECT_STREQ(Text8(api->DaGetProperty(Prop::kObjectGuid)), "5EED0002-0003-4000-8000-000000000000");
    EXPECT_EQ(api->DaGetProperty(Prop::kSchemeTypeByte), 0xEEu);
    EXPECT_EQ(api->DaGetProperty(Prop::kVolumeHandle), basicData);
    // An object handle of another disk is refused.
    api->DaSetProperty(Prop::kSelectDiskNumber, 0);
    EXPECT_THROW(api->DaSetProperty(Prop::kObjectHandle, basicData), Common::ErrorException);
    // Objects that are not partitions read as 0 where only partitions answer: absent is 0, not a failure.
    SelectObjectAt(*api, 0);
    EXPECT_EQ(api->DaGetProperty(Prop::kIsMbr), 1u);
    EXPECT_EQ(api->DaGetProperty(Prop::kPartitionNumber), 0u);
    EXPECT_EQ(api->DaGetProperty(Prop::kVolumeLabel), 0u);
    EXPECT_EQ(api->GetFsProperty(Prop::kBlockCount), 0u);
    EXPECT_EQ(api->DaGetProperty(Prop::kDriveLetter), 0u);
    api->DaSetProperty(Prop::kNumbering, 2);
    EXPECT_EQ(api->DaGetProperty(Prop::kOsPartitionNumber), 65535u);
}

// The file-system values themselves are the dump's and the fixture golden report's.
TEST_F(DaApiImplTest, FileSystemCheckAndComputerFacts) {
    auto api = Over({"floppy.img"});
    SelectDisk(*api, 0);
    SelectObjectAt(*api, 0);
    // File-system properties answer through DaGetProperty as well.
    EXPECT_EQ(api->DaGetProperty(Prop::kBlockCount), api->GetFsProperty(Prop::kBlockCount));
    EXPECT_EQ(api->DaGetProperty(Prop::kCheckCount), 0u);
    EXPECT_EQ(api->DaGetProperty(Prop::kCheckAuthoritative), 0u);
    api->DaSetProperty(Prop::kRequestCheck, 0);
    api->DaSetProperty(Prop::kRequestCheck, 0);
    EXPECT_EQ(api->DaGetProperty(Prop::kCheckCount), 2u);
    EXPECT_EQ(api->DaGetProperty(Prop::kCheckAuthoritative), 1u);
    EXPECT_EQ(api->DaGetProperty(Prop::kWarnings), 0u);
    EXPECT_EQ(api->DaGetProperty(Prop::kErrorText), 0u);

    api->DaSetProperty(Prop::kSelectComputer, Prop::kComputerName);
    EXPECT_EQ(api->DaGetProperty(Prop::kUsedDriveLetters), 0b101u);
    EXPECT_EQ(api->DaGetProperty1(Prop::kVolumeFreeBytes, 'C'), 4096u);
    EXPECT_EQ(api->DaGetProperty1(Prop::kVolumeFreeBytes, 'D'), 0u);
    EXPECT_EQ(api->DaGetProperty1(Prop::kLabelLength, 10), 32u);
    EXPECT_EQ(api->DaGetProperty1(Prop::kCountsFreeSpace, 17), 0u);
}

TEST_F(DaApiImplTest, SectorReadsStayOnTheDiskAndStop) {
    auto api = Over({"mbr.img", "missing.img"});
    std::vector<std::uint8_t> data;
    EXPECT_TRUE(api->ReadSectors(0, 1, data).Failed());  // no disk selected
    SelectDisk(*api, 0);
    ASSERT_TRUE(api->ReadSectors(0, 2, data).Succeeded());
    ASSERT_EQ(data.size(), 1024u);
    EXPECT_EQ(data[510], 0x55);
    EXPECT_EQ(data[511], 0xAA);
    EXPECT_TRUE(api->ReadSectors(131071, 1, data).Succeeded());
    EXPECT_TRUE(api->ReadSectors(131071, 2, data).Failed());
    EXPECT_TRUE(api->ReadSectors(~0ull, 1, data).Failed());
    api->DaSetProperty(Prop::kSelectDiskNumber, 1);
    EXPECT_EQ(api->DaGetProperty(Prop::kNoIo), 1u);
    EXPECT_TRUE(api->ReadSectors(0, 1, data).Failed());
    api->DaSetProperty(Prop::kSelectDiskNumber, 0);
    api->Stop();
    const Common::Error stopped = api->ReadSectors(0, 1, data);
    EXPECT_EQ(stopped.Code(), Common::Codes::kCanceled);
}

// The machine's own disks (under Wine, its PhysicalDrive0): whatever they hold, the walk answers and ends.
TEST(DaApiSystemDisks, WalkOverTheMachinesDisksEnds) {
    auto api = MakeMachineInterface(Disk::MakeSystemSource(), TestComputer());
    std::string dump;
    ASSERT_NO_THROW(dump = TestSupport::DumpDisks(*api));
    api->DaSetProperty(Prop::kSelectComputer, Prop::kComputerName);
    std::size_t disks = 0;
    for (std::size_t at = dump.find("disk "); at != std::string::npos; at = dump.find("\ndisk ", at + 1)) ++disks;
    EXPECT_EQ(disks, api->DaGetProperty(Prop::kDiskCount)) << dump;
}

}  // namespace

namespace {

// The boot configuration report's walk: from the computer level, every disk's objects in turn; each
// partition's volume mounted through the way that serves it.
TEST_F(DaApiImplTest, ObjectWalkFromTheComputerMountsEachPartitionsVolume) {
    auto api = Over({"fat12-files.img", "empty.img", "files.img"});
    api->DaSetProperty(Prop::kSelectComputer, Prop::kComputerName);
    api->DaSetProperty(Prop::kDropDisk, 0);
    api->DaSetProperty(Prop::kObjectHandle, 0);
    std::string walk;
    for (api->DaSetProperty(Prop::kNextObject, 0); api->DaGetProperty(Prop::kObjectHandle) != 0;
         api->DaSetProperty(Prop::kNextObject, 0)) {
        EXPECT_EQ(api->DaGetProperty(Prop::kSkip), 0u);
        const Value volume = api->DaGetProperty(Prop::kVolumeHandle);
        if (volume == 0) continue;
        api->DaSetProperty(Prop::kVolumeHandle, volume);
        std::unique_ptr<Disk::MountedVolume> mounted;
        const Common::Error error = api->MountVolume(volume, mounted);
        walk += std::to_string(api->DaGetProperty(Prop::kDiskNumber)) + "-" +
                std::to_string(api->DaGetProperty(Prop::kPartitionNumber)) + " " +
                (error.Succeeded() ? mounted->Way() : "error") + "\n";
    }
    // Windows has no file-system library here: NTFS inside an image stays unread there.
    const std::string ntfs = Disk::LibraryReads(Disk::FsType::kNtfs) ? "file-system library" : "error";
    EXPECT_EQ(walk, "0-0 FAT reader\n2-1 FAT reader\n2-2 " + ntfs + "\n");
    // A handle that names no partition's volume mounts nothing.
    std::unique_ptr<Disk::MountedVolume> mounted;
    EXPECT_TRUE(api->MountVolume(0x999, mounted).Failed());
    EXPECT_FALSE(mounted);
}

}  // namespace
