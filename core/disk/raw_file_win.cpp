// RawFile over Win32 handles. Disk handles need sector-aligned offsets (callers read whole sectors) and
// suitably aligned buffers, so every read goes through a page-aligned buffer.
#include "core/common/windows_api.h"

#include <winioctl.h>

#include <algorithm>
#include <memory>

#include "core/common/strings.h"
#include "core/disk/disk_errors.h"
#include "core/disk/raw_file.h"

namespace Disk {
namespace {

HANDLE AsHandle(std::intptr_t handle) { return reinterpret_cast<HANDLE>(handle); }

struct VirtualFreeDeleter {
    void operator()(void* memory) const { VirtualFree(memory, 0, MEM_RELEASE); }
};

}  // namespace

RawFile& RawFile::operator=(RawFile&& other) noexcept {
    if (this != &other) {
        Close();
        handle_ = other.handle_;
        other.handle_ = kInvalid;
    }
    return *this;
}

RawFile::~RawFile() { Close(); }

void RawFile::Close() noexcept {
    if (handle_ != kInvalid) CloseHandle(AsHandle(handle_));
    handle_ = kInvalid;
}

Common::Error RawFile::Open(const std::filesystem::path& path, RawFile& file) {
    const HANDLE handle = CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                                      OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (handle == INVALID_HANDLE_VALUE)
        return Common::Error::Make(Codes::kOpenFailed, L"Cannot open " + path.wstring() + L".",
                                   Common::Error::AddWindowsError(GetLastError()));
    file = RawFile();
    file.handle_ = reinterpret_cast<std::intptr_t>(handle);
    return {};
}

Common::Error RawFile::ReadAt(std::uint64_t offset, std::span<std::uint8_t> data) {
    constexpr std::size_t kBufferBytes = 1u << 20;
    const std::unique_ptr<void, VirtualFreeDeleter> buffer(
        VirtualAlloc(nullptr, kBufferBytes, MEM_COMMIT | MEM_RESERVE, PAGE_READWRITE));
    if (!buffer) return Common::Error::Make(Codes::kReadFailed, L"No memory for a read buffer.");
    std::size_t done = 0;
    while (done < data.size()) {
        const auto want = static_cast<DWORD>(std::min(kBufferBytes, data.size() - done));
        OVERLAPPED at{};
        at.Offset = static_cast<DWORD>(offset + done);
        at.OffsetHigh = static_cast<DWORD>((offset + done) >> 32);
        DWORD got = 0;
        if (!ReadFile(AsHandle(handle_), buffer.get(), want, &got, &at))
            return Common::Error::Make(Codes::kReadFailed, L"Read error at byte " + std::to_wstring(offset + done) + L".",
                                       Common::Error::AddWindowsError(GetLastError()));
        if (got == 0)
            return Common::Error::Make(Codes::kReadFailed, L"End of file at byte " + std::to_wstring(offset + done) + L".");
        std::copy_n(static_cast<const std::uint8_t*>(buffer.get()), got, data.data() + done);
        done += got;
    }
    return {};
}

Common::Error RawFile::Size(std::uint64_t& bytes) {
    GET_LENGTH_INFORMATION length{};
    DWORD returned = 0;
    if (DeviceIoControl(AsHandle(handle_), IOCTL_DISK_GET_LENGTH_INFO, nullptr, 0, &length, sizeof length, &returned,
                        nullptr)) {
        bytes = static_cast<std::uint64_t>(length.Length.QuadPart);
        return {};
    }
    LARGE_INTEGER size{};
    if (!GetFileSizeEx(AsHandle(handle_), &size))
        return Common::Error::Make(Codes::kReadFailed, L"Cannot query the size.",
                                   Common::Error::AddWindowsError(GetLastError()));
    bytes = static_cast<std::uint64_t>(size.QuadPart);
    return {};
}

}  // namespace Disk
