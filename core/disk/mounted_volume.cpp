// What every mounted volume shares: following a path, and case-insensitive names.
#include "core/disk/mounted_volume.h"

#include "core/disk/disk_errors.h"
#include "core/disk/volume_names.h"

namespace Disk {
namespace {

// Code points of UTF-8 text; a broken sequence becomes U+FFFD.
std::u32string CodePoints(std::string_view text) {
    std::u32string points;
    for (std::size_t i = 0; i < text.size();) {
        const auto lead = static_cast<std::uint8_t>(text[i]);
        const int length = lead < 0x80 ? 1 : (lead >> 5) == 6 ? 2 : (lead >> 4) == 14 ? 3 : (lead >> 3) == 30 ? 4 : 0;
        char32_t point = length == 1 ? lead : length == 2 ? lead & 0x1F : length == 3 ? lead & 0x0F : lead & 0x07;
        bool sound = length != 0 && i + length <= text.size();
        for (int k = 1; sound && k < length; ++k) {
            const auto next = static_cast<std::uint8_t>(text[i + k]);
            sound = (next & 0xC0) == 0x80;
            point = point << 6 | (next & 0x3F);
        }
        points.push_back(sound ? point : U'\uFFFD');
        i += sound ? length : 1;
    }
    return points;
}

// Lower case of ASCII, Latin-1 and the paired letters of Latin Extended-A, which is what FAT's and NTFS's
// own case tables do for the names a boot folder holds.
char32_t Fold(char32_t c) {
    if (c >= U'A' && c <= U'Z') return c + 0x20;
    if (c >= 0xC0 && c <= 0xDE && c != 0xD7) return c + 0x20;
    if (c >= 0x100 && c <= 0x137 && c % 2 == 0) return c + 1;
    if (c >= 0x139 && c <= 0x148 && c % 2 == 1) return c + 1;
    if (c >= 0x14A && c <= 0x177 && c % 2 == 0) return c + 1;
    return c;
}

}  // namespace

bool VolumeNamesEqual(std::string_view a, std::string_view b) {
    const std::u32string left = CodePoints(a);
    const std::u32string right = CodePoints(b);
    if (left.size() != right.size()) return false;
    for (std::size_t i = 0; i < left.size(); ++i)
        if (Fold(left[i]) != Fold(right[i])) return false;
    return true;
}

const VolumeEntry* FindVolumeEntry(const std::vector<VolumeEntry>& entries, std::string_view name) {
    for (const VolumeEntry& entry : entries)
        if (VolumeNamesEqual(entry.name, name)) return &entry;
    return nullptr;
}

std::string Utf16ToUtf8(std::u16string_view text) {
    std::string out;
    for (std::size_t i = 0; i < text.size(); ++i) {
        char32_t c = text[i];
        if (c >= 0xD800 && c <= 0xDBFF && i + 1 < text.size() && text[i + 1] >= 0xDC00 && text[i + 1] <= 0xDFFF) {
            c = 0x10000 + ((c - 0xD800) << 10) + (text[i + 1] - 0xDC00);
            ++i;
        } else if (c >= 0xD800 && c <= 0xDFFF) {
            c = 0xFFFD;
        }
        if (c < 0x80) {
            out.push_back(static_cast<char>(c));
        } else if (c < 0x800) {
            out.push_back(static_cast<char>(0xC0 | c >> 6));
            out.push_back(static_cast<char>(0x80 | (c & 0x3F)));
        } else if (c < 0x10000) {
            out.push_back(static_cast<char>(0xE0 | c >> 12));
            out.push_back(static_cast<char>(0x80 | (c >> 6 & 0x3F)));
            out.push_back(static_cast<char>(0x80 | (c & 0x3F)));
        } else {
            out.push_back(static_cast<char>(0xF0 | c >> 18));
            out.push_back(static_cast<char>(0x80 | (c >> 12 & 0x3F)));
            out.push_back(static_cast<char>(0x80 | (c >> 6 & 0x3F)));
            out.push_back(static_cast<char>(0x80 | (c & 0x3F)));
        }
    }
    return out;
}

Common::Error ReadVolumeFile(VolumeDirectory& root, std::string_view path, std::uint64_t limit, std::string& bytes,
                             std::uint64_t& size) {
    std::vector<std::string_view> names;
    while (!path.empty()) {
        const auto end = path.find_first_of("/\\");
        if (const auto name = path.substr(0, end); !name.empty()) names.push_back(name);
        if (end == path.npos) break;
        path.remove_prefix(end + 1);
    }
    if (names.empty()) return Common::Error::Make(Codes::kNotFound, L"The path names no file.");
    std::unique_ptr<VolumeDirectory> current;
    VolumeDirectory* directory = &root;
    for (std::size_t i = 0; i + 1 < names.size(); ++i) {
        std::unique_ptr<VolumeDirectory> next;
        if (auto error = directory->OpenDirectory(names[i], next); error.Failed()) return error;
        current = std::move(next);
        directory = current.get();
    }
    return directory->ReadFile(names.back(), limit, bytes, size);
}

}  // namespace Disk
