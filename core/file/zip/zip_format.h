// The zip records as bytes (PKWARE APPNOTE 6.3): local and central headers, end records, entry names, DOS time.
#pragma once

#include <cstdint>
#include <ctime>
#include <optional>
#include <string>
#include <string_view>

namespace Zip::Format {

// A value at or above its limit is written as the all-ones marker and carried by a ZIP64 record instead.
// The writer uses the APPNOTE limits; tests lower them to reach the ZIP64 paths with small archives.
struct Limits {
    std::uint64_t field = 0xFFFFFFFF;  // sizes and offsets
    std::uint64_t count = 0xFFFF;      // entries of the central directory
};

enum class Method : std::uint16_t { Store = 0, Deflate = 8 };

struct DosDateTime {
    std::uint16_t date = 0;
    std::uint16_t time = 0;
};

// `local` is a broken-down local time; years before 1980 become 1980-01-01 00:00:00 and years after 2107
// the last moment DOS time can hold. Seconds are rounded down to an even number.
DosDateTime ToDosDateTime(const std::tm& local);
// The extended timestamp holds a signed 32-bit Unix time.
std::int32_t ToUnixTime32(std::time_t time);

// The stored form of an entry name: '\\' becomes '/', leading '/' are dropped, and a folder ends with one
// '/'. Nothing for an empty name, a ".." component, a file name ending with '/', or one too long to store.
std::optional<std::string> NormalizeName(std::string_view name, bool folder);

struct Entry {
    std::string name;
    bool folder = false;
    Method method = Method::Store;
    std::uint32_t crc = 0;
    std::uint64_t compressedSize = 0;
    std::uint64_t uncompressedSize = 0;
    std::uint64_t localHeaderOffset = 0;
    DosDateTime modified;
    std::int32_t unixModified = 0;
};

// With `zip64Sizes` both sizes are carried by a ZIP64 extra field (the APPNOTE wants both or neither in a
// local header); the length of the header depends only on the name and that choice.
std::string LocalHeader(const Entry& entry, bool zip64Sizes);
std::string CentralHeader(const Entry& entry, const Limits& limits);
// The ZIP64 end record and its locator where a value reaches its limit, then the end record.
std::string EndRecords(std::uint64_t entryCount, std::uint64_t directorySize, std::uint64_t directoryOffset,
                       const Limits& limits);

}  // namespace Zip::Format
