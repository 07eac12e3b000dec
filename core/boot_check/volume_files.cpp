// Path lookups on a mounted volume.
#include "core/boot_check/volume_files.h"

#include <algorithm>
#include <cctype>
#include <memory>
#include <vector>

namespace BootCheck {
namespace {

bool SameName(std::string_view a, std::string_view b) {
    return std::equal(a.begin(), a.end(), b.begin(), b.end(), [](char x, char y) {
        return std::tolower(static_cast<unsigned char>(x)) == std::tolower(static_cast<unsigned char>(y));
    });
}

// Listing first tells "not there" from "there but unreadable", which the open calls alone do not.
FileLookup Find(Disk::VolumeDirectory& directory, std::string_view name, bool wantDirectory) {
    std::vector<Disk::VolumeEntry> entries;
    if (directory.List(entries).Failed()) return FileLookup::Unreadable;
    bool found = std::any_of(entries.begin(), entries.end(), [&](const Disk::VolumeEntry& entry) {
        return entry.directory == wantDirectory && SameName(entry.name, name);
    });
    return found ? FileLookup::Found : FileLookup::Missing;
}

}  // namespace

FileLookup ReadFileAt(Disk::VolumeDirectory& root, std::string_view path, std::uint64_t limit, std::string& bytes,
                      std::uint64_t& size) {
    std::vector<std::string_view> names;
    for (std::size_t start = 0; start <= path.size();) {
        std::size_t end = path.find_first_of("/\\", start);
        if (end == std::string_view::npos) end = path.size();
        if (end > start) names.push_back(path.substr(start, end - start));
        start = end + 1;
    }
    if (names.empty()) return FileLookup::Missing;
    Disk::VolumeDirectory* directory = &root;
    std::unique_ptr<Disk::VolumeDirectory> held;
    for (std::size_t i = 0; i + 1 < names.size(); ++i) {
        if (FileLookup found = Find(*directory, names[i], true); found != FileLookup::Found) return found;
        std::unique_ptr<Disk::VolumeDirectory> next;
        if (directory->OpenDirectory(names[i], next).Failed() || !next) return FileLookup::Unreadable;
        held = std::move(next);
        directory = held.get();
    }
    if (FileLookup found = Find(*directory, names.back(), false); found != FileLookup::Found) return found;
    return directory->ReadFile(names.back(), limit, bytes, size).Succeeded() ? FileLookup::Found
                                                                              : FileLookup::Unreadable;
}

}  // namespace BootCheck
