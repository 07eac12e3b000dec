// Formats recognised by their signature, with the few superblock fields that come cheaply: XFS, Linux swap,
// LVM2 physical volumes, BitLocker, ReFS, HFS+/HFSX, JFS, Reiser4, ReiserFS, GFS2, HPFS, OCFS2 and ASM.
#include "core/disk/bytes.h"
#include "core/disk/fs_probe.h"

namespace Disk {
namespace {

// A found format of which only the type is known; the partition's size stands for the file system's.
ProbeResult TypeOnly(VolumeReader& volume, FsType type) {
    FileSystemInfo info;
    info.type = type;
    info.sizeBytes = volume.Size();
    return ProbeResult::Found(std::move(info));
}

}  // namespace

// XFS superblock (big-endian) at byte 0: "XFSB", sb_blocksize at 4, sb_dblocks at 8, sb_uuid at 32,
// sb_logstart at 48, sb_logblocks at 96, sb_versionnum at 100, sb_inodesize at 104, sb_fname at 108,
// sb_icount at 128, sb_ifree at 136, sb_fdblocks at 144.
ProbeResult ProbeXfs(VolumeReader& volume) {
    std::vector<std::uint8_t> sb;
    if (!volume.TryRead(0, 512, sb) || !HasMagic(sb, 0, "XFSB")) return ProbeResult::NotThisFormat();
    const std::uint32_t blockBytes = Be32(sb, 4);
    if (blockBytes < 512 || blockBytes > 65536 || (blockBytes & (blockBytes - 1)))
        return ProbeResult::Failed("block size " + std::to_string(blockBytes));
    FileSystemInfo info;
    info.type = FsType::kXfs;
    info.blockBytes = blockBytes;
    info.blockCount = Be64(sb, 8);
    info.sizeBytes = info.blockCount * blockBytes;
    info.freeBlocks = Be64(sb, 144);
    info.serial.assign(sb.begin() + 32, sb.begin() + 48);
    if (Be64(sb, 48) != 0) info.journalBlocks = Be32(sb, 96);
    if ((Be16(sb, 100) & 0x000F) == 4) info.options |= kOptXfs4;
    info.inodeSize = Be16(sb, 104);
    info.label = LabelFromUtf8(Bytes(sb).subspan(108, 12));
    info.inodeCount = Be64(sb, 128);
    info.freeInodes = Be64(sb, 136);
    if (info.freeBlocks > info.blockCount || info.freeInodes > info.inodeCount)
        return ProbeResult::Failed("free counts exceed totals");
    return ProbeResult::Found(std::move(info));
}

// Linux swap: "SWAPSPACE2" (or the old "SWAP-SPACE") in the last ten bytes of the first page; the header
// after the boot block holds last_page at 1028, the UUID at 1036 and the label at 1052.
ProbeResult ProbeLinuxSwap(VolumeReader& volume) {
    std::vector<std::uint8_t> tail;
    for (const std::uint32_t page : {4096u, 8192u, 16384u, 65536u}) {
        if (!volume.TryRead(page - 10, 10, tail)) break;
        if (!HasMagic(tail, 0, "SWAPSPACE2") && !HasMagic(tail, 0, "SWAP-SPACE")) continue;
        std::vector<std::uint8_t> header;
        if (!volume.TryRead(1024, 44, header)) return ProbeResult::Failed("header cannot be read");
        FileSystemInfo info;
        info.type = FsType::kLinuxSwap;
        info.blockBytes = page;
        info.blockCount = std::uint64_t{Le32(header, 4)} + 1;
        info.sizeBytes = info.blockCount * page;
        info.serial.assign(header.begin() + 12, header.begin() + 28);
        info.label = LabelFromUtf8(Bytes(header).subspan(28, 16));
        return ProbeResult::Found(std::move(info));
    }
    return ProbeResult::NotThisFormat();
}

// LVM2 label: "LABELONE" at the start of one of the first four 512-byte sectors, type "LVM2 001" at 24,
// the PV header at the offset held at 20, with the 32-character PV UUID then the device size.
ProbeResult ProbeLvmPv(VolumeReader& volume) {
    std::vector<std::uint8_t> head;
    if (!volume.TryRead(0, 2048, head)) return ProbeResult::NotThisFormat();
    for (std::size_t sector = 0; sector < 4; ++sector) {
        const Bytes label = Bytes(head).subspan(sector * 512, 512);
        if (!HasMagic(label, 0, "LABELONE") || !HasMagic(label, 24, "LVM2 001")) continue;
        const std::uint32_t header = Le32(label, 20);
        if (header < 32 || header + 40 > 512) return ProbeResult::Failed("PV header offset out of range");
        FileSystemInfo info;
        info.type = FsType::kLvmPv;
        info.sizeBytes = Le64(label, header + 32);
        if (info.sizeBytes == 0) info.sizeBytes = volume.Size();
        info.serial.assign(label.begin() + header, label.begin() + header + 32);
        return ProbeResult::Found(std::move(info));
    }
    return ProbeResult::NotThisFormat();
}

// BitLocker: the boot sector's OEM name is "-FVE-FS-"; the contents are encrypted.
ProbeResult ProbeBitLocker(VolumeReader& volume) {
    std::vector<std::uint8_t> sector;
    if (!volume.TryRead(0, 512, sector) || !HasMagic(sector, 3, "-FVE-FS-")) return ProbeResult::NotThisFormat();
    ProbeResult result = TypeOnly(volume, FsType::kBitLocker);
    result.info.encrypted = true;
    return result;
}

// ReFS: "ReFS" and four NULs at 3, "FSRS" at 16.
ProbeResult ProbeRefs(VolumeReader& volume) {
    std::vector<std::uint8_t> sector;
    if (!volume.TryRead(0, 512, sector) || !HasMagic(sector, 3, std::string_view("ReFS\0\0\0\0", 8)) ||
        !HasMagic(sector, 16, "FSRS"))
        return ProbeResult::NotThisFormat();
    ProbeResult result = TypeOnly(volume, FsType::kRefs);
    result.info.serial.assign(sector.begin() + 56, sector.begin() + 64);
    return result;
}

// HFS+ ("H+") and HFSX ("HX") volume header at 1024, big-endian: blockSize at 40, totalBlocks at 44,
// freeBlocks at 48.
ProbeResult ProbeHfsPlus(VolumeReader& volume) {
    std::vector<std::uint8_t> header;
    if (!volume.TryRead(1024, 512, header)) return ProbeResult::NotThisFormat();
    const bool plus = HasMagic(header, 0, "H+");
    if (!plus && !HasMagic(header, 0, "HX")) return ProbeResult::NotThisFormat();
    const std::uint32_t blockBytes = Be32(header, 40);
    if (blockBytes < 512 || (blockBytes & (blockBytes - 1))) return ProbeResult::Failed("block size out of range");
    FileSystemInfo info;
    info.type = plus ? FsType::kHfsPlus : FsType::kHfsx;
    info.blockBytes = blockBytes;
    info.blockCount = Be32(header, 44);
    info.freeBlocks = Be32(header, 48);
    info.sizeBytes = info.blockCount * blockBytes;
    return ProbeResult::Found(std::move(info));
}

// JFS: "JFS1" at the superblock, 32 KiB in.
ProbeResult ProbeJfs(VolumeReader& volume) {
    std::vector<std::uint8_t> sb;
    if (!volume.TryRead(32768, 512, sb) || !HasMagic(sb, 0, "JFS1")) return ProbeResult::NotThisFormat();
    return TypeOnly(volume, FsType::kJfs);
}

// Reiser4: "ReIsEr4" at the master superblock, 64 KiB in; the label at 36.
ProbeResult ProbeReiser4(VolumeReader& volume) {
    std::vector<std::uint8_t> sb;
    if (!volume.TryRead(65536, 512, sb) || !HasMagic(sb, 0, "ReIsEr4")) return ProbeResult::NotThisFormat();
    ProbeResult result = TypeOnly(volume, FsType::kReiser4);
    result.info.serial.assign(sb.begin() + 20, sb.begin() + 36);
    result.info.label = LabelFromBytes(Bytes(sb).subspan(36, 16));
    return result;
}

// ReiserFS: the superblock 64 KiB in (8 KiB in for old 3.5 volumes), s_block_count at 0, s_free_blocks at
// 4, s_blocksize at 44, the magic at 52 ("ReIsErFs" for the 3.5 format), UUID at 84, label at 100.
ProbeResult ProbeReiser(VolumeReader& volume) {
    std::vector<std::uint8_t> sb;
    for (const std::uint64_t offset : {65536ull, 8192ull}) {
        if (!volume.TryRead(offset, 512, sb)) continue;
        const bool old = HasMagic(sb, 52, "ReIsErFs");
        if (!old && !HasMagic(sb, 52, "ReIsEr2Fs") && !HasMagic(sb, 52, "ReIsEr3Fs")) continue;
        const std::uint32_t blockBytes = Le16(sb, 44);
        if (blockBytes < 512 || (blockBytes & (blockBytes - 1))) return ProbeResult::Failed("block size out of range");
        FileSystemInfo info;
        info.type = FsType::kReiser;
        info.blockBytes = blockBytes;
        info.blockCount = Le32(sb, 0);
        info.freeBlocks = Le32(sb, 4);
        info.sizeBytes = info.blockCount * blockBytes;
        if (old) {
            info.options |= kOptReiserfs35;
        } else {
            info.serial.assign(sb.begin() + 84, sb.begin() + 100);
            info.label = LabelFromBytes(Bytes(sb).subspan(100, 16));
        }
        return ProbeResult::Found(std::move(info));
    }
    return ProbeResult::NotThisFormat();
}

// GFS2: at 64 KiB, the big-endian magic 0x01161970 with metadata type 1 (superblock).
ProbeResult ProbeGfs2(VolumeReader& volume) {
    std::vector<std::uint8_t> sb;
    if (!volume.TryRead(65536, 512, sb) || Be32(sb, 0) != 0x01161970 || Be32(sb, 4) != 1)
        return ProbeResult::NotThisFormat();
    return TypeOnly(volume, FsType::kGfs2);
}

// HPFS: the superblock at sector 16 starts with 0xF995E849 and 0xFA53E9C5.
ProbeResult ProbeHpfs(VolumeReader& volume) {
    std::vector<std::uint8_t> sb;
    if (!volume.TryRead(8192, 512, sb) || Le32(sb, 0) != 0xF995E849 || Le32(sb, 4) != 0xFA53E9C5)
        return ProbeResult::NotThisFormat();
    return TypeOnly(volume, FsType::kHpfs);
}

// Oracle: an OCFS2 superblock ("OCFSV2" at block 2, for block sizes 512 to 4096) or an ASM disk
// ("ORCLDISK" at 32).
ProbeResult ProbeOracle(VolumeReader& volume) {
    std::vector<std::uint8_t> block;
    if (volume.TryRead(0, 512, block) && HasMagic(block, 32, "ORCLDISK")) return TypeOnly(volume, FsType::kOracle);
    for (const std::uint64_t blockBytes : {512ull, 1024ull, 2048ull, 4096ull})
        if (volume.TryRead(2 * blockBytes, 8, block) && HasMagic(block, 0, "OCFSV2"))
            return TypeOnly(volume, FsType::kOracle);
    return ProbeResult::NotThisFormat();
}

}  // namespace Disk
