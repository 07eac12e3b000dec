// The FAT file reader. Directory rules from Microsoft's "FAT: General Overview of On-Disk Format" (1.03):
// 32-byte entries, 0x00 ends the directory, 0xE5 marks a deleted entry, long-name entries (attribute 0x0F)
// precede their short entry in reverse order and carry the short name's checksum.
#include "core/disk/fat_volume.h"

#include <algorithm>

#include "core/disk/disk_errors.h"
#include "core/disk/volume_names.h"

namespace Disk {
namespace {

constexpr std::uint8_t kAttrDirectory = 0x10;
constexpr std::uint8_t kAttrVolumeId = 0x08;
constexpr std::uint8_t kAttrLongName = 0x0F;

Common::Error Broken(const std::wstring& what) { return Common::Error::Make(Codes::kBadStructure, what); }

std::uint8_t ShortNameChecksum(Bytes name) {
    std::uint8_t sum = 0;
    for (std::size_t i = 0; i < 11; ++i) sum = static_cast<std::uint8_t>(((sum & 1) << 7) + (sum >> 1) + name[i]);
    return sum;
}

// "NAME    EXT" as "name.ext". Windows NT keeps the lower case of an all-lower-case base or extension in
// bits 3 and 4 of byte 12. The bytes are taken as Latin-1.
std::string ShortName(Bytes entry) {
    auto part = [&](std::size_t from, std::size_t length, bool lower) {
        std::u16string text;
        for (std::size_t i = from; i < from + length; ++i) {
            char16_t c = entry[i];
            if (i == 0 && c == 0x05) c = 0xE5;  // a name that really starts with 0xE5
            if (lower && c >= u'A' && c <= u'Z') c += 0x20;
            text.push_back(c);
        }
        while (!text.empty() && text.back() == u' ') text.pop_back();
        return text;
    };
    std::u16string name = part(0, 8, entry[12] & 0x08);
    const std::u16string extension = part(8, 3, entry[12] & 0x10);
    if (!extension.empty()) name += u'.' + extension;
    return Utf16ToUtf8(name);
}

// The byte length of the cluster run that starts at clusters[from]: consecutive clusters are read together.
std::size_t RunLength(const std::vector<std::uint32_t>& clusters, std::size_t from) {
    std::size_t end = from + 1;
    while (end < clusters.size() && clusters[end] == clusters[end - 1] + 1 && end - from < 256) ++end;
    return end - from;
}

class FatDirectory final : public VolumeDirectory {
public:
    FatDirectory(std::shared_ptr<FatFiles> files, std::uint32_t firstCluster)
        : files_(std::move(files)), firstCluster_(firstCluster) {}

    Common::Error List(std::vector<VolumeEntry>& entries) override {
        entries.clear();
        if (auto error = Load(); error.Failed()) return error;
        for (const FatDirEntry& entry : entries_)
            entries.push_back({entry.name, entry.directory, entry.directory ? 0 : std::uint64_t{entry.size}});
        return {};
    }

    Common::Error OpenDirectory(std::string_view name, std::unique_ptr<VolumeDirectory>& directory) override {
        const FatDirEntry* entry = nullptr;
        if (auto error = Find(name, true, entry); error.Failed()) return error;
        directory = std::make_unique<FatDirectory>(files_, entry->firstCluster);
        return {};
    }

    Common::Error ReadFile(std::string_view name, std::uint64_t limit, std::string& bytes,
                           std::uint64_t& size) override {
        const FatDirEntry* entry = nullptr;
        if (auto error = Find(name, false, entry); error.Failed()) return error;
        size = entry->size;
        return files_->ReadFile(*entry, limit, bytes);
    }

private:
    Common::Error Load() {
        if (loaded_) return {};
        if (auto error = files_->ReadDirectory(firstCluster_, entries_); error.Failed()) return error;
        loaded_ = true;
        return {};
    }

    Common::Error Find(std::string_view name, bool directory, const FatDirEntry*& found) {
        if (auto error = Load(); error.Failed()) return error;
        for (const FatDirEntry& entry : entries_) {
            if (entry.directory != directory || !VolumeNamesEqual(entry.name, name)) continue;
            // Cluster 0 in a sub-directory entry stands for the root (as ".." does); nothing else may.
            if (directory && entry.firstCluster == 0) break;
            found = &entry;
            return {};
        }
        return Common::Error::Make(Codes::kNotFound, L"There is no " + std::wstring(directory ? L"folder" : L"file") +
                                                         L" of that name.");
    }

    std::shared_ptr<FatFiles> files_;
    std::uint32_t firstCluster_;
    bool loaded_ = false;
    std::vector<FatDirEntry> entries_;
};

class FatMountedVolume final : public MountedVolume {
public:
    explicit FatMountedVolume(std::unique_ptr<FatFiles> files) : files_(std::move(files)) {}
    std::unique_ptr<VolumeDirectory> Root() override {
        return std::make_unique<FatDirectory>(files_, files_->RootCluster());
    }
    std::string Way() const override { return "FAT reader"; }

private:
    std::shared_ptr<FatFiles> files_;
};

}  // namespace

bool FatDirectoryDecoder::Add(Bytes entries, std::vector<FatDirEntry>& out) {
    for (std::size_t offset = 0; offset + 32 <= entries.size(); offset += 32) {
        const Bytes entry = entries.subspan(offset, 32);
        if (entry[0] == 0x00) return false;
        const std::uint8_t attributes = entry[11];
        if (entry[0] == 0xE5) {
            expected_ = 0;
            continue;
        }
        if ((attributes & 0x3F) == kAttrLongName) {
            const int sequence = entry[0] & 0x1F;
            if (entry[0] & 0x40) {
                longName_.assign(static_cast<std::size_t>(sequence) * 13, u'\0');
                expected_ = sequence;
                checksum_ = entry[13];
            } else if (sequence != expected_ || entry[13] != checksum_) {
                expected_ = 0;  // an orphaned piece: the short name stands alone
                continue;
            }
            if (expected_ == 0 || sequence != expected_) {
                expected_ = 0;
                continue;
            }
            static constexpr std::size_t kUnits[] = {1, 3, 5, 7, 9, 14, 16, 18, 20, 22, 24, 28, 30};
            for (std::size_t k = 0; k < 13; ++k)
                longName_[static_cast<std::size_t>(sequence - 1) * 13 + k] = static_cast<char16_t>(Le16(entry, kUnits[k]));
            --expected_;
            if (expected_ == 0) expected_ = -1;  // complete: the short entry comes next
            continue;
        }
        const bool longNameReady = expected_ == -1 && ShortNameChecksum(entry) == checksum_;
        expected_ = 0;
        if (attributes & kAttrVolumeId) continue;
        if (entry[0] == '.' && (entry[1] == ' ' || (entry[1] == '.' && entry[2] == ' '))) continue;
        FatDirEntry decoded;
        if (longNameReady) {
            const auto end = longName_.find(u'\0');
            decoded.name = Utf16ToUtf8(std::u16string_view(longName_).substr(0, end));
        }
        if (decoded.name.empty()) decoded.name = ShortName(entry);
        decoded.directory = (attributes & kAttrDirectory) != 0;
        decoded.firstCluster = Le16(entry, 26) | (fat32_ ? std::uint32_t{Le16(entry, 20)} << 16 : 0);
        decoded.size = Le32(entry, 28);
        out.push_back(std::move(decoded));
    }
    return true;
}

Common::Error FatFiles::Open(std::unique_ptr<VolumeReader> volume, std::unique_ptr<FatFiles>& files) {
    std::vector<std::uint8_t> sector;
    if (auto error = volume->Read(0, 512, sector); error.Failed()) return error;
    std::string why;
    bool claimed = false;
    const auto layout = DecodeFatBootSector(sector, why, claimed);
    if (!layout) return Broken(L"The volume has no sound FAT boot sector (" + std::wstring(why.begin(), why.end()) + L").");
    if (layout->totalSectors * layout->bytesPerSector > volume->Size())
        return Broken(L"The FAT file system is larger than its partition.");
    files.reset(new FatFiles(std::move(volume), *layout));
    return {};
}

Common::Error FatFiles::ReadDirectory(std::uint32_t firstCluster, std::vector<FatDirEntry>& entries,
                                      std::uint64_t* clusters) {
    entries.clear();
    FatDirectoryDecoder decoder(layout_.fatBits == 32);
    std::vector<std::uint8_t> data;
    if (firstCluster == 0) {
        if (layout_.fatBits == 32) return Broken(L"A FAT32 directory starts at cluster 0.");
        if (auto error = volume_->Read(layout_.RootDirOffset(), std::size_t{layout_.rootEntries} * 32, data);
            error.Failed())
            return error;
        decoder.Add(data, entries);
        if (clusters) *clusters = 0;
        return {};
    }
    const std::uint64_t limit = std::max<std::uint64_t>(1, kMaxDirectoryBytes / layout_.ClusterBytes());
    std::vector<std::uint32_t> chain;
    bool ended = false;
    if (auto error = table_.Chain(firstCluster, limit, chain, ended); error.Failed()) return error;
    if (!ended) return Broken(L"A directory goes on past 65,536 entries.");
    if (clusters) *clusters = chain.size();
    for (std::size_t i = 0; i < chain.size();) {
        const std::size_t run = RunLength(chain, i);
        if (auto error = volume_->Read(layout_.ClusterOffset(chain[i]), run * layout_.ClusterBytes(), data); error.Failed())
            return error;
        if (!decoder.Add(data, entries)) break;
        i += run;
    }
    return {};
}

Common::Error FatFiles::ReadFile(const FatDirEntry& file, std::uint64_t limit, std::string& bytes) {
    bytes.clear();
    const std::uint64_t dataBytes = std::uint64_t{layout_.clusterCount} * layout_.ClusterBytes();
    if (file.size > dataBytes) return Broken(L"The file is larger than the volume's data area.");
    const std::uint64_t wanted = std::min<std::uint64_t>(file.size, limit);
    if (wanted == 0) return {};
    const std::uint64_t needed = (wanted + layout_.ClusterBytes() - 1) / layout_.ClusterBytes();
    std::vector<std::uint32_t> chain;
    bool ended = false;
    // The chain is followed only as far as the part that is read; a chain that ends earlier is too short.
    if (auto error = table_.Chain(file.firstCluster, needed, chain, ended); error.Failed()) return error;
    if (chain.size() < needed) return Broken(L"The file's cluster chain is shorter than its size.");
    std::vector<std::uint8_t> data;
    for (std::size_t i = 0; i < chain.size() && bytes.size() < wanted;) {
        const std::size_t run = RunLength(chain, i);
        if (auto error = volume_->Read(layout_.ClusterOffset(chain[i]), run * layout_.ClusterBytes(), data); error.Failed())
            return error;
        const std::size_t take = static_cast<std::size_t>(std::min<std::uint64_t>(data.size(), wanted - bytes.size()));
        bytes.append(reinterpret_cast<const char*>(data.data()), take);
        i += run;
    }
    return {};
}

std::unique_ptr<MountedVolume> MakeFatMountedVolume(std::unique_ptr<FatFiles> files) {
    return std::make_unique<FatMountedVolume>(std::move(files));
}

}  // namespace Disk
