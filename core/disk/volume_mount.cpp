// The order in which the ways of reading a volume are tried, and the operating system's own mount read
// through the standard file-system library.
#include "core/disk/volume_mount.h"

#include <fstream>
#include <system_error>

#include "core/common/log.h"
#include "core/common/strings.h"
#include "core/disk/disk_errors.h"
#include "core/disk/fat_volume.h"
#include "core/disk/fs_probe.h"
#include "core/disk/volume_names.h"

namespace Disk {
namespace {

namespace fs = std::filesystem;

Common::Error SystemError(const std::error_code& code, const std::wstring& what) {
    return Common::Error::Make(Codes::kOpenFailed, what + L" (" + Common::Utf8ToWide(code.message()) + L")");
}

class SystemDirectory final : public VolumeDirectory {
public:
    explicit SystemDirectory(fs::path path) : path_(std::move(path)) {}

    Common::Error List(std::vector<VolumeEntry>& entries) override {
        entries.clear();
        std::error_code code;
        fs::directory_iterator it(path_, code);
        for (; !code && it != fs::directory_iterator(); it.increment(code)) {
            VolumeEntry entry;
            entry.name = Common::PathToUtf8(it->path().filename());
            // Links are not followed: they could lead out of the volume.
            entry.directory = it->is_directory(code) && !it->is_symlink(code);
            if (!entry.directory && it->is_regular_file(code)) entry.size = it->file_size(code);
            code.clear();
            entries.push_back(std::move(entry));
        }
        if (code) return SystemError(code, L"The folder cannot be listed");
        return {};
    }

    Common::Error OpenDirectory(std::string_view name, std::unique_ptr<VolumeDirectory>& directory) override {
        VolumeEntry entry;
        if (auto error = Find(name, true, entry); error.Failed()) return error;
        directory = std::make_unique<SystemDirectory>(path_ / Common::PathFromUtf8(entry.name));
        return {};
    }

    Common::Error ReadFile(std::string_view name, std::uint64_t limit, std::string& bytes,
                           std::uint64_t& size) override {
        bytes.clear();
        VolumeEntry entry;
        if (auto error = Find(name, false, entry); error.Failed()) return error;
        size = entry.size;
        std::ifstream in(path_ / Common::PathFromUtf8(entry.name), std::ios::binary);
        if (!in) return Common::Error::Make(Codes::kOpenFailed, L"The file cannot be opened.");
        bytes.resize(static_cast<std::size_t>(std::min(size, limit)));
        in.read(bytes.data(), static_cast<std::streamsize>(bytes.size()));
        bytes.resize(static_cast<std::size_t>(in.gcount()));
        return {};
    }

private:
    Common::Error Find(std::string_view name, bool directory, VolumeEntry& found) {
        std::vector<VolumeEntry> entries;
        if (auto error = List(entries); error.Failed()) return error;
        for (const VolumeEntry& entry : entries) {
            if (entry.directory == directory && VolumeNamesEqual(entry.name, name)) {
                found = entry;
                return {};
            }
        }
        return Common::Error::Make(Codes::kNotFound, L"There is no such entry.");
    }

    fs::path path_;
};

class SystemVolume final : public MountedVolume {
public:
    SystemVolume(fs::path root, std::string way) : root_(std::move(root)), way_(std::move(way)) {}
    std::unique_ptr<VolumeDirectory> Root() override { return std::make_unique<SystemDirectory>(root_); }
    std::string Way() const override { return way_; }

private:
    fs::path root_;
    std::string way_;
};

Common::Error MountFat(const VolumeToMount& volume, std::unique_ptr<MountedVolume>& mounted) {
    std::unique_ptr<FatFiles> files;
    auto reader = std::make_unique<VolumeReader>(*volume.disk, volume.firstSector, volume.sectorCount);
    if (auto error = FatFiles::Open(std::move(reader), files); error.Failed()) return error;
    mounted = MakeFatMountedVolume(std::move(files));
    return {};
}

bool IsFat(FsType type) { return type == FsType::kFat16 || type == FsType::kFat32; }

}  // namespace

Common::Error MountDirectory(const fs::path& root, std::string way, std::unique_ptr<MountedVolume>& mounted) {
    std::error_code code;
    // Opening the root tells a guarded or vanished mount from a usable one before anything is listed.
    fs::directory_iterator probe(root, code);
    if (code) return SystemError(code, L"The mounted volume cannot be opened");
    mounted = std::make_unique<SystemVolume>(root, std::move(way));
    return {};
}

Common::Error MountVolume(const VolumeToMount& volume, std::unique_ptr<MountedVolume>& mounted) {
    mounted.reset();
    Common::Error error =
        Common::Error::Make(Codes::kNotMountable, L"No way of reading files serves this file system.");
    auto failed = [&](const char* way) {
        Common::Log::WriteError(Common::Log::kWarning, std::string("The volume cannot be read through the ") + way,
                                error);
    };
    if (volume.system) {
        if (const auto path = SystemMountPath(*volume.system)) {
            error = MountDirectory(*path, "mounted at " + Common::PathToUtf8(*path), mounted);
            if (error.Succeeded()) return error;
            failed("operating system's mount");
        }
    }
    if (IsFat(volume.type)) {
        error = MountFat(volume, mounted);
        if (error.Succeeded()) return error;
        failed("FAT reader");
    }
    if (LibraryReads(volume.type)) {
        error = MountWithLibrary(volume, mounted);
        if (error.Succeeded()) return error;
        failed("file-system library");
    }
    return error;
}

}  // namespace Disk
