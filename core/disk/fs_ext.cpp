// ext2/3/4: the superblock at byte 1024 (layout of the kernel's struct ext4_super_block): counts, sizes,
// label, UUID, feature flags and the journal size kept in the superblock's copy of the journal inode.
#include "core/disk/bytes.h"
#include "core/disk/fs_probe.h"

namespace Disk {
namespace {

constexpr std::uint16_t kMagic = 0xEF53;

// s_feature_compat
constexpr std::uint32_t kCompatDirPrealloc = 0x1;
constexpr std::uint32_t kCompatHasJournal = 0x4;
constexpr std::uint32_t kCompatExtAttr = 0x8;
constexpr std::uint32_t kCompatResizeInode = 0x10;
constexpr std::uint32_t kCompatDirIndex = 0x20;
// s_feature_incompat
constexpr std::uint32_t kIncompatFiletype = 0x2;
constexpr std::uint32_t kIncompatJournalDev = 0x8;
constexpr std::uint32_t kIncompatMetaBg = 0x10;
constexpr std::uint32_t kIncompatExtents = 0x40;
constexpr std::uint32_t kIncompat64Bit = 0x80;
constexpr std::uint32_t kIncompatFlexBg = 0x200;
// s_feature_ro_compat
constexpr std::uint32_t kRoSparseSuper = 0x1;
constexpr std::uint32_t kRoLargeFile = 0x2;
constexpr std::uint32_t kRoHugeFile = 0x8;
constexpr std::uint32_t kRoGdtCsum = 0x10;
constexpr std::uint32_t kRoDirNlink = 0x20;
constexpr std::uint32_t kRoExtraIsize = 0x40;
constexpr std::uint32_t kRoMetadataCsum = 0x400;

// Features that only ext4 has; a journal without them makes ext3.
constexpr std::uint32_t kExt4Incompat = 0x40 | 0x80 | 0x200 | 0x400 | 0x1000 | 0x2000 | 0x4000 | 0x8000 | 0x10000;
constexpr std::uint32_t kExt4RoCompat = kRoHugeFile | kRoGdtCsum | kRoDirNlink | kRoExtraIsize | kRoMetadataCsum;

// s_jnl_backup_type value saying that s_jnl_blocks holds a copy of the journal inode's block map and size.
constexpr std::uint8_t kJournalBackupBlocks = 1;

}  // namespace

ProbeResult ProbeExt(VolumeReader& volume) {
    std::vector<std::uint8_t> sb;
    if (!volume.TryRead(1024, 1024, sb) || Le16(sb, 56) != kMagic) return ProbeResult::NotThisFormat();
    const std::uint32_t compat = Le32(sb, 92);
    const std::uint32_t incompat = Le32(sb, 96);
    const std::uint32_t roCompat = Le32(sb, 100);
    // An external journal device carries the same superblock but no file system.
    if (incompat & kIncompatJournalDev) return ProbeResult::NotThisFormat();
    const std::uint32_t logBlock = Le32(sb, 24);
    if (logBlock > 6) return ProbeResult::Failed("block size shift " + std::to_string(logBlock));
    const std::uint32_t blockBytes = 1024u << logBlock;
    const bool wide = incompat & kIncompat64Bit;
    const std::uint64_t blocks = Le32(sb, 4) | (wide ? std::uint64_t{Le32(sb, 336)} << 32 : 0);
    const std::uint64_t freeBlocks = Le32(sb, 12) | (wide ? std::uint64_t{Le32(sb, 344)} << 32 : 0);
    const std::uint32_t inodes = Le32(sb, 0);
    if (blocks == 0 || inodes == 0 || freeBlocks > blocks || Le32(sb, 16) > inodes)
        return ProbeResult::Failed("block or inode counts out of range");

    FileSystemInfo info;
    info.type = (incompat & kExt4Incompat) || (roCompat & kExt4RoCompat) ? FsType::kExt4
                : (compat & kCompatHasJournal)                           ? FsType::kExt3
                                                                         : FsType::kExt2;
    info.sizeBytes = blocks * blockBytes;
    info.blockBytes = blockBytes;
    info.blockCount = blocks;
    info.freeBlocks = freeBlocks;
    // The blocks before the first data block (the boot block of a 1 KiB-block file system).
    info.reservedBytes = std::uint64_t{Le32(sb, 20)} * blockBytes;
    // Revision 0 has fixed 128-byte inodes.
    info.inodeSize = Le32(sb, 76) == 0 ? 128 : Le16(sb, 88);
    info.inodeCount = inodes;
    info.freeInodes = Le32(sb, 16);
    info.bytesPerInode = info.sizeBytes / inodes;
    if ((compat & kCompatHasJournal) && sb[253] == kJournalBackupBlocks) {
        // s_jnl_blocks[15] is the journal inode's i_size_high, [16] its i_size.
        const std::uint64_t journalBytes = std::uint64_t{Le32(sb, 268 + 15 * 4)} << 32 | Le32(sb, 268 + 16 * 4);
        info.journalBlocks = journalBytes / blockBytes;
    }
    info.label = LabelFromUtf8(Bytes(sb).subspan(120, 16));
    info.serial.assign(sb.begin() + 104, sb.begin() + 120);

    struct Flag {
        std::uint32_t field;
        std::uint32_t bit;
        std::uint32_t option;
    };
    const std::uint32_t fields[] = {compat, incompat, roCompat};
    constexpr Flag kFlags[] = {
        {2, kRoSparseSuper, kOptExt2SparseSuper}, {1, kIncompatFiletype, kOptExt2Filetype},
        {2, kRoLargeFile, kOptExt2LargeFile},     {0, kCompatExtAttr, kOptExt2ExtAttr},
        {0, kCompatDirPrealloc, kOptExt2DirPrealloc}, {0, kCompatDirIndex, kOptExt2DirIndex},
        {1, kIncompatMetaBg, kOptExt2MetaBg},     {0, kCompatResizeInode, kOptExt2ResizeInode},
        {2, kRoHugeFile, kOptExt4HugeFile},       {2, kRoGdtCsum, kOptExt4GdtCsum},
        {2, kRoDirNlink, kOptExt4DirNlink},       {1, kIncompatExtents, kOptExt4Extents},
        {1, kIncompat64Bit, kOptExt4_64Bit},      {1, kIncompatFlexBg, kOptExt4FlexBg},
        {2, kRoExtraIsize, kOptExt4ExtraIsize},   {2, kRoMetadataCsum, kOptExt4MetadataCsum},
    };
    for (const Flag& flag : kFlags)
        if (fields[flag.field] & flag.bit) info.options |= flag.option;
    return ProbeResult::Found(std::move(info));
}

}  // namespace Disk
