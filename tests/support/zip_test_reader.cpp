// The test zip reader: end record, ZIP64 records, central directory, local headers, raw inflate.
#include "tests/support/zip_test_reader.h"

#include <zlib.h>

#include <fstream>
#include <iterator>
#include <random>

namespace TestSupport {
namespace {

std::uint64_t Le(const std::string& b, size_t at, int bytes) {
    std::uint64_t v = 0;
    for (int i = bytes - 1; i >= 0; --i) v = (v << 8) | static_cast<unsigned char>(b.at(at + static_cast<size_t>(i)));
    return v;
}

std::optional<std::string> Inflate(const std::string& in, size_t expected) {
    std::string out(expected, '\0');
    z_stream z{};
    if (inflateInit2(&z, -MAX_WBITS) != Z_OK) return std::nullopt;
    z.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(in.data()));
    z.avail_in = static_cast<uInt>(in.size());
    z.next_out = reinterpret_cast<Bytef*>(out.data());
    z.avail_out = static_cast<uInt>(out.size());
    int rc = inflate(&z, Z_FINISH);
    inflateEnd(&z);
    if (rc != Z_STREAM_END || z.total_out != expected) return std::nullopt;
    return out;
}

}  // namespace

std::optional<std::map<std::string, ZipTestEntry>> ReadZip(const std::filesystem::path& archive) {
    std::string b;
    try {
        b = ReadFile(archive);
    } catch (...) {
        return std::nullopt;
    }
    if (b.size() < 22) return std::nullopt;
    size_t eocd = std::string::npos;
    for (size_t i = b.size() - 22 + 1; i-- > 0 && b.size() - i <= 22 + 65535;) {
        if (Le(b, i, 4) == 0x06054b50) {
            eocd = i;
            break;
        }
    }
    if (eocd == std::string::npos) return std::nullopt;
    std::uint64_t count = Le(b, eocd + 10, 2);
    std::uint64_t directory = Le(b, eocd + 16, 4);
    if (eocd >= 20 && Le(b, eocd - 20, 4) == 0x07064b50) {
        std::uint64_t zip64 = Le(b, eocd - 20 + 8, 8);
        if (Le(b, zip64, 4) != 0x06064b50) return std::nullopt;
        count = Le(b, zip64 + 32, 8);
        directory = Le(b, zip64 + 48, 8);
    }
    std::map<std::string, ZipTestEntry> entries;
    size_t at = directory;
    for (std::uint64_t n = 0; n < count; ++n) {
        if (Le(b, at, 4) != 0x02014b50) return std::nullopt;
        ZipTestEntry entry;
        entry.flags = static_cast<std::uint16_t>(Le(b, at + 8, 2));
        entry.method = static_cast<std::uint16_t>(Le(b, at + 10, 2));
        std::uint32_t crc = static_cast<std::uint32_t>(Le(b, at + 16, 4));
        std::uint64_t packed = Le(b, at + 20, 4), size = Le(b, at + 24, 4);
        size_t nameLength = Le(b, at + 28, 2), extraLength = Le(b, at + 30, 2), commentLength = Le(b, at + 32, 2);
        std::uint64_t local = Le(b, at + 42, 4);
        std::string name = b.substr(at + 46, nameLength);
        // ZIP64 extended information: only the fields whose 32-bit values are saturated, in this order.
        for (size_t e = at + 46 + nameLength; e + 4 <= at + 46 + nameLength + extraLength;) {
            size_t id = Le(b, e, 2), length = Le(b, e + 2, 2), f = e + 4;
            if (id == 1) {
                if (size == 0xFFFFFFFF) size = Le(b, f, 8), f += 8;
                if (packed == 0xFFFFFFFF) packed = Le(b, f, 8), f += 8;
                if (local == 0xFFFFFFFF) local = Le(b, f, 8), f += 8;
            }
            e += 4 + length;
        }
        if (Le(b, local, 4) != 0x04034b50) return std::nullopt;
        size_t data = local + 30 + Le(b, local + 26, 2) + Le(b, local + 28, 2);
        std::string raw = b.substr(data, packed);
        if (entry.method == 0) {
            entry.data = raw;
        } else if (entry.method == 8) {
            auto inflated = Inflate(raw, size);
            if (!inflated) return std::nullopt;
            entry.data = *inflated;
        } else {
            return std::nullopt;
        }
        if (crc32(0, reinterpret_cast<const Bytef*>(entry.data.data()), static_cast<uInt>(entry.data.size())) != crc) {
            return std::nullopt;
        }
        entry.folder = !name.empty() && name.back() == '/';
        entries[name] = std::move(entry);
        at += 46 + nameLength + extraLength + commentLength;
    }
    return entries;
}

TempFolder::TempFolder() {
    std::random_device random;
    path_ = std::filesystem::temp_directory_path() /
            ("sr-test-" + std::to_string(random()) + "-" + std::to_string(random()));
    std::filesystem::create_directories(path_);
}

TempFolder::~TempFolder() {
    std::error_code ec;
    std::filesystem::remove_all(path_, ec);
}

void WriteFile(const std::filesystem::path& path, const std::string& content) {
    std::filesystem::create_directories(path.parent_path());
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out.write(content.data(), static_cast<std::streamsize>(content.size()));
}

std::string ReadFile(const std::filesystem::path& path) {
    std::ifstream in(path, std::ios::binary);
    if (!in) throw std::runtime_error("cannot open " + path.string());
    return std::string((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
}

}  // namespace TestSupport
