// File-system probes: one descriptor per format, each answering found, not this format, or failed.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "core/disk/block_device.h"
#include "core/disk/fat.h"
#include "core/disk/partition_types.h"
#include "core/disk/problems.h"

namespace Disk {

// The bytes of one region of a disk (a partition), clipped to the disk. Reads outside the region fail.
class VolumeReader {
public:
    VolumeReader(SectorReader& disk, std::uint64_t firstSector, std::uint64_t sectorCount);

    std::uint64_t Size() const { return sizeBytes_; }
    std::uint32_t SectorSize() const { return disk_.SectorSize(); }
    // Replaces `data` with `length` bytes from byte `offset` of the region.
    Common::Error Read(std::uint64_t offset, std::size_t length, std::vector<std::uint8_t>& data);
    // The same, as a yes/no for probes that only look for a signature.
    bool TryRead(std::uint64_t offset, std::size_t length, std::vector<std::uint8_t>& data) {
        return Read(offset, length, data).Succeeded();
    }

private:
    SectorReader& disk_;
    std::uint64_t firstSector_;
    std::uint64_t sizeBytes_;
};

// Option flags the report lists, one bit each.
enum FsOption : std::uint32_t {
    kOptFat12 = 1u << 0,
    kOptExt2SparseSuper = 1u << 1,
    kOptExt2Filetype = 1u << 2,
    kOptExt2LargeFile = 1u << 3,
    kOptExt2ExtAttr = 1u << 4,
    kOptExt2DirPrealloc = 1u << 5,
    kOptExt2DirIndex = 1u << 6,
    kOptExt2MetaBg = 1u << 7,
    kOptExt2ResizeInode = 1u << 8,
    kOptReiserfs35 = 1u << 9,
    kOptXfs4 = 1u << 10,
    kOptExt4HugeFile = 1u << 11,
    kOptExt4GdtCsum = 1u << 12,
    kOptExt4DirNlink = 1u << 13,
    kOptExt4Extents = 1u << 14,
    kOptExt4_64Bit = 1u << 15,
    kOptExt4FlexBg = 1u << 16,
    kOptExt4ExtraIsize = 1u << 17,
    kOptExt4MetadataCsum = 1u << 18,
};

// What a probe learnt. Sizes are in bytes so that they do not depend on the disk's sector size.
struct FileSystemInfo {
    FsType type = FsType::kNone;
    std::uint64_t sizeBytes = 0;
    std::uint32_t blockBytes = 0;
    std::uint64_t blockCount = 0;
    std::optional<std::uint64_t> freeBlocks;
    std::uint64_t badBlocks = 0;
    std::uint64_t reservedBytes = 0;
    // FAT
    std::uint32_t fatBits = 0;
    std::uint32_t fatCount = 0;
    std::uint64_t fatBytes = 0;
    std::uint32_t rootEntries = 0;
    std::uint32_t usedRootEntries = 0;
    std::shared_ptr<const FatScan> fatScan;  // the probe's pass over the FAT, which the check reuses
    // Inode file systems
    std::uint32_t inodeSize = 0;
    std::uint64_t inodeCount = 0;
    std::uint64_t freeInodes = 0;
    std::uint64_t bytesPerInode = 0;
    std::uint64_t journalBlocks = 0;

    std::uint32_t options = 0;  // FsOption bits
    std::u16string label;
    std::vector<std::uint8_t> serial;  // on-disk byte order
    bool encrypted = false;
};

enum class ProbeOutcome { kFound, kNotThisFormat, kFailed };

struct ProbeResult {
    ProbeOutcome outcome = ProbeOutcome::kNotThisFormat;
    FileSystemInfo info;
    std::string failure;  // kFailed: the format's signature is there but its structure is not sound

    static ProbeResult NotThisFormat() { return {}; }
    static ProbeResult Failed(std::string why) { return {ProbeOutcome::kFailed, {}, std::move(why)}; }
    static ProbeResult Found(FileSystemInfo info) { return {ProbeOutcome::kFound, std::move(info), {}}; }
};

struct FsDescriptor {
    const char* name;
    FsType type;
    ProbeResult (*probe)(VolumeReader& volume);
};

// In probing order: formats with strong signatures first, FAT (whose signature is weakest) after those
// that share its boot-sector layout.
std::span<const FsDescriptor> FileSystemDescriptors();

// The first probe that finds its format wins. A failed probe is the answer only when no other finds one.
ProbeResult ProbeFileSystem(VolumeReader& volume);

// The read-only check behind the DA-API's "check this file system" request.
struct CheckResult {
    bool authoritative = false;  // the check read every structure it judges (the whole FAT, for example)
    std::uint32_t warnings = 0;  // FsWarning bits
    std::vector<Issue> issues;
};
inline constexpr std::uint32_t kWarnFatCorrupted = 1u << 0;
inline constexpr std::uint32_t kWarnDifferentFatCopies = 1u << 1;
inline constexpr std::uint32_t kWarnLostClusters = 1u << 3;
inline constexpr std::uint32_t kWarnInvalidFatSize = 1u << 6;

// Fails when the volume cannot be read.
Common::Error CheckFileSystem(VolumeReader& volume, const FileSystemInfo& info, CheckResult& result);

// The probes, one per file.
ProbeResult ProbeFat(VolumeReader& volume);
ProbeResult ProbeExfat(VolumeReader& volume);
ProbeResult ProbeNtfs(VolumeReader& volume);
ProbeResult ProbeExt(VolumeReader& volume);
ProbeResult ProbeXfs(VolumeReader& volume);
ProbeResult ProbeLinuxSwap(VolumeReader& volume);
ProbeResult ProbeLvmPv(VolumeReader& volume);
ProbeResult ProbeBitLocker(VolumeReader& volume);
ProbeResult ProbeRefs(VolumeReader& volume);
ProbeResult ProbeHfsPlus(VolumeReader& volume);
ProbeResult ProbeJfs(VolumeReader& volume);
ProbeResult ProbeReiser(VolumeReader& volume);
ProbeResult ProbeReiser4(VolumeReader& volume);
ProbeResult ProbeGfs2(VolumeReader& volume);
ProbeResult ProbeHpfs(VolumeReader& volume);
ProbeResult ProbeOracle(VolumeReader& volume);

// FAT's own check (the FAT copies, their entries and the chains the folders claim); in fs_fat.cpp.
Common::Error CheckFat(VolumeReader& volume, const FileSystemInfo& info, CheckResult& result);

// Text of 8-bit label bytes: trailing blanks and NULs dropped, bytes taken as Latin-1.
std::u16string LabelFromBytes(std::span<const std::uint8_t> bytes);
// Text of UTF-8 label bytes (ext, XFS, swap), up to the first NUL, trailing blanks dropped. A byte that
// does not belong to a sound UTF-8 sequence is taken as Latin-1.
std::u16string LabelFromUtf8(std::span<const std::uint8_t> bytes);
// Text of UTF-16LE label bytes, up to the first NUL.
std::u16string LabelFromUtf16Le(std::span<const std::uint8_t> bytes);

}  // namespace Disk
