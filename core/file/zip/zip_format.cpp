// Encoders of the zip records; all numbers are little-endian (APPNOTE 4.4).
#include "core/file/zip/zip_format.h"

#include <algorithm>
#include <limits>

namespace Zip::Format {

namespace {

constexpr std::uint32_t kLocalHeaderSignature = 0x04034b50;
constexpr std::uint32_t kCentralHeaderSignature = 0x02014b50;
constexpr std::uint32_t kEndSignature = 0x06054b50;
constexpr std::uint32_t kZip64EndSignature = 0x06064b50;
constexpr std::uint32_t kZip64LocatorSignature = 0x07064b50;

constexpr std::uint16_t kZip64ExtraId = 0x0001;
constexpr std::uint16_t kTimestampExtraId = 0x5455;
constexpr std::uint8_t kTimestampHasModified = 0x01;

// 2.0 for deflate and folders, 4.5 for ZIP64 (APPNOTE 4.4.3.2). The upper byte of "made by" is 0: MS-DOS
// attributes, which is what the external attributes hold.
constexpr std::uint16_t kVersionBase = 20;
constexpr std::uint16_t kVersionZip64 = 45;
constexpr std::uint16_t kVersionMadeBy = kVersionZip64;
constexpr std::uint16_t kFlagUtf8Name = 0x0800;
constexpr std::uint32_t kDosDirectoryAttribute = 0x10;

constexpr std::uint32_t kMarker32 = 0xFFFFFFFF;
constexpr std::uint16_t kMarker16 = 0xFFFF;
constexpr std::size_t kMaxFieldLength = 0xFFFF;

void Put16(std::string& out, std::uint16_t value) {
    out.push_back(static_cast<char>(value & 0xFF));
    out.push_back(static_cast<char>(value >> 8));
}

void Put32(std::string& out, std::uint32_t value) {
    Put16(out, static_cast<std::uint16_t>(value & 0xFFFF));
    Put16(out, static_cast<std::uint16_t>(value >> 16));
}

void Put64(std::string& out, std::uint64_t value) {
    Put32(out, static_cast<std::uint32_t>(value & 0xFFFFFFFF));
    Put32(out, static_cast<std::uint32_t>(value >> 32));
}

std::uint32_t Field32(std::uint64_t value, const Limits& limits) {
    return value >= limits.field ? kMarker32 : static_cast<std::uint32_t>(value);
}

std::uint16_t Count16(std::uint64_t value, const Limits& limits) {
    return value >= limits.count ? kMarker16 : static_cast<std::uint16_t>(value);
}

void PutExtra(std::string& out, std::uint16_t id, const std::string& data) {
    Put16(out, id);
    Put16(out, static_cast<std::uint16_t>(data.size()));
    out += data;
}

// Only the modification time, in both copies: the central copy of this field never holds more.
std::string TimestampExtra(std::int32_t modified) {
    std::string data(1, static_cast<char>(kTimestampHasModified));
    Put32(data, static_cast<std::uint32_t>(modified));
    std::string out;
    PutExtra(out, kTimestampExtraId, data);
    return out;
}

// The central ZIP64 field holds only the values whose 32-bit fields are markers, in this order (4.5.3).
std::string CentralZip64Extra(const Entry& entry, const Limits& limits) {
    std::string data;
    if (entry.uncompressedSize >= limits.field) Put64(data, entry.uncompressedSize);
    if (entry.compressedSize >= limits.field) Put64(data, entry.compressedSize);
    if (entry.localHeaderOffset >= limits.field) Put64(data, entry.localHeaderOffset);
    std::string out;
    if (!data.empty()) PutExtra(out, kZip64ExtraId, data);
    return out;
}

void PutEntryCommon(std::string& out, const Entry& entry) {
    Put16(out, kFlagUtf8Name);
    Put16(out, static_cast<std::uint16_t>(entry.method));
    Put16(out, entry.modified.time);
    Put16(out, entry.modified.date);
    Put32(out, entry.crc);
}

}  // namespace

DosDateTime ToDosDateTime(const std::tm& local) {
    int year = local.tm_year + 1900;
    if (year < 1980) return {static_cast<std::uint16_t>(1 << 5 | 1), 0};
    if (year > 2107) {
        return {static_cast<std::uint16_t>(127 << 9 | 12 << 5 | 31),
                static_cast<std::uint16_t>(23 << 11 | 59 << 5 | 29)};
    }
    int second = std::min(local.tm_sec, 59);
    return {static_cast<std::uint16_t>((year - 1980) << 9 | (local.tm_mon + 1) << 5 | local.tm_mday),
            static_cast<std::uint16_t>(local.tm_hour << 11 | local.tm_min << 5 | second / 2)};
}

std::int32_t ToUnixTime32(std::time_t time) {
    using Limit = std::numeric_limits<std::int32_t>;
    auto wide = static_cast<long long>(time);
    return static_cast<std::int32_t>(std::clamp<long long>(wide, Limit::min(), Limit::max()));
}

std::optional<std::string> NormalizeName(std::string_view name, bool folder) {
    std::string text(name);
    std::replace(text.begin(), text.end(), '\\', '/');
    std::size_t first = text.find_first_not_of('/');
    if (first == std::string::npos) return std::nullopt;
    text.erase(0, first);
    if (folder) {
        text.erase(text.find_last_not_of('/') + 1);
        text += '/';
    } else if (text.back() == '/') {
        return std::nullopt;
    }
    for (std::size_t start = 0; start < text.size();) {
        std::size_t end = std::min(text.find('/', start), text.size());
        if (std::string_view(text).substr(start, end - start) == "..") return std::nullopt;
        start = end + 1;
    }
    if (text.size() > kMaxFieldLength) return std::nullopt;
    return text;
}

std::string LocalHeader(const Entry& entry, bool zip64Sizes) {
    std::string extra;
    if (zip64Sizes) {
        std::string sizes;
        Put64(sizes, entry.uncompressedSize);
        Put64(sizes, entry.compressedSize);
        PutExtra(extra, kZip64ExtraId, sizes);
    }
    extra += TimestampExtra(entry.unixModified);

    std::string out;
    Put32(out, kLocalHeaderSignature);
    Put16(out, zip64Sizes ? kVersionZip64 : kVersionBase);
    PutEntryCommon(out, entry);
    Put32(out, zip64Sizes ? kMarker32 : static_cast<std::uint32_t>(entry.compressedSize));
    Put32(out, zip64Sizes ? kMarker32 : static_cast<std::uint32_t>(entry.uncompressedSize));
    Put16(out, static_cast<std::uint16_t>(entry.name.size()));
    Put16(out, static_cast<std::uint16_t>(extra.size()));
    return out + entry.name + extra;
}

std::string CentralHeader(const Entry& entry, const Limits& limits) {
    std::string zip64 = CentralZip64Extra(entry, limits);
    std::string extra = zip64 + TimestampExtra(entry.unixModified);

    std::string out;
    Put32(out, kCentralHeaderSignature);
    Put16(out, kVersionMadeBy);
    Put16(out, zip64.empty() ? kVersionBase : kVersionZip64);
    PutEntryCommon(out, entry);
    Put32(out, Field32(entry.compressedSize, limits));
    Put32(out, Field32(entry.uncompressedSize, limits));
    Put16(out, static_cast<std::uint16_t>(entry.name.size()));
    Put16(out, static_cast<std::uint16_t>(extra.size()));
    Put16(out, 0);  // comment length
    Put16(out, 0);  // disk number start
    Put16(out, 0);  // internal attributes
    Put32(out, entry.folder ? kDosDirectoryAttribute : 0);
    Put32(out, Field32(entry.localHeaderOffset, limits));
    return out + entry.name + extra;
}

std::string EndRecords(std::uint64_t entryCount, std::uint64_t directorySize, std::uint64_t directoryOffset,
                       const Limits& limits) {
    std::string out;
    if (entryCount >= limits.count || directorySize >= limits.field || directoryOffset >= limits.field) {
        constexpr std::uint64_t kZip64EndRemainder = 44;  // the record's size without its first 12 bytes
        Put32(out, kZip64EndSignature);
        Put64(out, kZip64EndRemainder);
        Put16(out, kVersionMadeBy);
        Put16(out, kVersionZip64);
        Put32(out, 0);  // this disk
        Put32(out, 0);  // disk of the central directory
        Put64(out, entryCount);
        Put64(out, entryCount);
        Put64(out, directorySize);
        Put64(out, directoryOffset);

        Put32(out, kZip64LocatorSignature);
        Put32(out, 0);  // disk of the ZIP64 end record
        Put64(out, directoryOffset + directorySize);
        Put32(out, 1);  // total disks
    }
    Put32(out, kEndSignature);
    Put16(out, 0);
    Put16(out, 0);
    Put16(out, Count16(entryCount, limits));
    Put16(out, Count16(entryCount, limits));
    Put32(out, Field32(directorySize, limits));
    Put32(out, Field32(directoryOffset, limits));
    Put16(out, 0);  // comment length
    return out;
}

}  // namespace Zip::Format
