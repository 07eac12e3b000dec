// NTFS and exFAT through The Sleuth Kit's library (libtsk, CPL/IPL): it reads the partition through our
// own read callback over the disk, so no partition node or mount is needed and nothing is ever written.
#include <tsk/libtsk.h>

#include <algorithm>
#include <cstring>

#include "core/disk/disk_errors.h"
#include "core/disk/fs_probe.h"
#include "core/disk/volume_mount.h"
#include "core/disk/volume_names.h"

namespace Disk {
namespace {

// The image the library reads: its own header first, as tsk_img_open_external requires, then our reader.
struct Bridge {
    TSK_IMG_INFO info;
    VolumeReader* reader;
};

ssize_t ReadBridge(TSK_IMG_INFO* image, TSK_OFF_T offset, char* buffer, size_t length) {
    VolumeReader& reader = *reinterpret_cast<Bridge*>(image)->reader;
    if (offset < 0 || static_cast<std::uint64_t>(offset) >= reader.Size()) return -1;
    // The library reads in blocks of its cache that may pass the volume's end.
    length = static_cast<size_t>(std::min<std::uint64_t>(length, reader.Size() - static_cast<std::uint64_t>(offset)));
    std::vector<std::uint8_t> data;
    if (reader.Read(static_cast<std::uint64_t>(offset), length, data).Failed()) return -1;
    std::memcpy(buffer, data.data(), length);
    return static_cast<ssize_t>(length);
}

void CloseBridge(TSK_IMG_INFO* image) { delete reinterpret_cast<Bridge*>(image); }
void StatBridge(TSK_IMG_INFO*, FILE*) {}

struct ImageCloser {
    void operator()(TSK_IMG_INFO* image) const { tsk_img_close(image); }
};
struct FsCloser {
    void operator()(TSK_FS_INFO* fs) const { tsk_fs_close(fs); }
};
struct DirCloser {
    void operator()(TSK_FS_DIR* dir) const { tsk_fs_dir_close(dir); }
};
struct FileCloser {
    void operator()(TSK_FS_FILE* file) const { tsk_fs_file_close(file); }
};

Common::Error LibraryError(const std::wstring& what) {
    const char* detail = tsk_error_get();
    std::wstring text = what;
    if (detail) text += L" (" + std::wstring(detail, detail + std::strlen(detail)) + L")";
    tsk_error_reset();
    return Common::Error::Make(Codes::kBadStructure, text);
}

// Everything one mount holds; its directories share it.
struct Session {
    std::unique_ptr<VolumeReader> reader;
    std::unique_ptr<TSK_IMG_INFO, ImageCloser> image;
    std::unique_ptr<TSK_FS_INFO, FsCloser> fs;  // declared last: closed before the image
};

struct Found {
    TSK_INUM_T address = 0;
    VolumeEntry entry;
};

class LibraryDirectory final : public VolumeDirectory {
public:
    LibraryDirectory(std::shared_ptr<Session> session, TSK_INUM_T address)
        : session_(std::move(session)), address_(address) {}

    Common::Error List(std::vector<VolumeEntry>& entries) override {
        entries.clear();
        std::vector<Found> found;
        if (auto error = Load(found); error.Failed()) return error;
        for (auto& item : found) entries.push_back(std::move(item.entry));
        return {};
    }

    Common::Error OpenDirectory(std::string_view name, std::unique_ptr<VolumeDirectory>& directory) override {
        Found found;
        if (auto error = Find(name, true, found); error.Failed()) return error;
        directory = std::make_unique<LibraryDirectory>(session_, found.address);
        return {};
    }

    Common::Error ReadFile(std::string_view name, std::uint64_t limit, std::string& bytes,
                           std::uint64_t& size) override {
        bytes.clear();
        Found found;
        if (auto error = Find(name, false, found); error.Failed()) return error;
        size = found.entry.size;
        std::unique_ptr<TSK_FS_FILE, FileCloser> file(tsk_fs_file_open_meta(session_->fs.get(), nullptr, found.address));
        if (!file) return LibraryError(L"The file cannot be opened");
        bytes.resize(static_cast<std::size_t>(std::min(size, limit)));
        std::size_t done = 0;
        while (done < bytes.size()) {
            const ssize_t got = tsk_fs_file_read(file.get(), static_cast<TSK_OFF_T>(done), bytes.data() + done,
                                                 bytes.size() - done, TSK_FS_FILE_READ_FLAG_NONE);
            if (got <= 0) return LibraryError(L"The file cannot be read");
            done += static_cast<std::size_t>(got);
        }
        return {};
    }

private:
    // What the library adds or keeps for itself is left out: its virtual files and folders ($OrphanFiles,
    // exFAT's $ALLOC_BITMAP) and NTFS's own metadata files, the first 16 MFT records ($MFT ... $Extend).
    bool Hidden(const TSK_FS_FILE& file) const {
        const TSK_FS_NAME& name = *file.name;
        if (!(name.flags & TSK_FS_NAME_FLAG_ALLOC) || TSK_FS_ISDOT(name.name)) return true;
        if (name.type == TSK_FS_NAME_TYPE_VIRT || name.type == TSK_FS_NAME_TYPE_VIRT_DIR) return true;
        if (name.meta_addr == TSK_FS_ORPHANDIR_INUM(session_->fs.get())) return true;
        return TSK_FS_TYPE_ISNTFS(session_->fs->ftype) && name.name[0] == '$' && name.meta_addr < 16;
    }

    Common::Error Load(std::vector<Found>& found) {
        std::unique_ptr<TSK_FS_DIR, DirCloser> dir(tsk_fs_dir_open_meta(session_->fs.get(), address_));
        if (!dir) return LibraryError(L"The folder cannot be opened");
        const std::size_t count = tsk_fs_dir_getsize(dir.get());
        for (std::size_t i = 0; i < count; ++i) {
            std::unique_ptr<TSK_FS_FILE, FileCloser> file(tsk_fs_dir_get(dir.get(), i));
            if (!file || !file->name || !file->name->name || Hidden(*file)) continue;
            Found item;
            item.address = file->name->meta_addr;
            item.entry.name = file->name->name;
            item.entry.directory = TSK_FS_IS_DIR_NAME(file->name->type);
            if (!item.entry.directory && file->meta && file->meta->size > 0)
                item.entry.size = static_cast<std::uint64_t>(file->meta->size);
            found.push_back(std::move(item));
        }
        return {};
    }

    Common::Error Find(std::string_view name, bool directory, Found& result) {
        std::vector<Found> found;
        if (auto error = Load(found); error.Failed()) return error;
        for (auto& item : found) {
            if (item.entry.directory == directory && VolumeNamesEqual(item.entry.name, name)) {
                result = std::move(item);
                return {};
            }
        }
        return Common::Error::Make(Codes::kNotFound, L"There is no such entry.");
    }

    std::shared_ptr<Session> session_;
    TSK_INUM_T address_;
};

class LibraryVolume final : public MountedVolume {
public:
    explicit LibraryVolume(std::shared_ptr<Session> session) : session_(std::move(session)) {}
    std::unique_ptr<VolumeDirectory> Root() override {
        return std::make_unique<LibraryDirectory>(session_, session_->fs->root_inum);
    }
    std::string Way() const override { return "file-system library"; }

private:
    std::shared_ptr<Session> session_;
};

}  // namespace

Common::Error MountWithLibrary(const VolumeToMount& volume, std::unique_ptr<MountedVolume>& mounted) {
    mounted.reset();
    auto session = std::make_shared<Session>();
    session->reader = std::make_unique<VolumeReader>(*volume.disk, volume.firstSector, volume.sectorCount);
    auto* bridge = new Bridge{};
    bridge->reader = session->reader.get();
    // On success the image owns the bridge and frees it through CloseBridge.
    TSK_IMG_INFO* image = tsk_img_open_external(bridge, static_cast<TSK_OFF_T>(session->reader->Size()),
                                                session->reader->SectorSize(), ReadBridge, CloseBridge, StatBridge);
    if (!image) {
        delete bridge;
        return LibraryError(L"The file-system library cannot read the volume");
    }
    session->image.reset(image);
    const TSK_FS_TYPE_ENUM type = volume.type == FsType::kExfat ? TSK_FS_TYPE_EXFAT : TSK_FS_TYPE_NTFS;
    session->fs.reset(tsk_fs_open_img(image, 0, type));
    if (!session->fs) return LibraryError(L"The file-system library does not recognise the volume");
    mounted = std::make_unique<LibraryVolume>(std::move(session));
    return {};
}

}  // namespace Disk
