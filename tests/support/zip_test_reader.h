// A minimal zip reader for tests: lists an archive's entries and inflates them, ZIP64 included. It is
// independent of the writer (its own record parsing), so a test that reads back what the product wrote
// checks the writer too; tests on Linux also use Info-ZIP, 7z and Python where they can.
#pragma once

#include <cstdint>
#include <filesystem>
#include <map>
#include <optional>
#include <string>

namespace TestSupport {

struct ZipTestEntry {
    std::string data;
    std::uint16_t flags = 0;
    std::uint16_t method = 0;
    bool folder = false;
};

// Entries by name; nullopt when the file is not a readable archive or an entry's CRC is wrong.
std::optional<std::map<std::string, ZipTestEntry>> ReadZip(const std::filesystem::path& archive);

// A fresh empty folder below the system's temporary folder, removed with the object.
class TempFolder {
public:
    TempFolder();
    ~TempFolder();
    TempFolder(const TempFolder&) = delete;
    TempFolder& operator=(const TempFolder&) = delete;
    const std::filesystem::path& path() const { return path_; }

private:
    std::filesystem::path path_;
};

void WriteFile(const std::filesystem::path& path, const std::string& content);
std::string ReadFile(const std::filesystem::path& path);

}  // namespace TestSupport
