// Firmware variables on Linux through efivarfs.
#include "core/grub_parser/uefi_bootvars/variable_efivarfs.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/vfs.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>

#include "core/common/file_descriptor.h"
#include "core/common/log.h"
#include "core/common/strings.h"
#include "core/grub_parser/uefi_bootvars/uefi_errors.h"

namespace Uefi {
namespace {

constexpr const char* kDefaultRoot = "/sys/firmware/efi/efivars";
// EFIVARFS_MAGIC of <linux/magic.h>.
constexpr unsigned long kEfivarfsMagic = 0xde5e81e4;
constexpr std::size_t kAttributesSize = 4;
// The root may be any folder (SYSTEM_REPORT_EFIVARS_DIR), so a variable file is read only up to a bound.
// A firmware's whole variable store holds some 64 to 256 KiB and one variable is far smaller (a boot
// entry is a few hundred bytes), so 1 MiB passes every real variable while a huge file, or one that
// never ends, is refused before it takes the memory.
constexpr std::size_t kMaximumFileSize = 1024 * 1024;

std::filesystem::path VariablePath(const std::filesystem::path& root, const std::wstring& name, const Guid& vendor) {
    return root / Common::PathFromUtf8(Common::WideToUtf8(name) + "-" + GuidToLowerText(vendor));
}

bool RootExists(const std::filesystem::path& root) {
    std::error_code error;
    return std::filesystem::is_directory(root, error);
}

// efivarfs takes a value in one write and replaces the variable with it, but refuses truncation; a plain
// folder standing in for it must be truncated instead.
bool IsEfivarfs(const std::filesystem::path& root) {
    struct statfs info {};
    return statfs(root.c_str(), &info) == 0 && static_cast<unsigned long>(info.f_type) == kEfivarfsMagic;
}

Common::Error ErrorFromErrno(int code, const std::wstring& name) {
    Common::Error cause = Common::Error::AddErrno(code);
    return code == ENOENT ? MakeNotFoundError(name, cause) : MakeBootEntryError(name, cause);
}

class EfivarfsVariable final : public Variable {
public:
    EfivarfsVariable(std::filesystem::path root, const Guid& vendor, std::wstring name, std::uint32_t attributes)
        : Variable(vendor, std::move(name), attributes), root_(std::move(root)) {}

    Common::Error Save() override {
        if (!Loaded()) return MakeNotLoadedError();
        if (!RootExists(root_)) return MakeNotImplementedError();
        std::filesystem::path path = VariablePath(root_, Name(), VendorGuid());
        if (Data().empty()) {
            if (unlink(path.c_str()) != 0) return ErrorFromErrno(errno, Name());
            return {};
        }
        std::uint32_t attributes = Attributes();
        std::vector<std::uint8_t> bytes{static_cast<std::uint8_t>(attributes), static_cast<std::uint8_t>(attributes >> 8),
                                        static_cast<std::uint8_t>(attributes >> 16),
                                        static_cast<std::uint8_t>(attributes >> 24)};
        bytes.insert(bytes.end(), Data().begin(), Data().end());
        int flags = O_WRONLY | O_CREAT | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK | (IsEfivarfs(root_) ? 0 : O_TRUNC);
        Common::FileDescriptor file(open(path.c_str(), flags, 0644));
        if (!file) return MakeBootEntryError(Name(), Common::Error::AddErrno(errno));
        ssize_t written = write(file.Get(), bytes.data(), bytes.size());
        if (written < 0) return MakeBootEntryError(Name(), Common::Error::AddErrno(errno));
        if (static_cast<std::size_t>(written) != bytes.size()) return MakeBootEntryError(Name(), Common::Error::AddErrno(EIO));
        return {};
    }

protected:
    Common::Error ReadValue(std::vector<std::uint8_t>& data, std::uint32_t& attributes) override {
        if (!RootExists(root_)) return MakeNotImplementedError();
        std::filesystem::path path = VariablePath(root_, Name(), VendorGuid());
        // Neither a link (to /dev/zero, say) is followed nor a FIFO waited on: only a regular file of a
        // bounded size is read; anything else is an unreadable variable.
        Common::FileDescriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK));
        if (!file) return ErrorFromErrno(errno, Name());
        struct stat info {};
        if (fstat(file.Get(), &info) != 0) return ErrorFromErrno(errno, Name());
        if (!S_ISREG(info.st_mode)) return Unreadable(path, "is not a regular file");
        std::vector<std::uint8_t> bytes;
        std::uint8_t chunk[4096];
        for (;;) {
            ssize_t got = read(file.Get(), chunk, sizeof chunk);
            if (got < 0 && errno == EINTR) continue;
            if (got < 0) return ErrorFromErrno(errno, Name());
            if (got == 0) break;
            bytes.insert(bytes.end(), chunk, chunk + got);
            if (bytes.size() > kMaximumFileSize) return Unreadable(path, "is larger than 1 MiB");
        }
        // Every efivarfs file starts with the attributes; a shorter one is no variable.
        if (bytes.size() < kAttributesSize) return MakeBootEntryError(Name(), MakeMalformedError());
        attributes = static_cast<std::uint32_t>(bytes[0]) | static_cast<std::uint32_t>(bytes[1]) << 8 |
                     static_cast<std::uint32_t>(bytes[2]) << 16 | static_cast<std::uint32_t>(bytes[3]) << 24;
        data.assign(bytes.begin() + kAttributesSize, bytes.end());
        return {};
    }

private:
    Common::Error Unreadable(const std::filesystem::path& path, const char* why) {
        Common::Log::Warning("The firmware variable file '" + Common::PathToUtf8(path) + "' " + why +
                             "; it is not read.");
        return MakeBootEntryError(Name());
    }

    std::filesystem::path root_;
};

class EfivarfsStore final : public VariableStore {
public:
    explicit EfivarfsStore(std::filesystem::path root) : root_(std::move(root)) {}

    bool BootVariablesAllowed() override { return RootExists(root_); }

    VariablePtr CreateVariable(const Guid& vendor, std::wstring name, std::uint32_t attributes) override {
        return std::make_shared<EfivarfsVariable>(root_, vendor, std::move(name), attributes);
    }

    // efivarfs has no list of boot entries of its own: the Boot#### files of the global-variable GUID are
    // the entries, listed by ascending number.
    Common::Error EnumerateBootEntryIds(std::vector<std::uint16_t>& ids) override {
        if (!RootExists(root_)) return MakeNotImplementedError();
        const std::string suffix = "-" + GuidToLowerText(kEfiGlobalVariable);
        std::vector<std::uint16_t> found;
        std::error_code error;
        std::filesystem::directory_iterator it(root_, error);
        for (; !error && it != std::filesystem::directory_iterator(); it.increment(error)) {
            std::string fileName = Common::PathToUtf8(it->path().filename());
            if (fileName.size() <= suffix.size() || !fileName.ends_with(suffix)) continue;
            std::string name = fileName.substr(0, fileName.size() - suffix.size());
            if (auto number = ParseBootEntryVariableName(Common::Utf8ToWide(name))) found.push_back(*number);
        }
        if (error) return MakeBootEntryError(root_.wstring(), Common::Error::AddErrno(error.value()));
        std::sort(found.begin(), found.end());
        ids = std::move(found);
        return {};
    }

private:
    std::filesystem::path root_;
};

}  // namespace

std::filesystem::path EfivarfsRoot() {
    const char* configured = std::getenv(kEfivarsDirEnvironment);
    return configured && *configured ? Common::PathFromUtf8(configured) : std::filesystem::path(kDefaultRoot);
}

VariableStorePtr MakeEfivarfsStore(std::filesystem::path root) { return std::make_shared<EfivarfsStore>(std::move(root)); }

VariableStorePtr MakeSystemVariableStore() { return MakeEfivarfsStore(EfivarfsRoot()); }

}  // namespace Uefi
