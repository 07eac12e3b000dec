// A read-only handle on a file or a whole disk, with positioned reads.
#pragma once

#include <cstdint>
#include <filesystem>
#include <span>

#include "core/common/error.h"

namespace Disk {

class RawFile {
public:
    RawFile() = default;
    RawFile(RawFile&& other) noexcept : handle_(other.handle_) { other.handle_ = kInvalid; }
    RawFile& operator=(RawFile&& other) noexcept;
    RawFile(const RawFile&) = delete;
    RawFile& operator=(const RawFile&) = delete;
    ~RawFile();

    // Opens for reading, sharing reads and writes with others (a disk in use stays readable).
    static Common::Error Open(const std::filesystem::path& path, RawFile& file);
    bool IsOpen() const { return handle_ != kInvalid; }
    // The platform handle (a file descriptor, or a HANDLE), for the platform's device queries.
    std::intptr_t Native() const { return handle_; }

    // Reads exactly `data.size()` bytes at `offset`; a short read fails.
    Common::Error ReadAt(std::uint64_t offset, std::span<std::uint8_t> data);
    // Length of a regular file, or of the device behind the handle.
    Common::Error Size(std::uint64_t& bytes);

private:
    static constexpr std::intptr_t kInvalid = -1;
    void Close() noexcept;
    std::intptr_t handle_ = kInvalid;
};

}  // namespace Disk
