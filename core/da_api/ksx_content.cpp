// The partition part of the boot configuration report.
#include "core/da_api/ksx_content.h"

#include <algorithm>
#include <array>

#include "core/common/log.h"
#include "core/common/strings.h"
#include "core/da_api/report_printf.h"

namespace DaApi::Ksx {
namespace {

// The classic boot files, then the boot manager's own files, in the order the report shows them.
constexpr std::array<std::string_view, 8> kBootFiles = {
    "autoexec.bat", "boot.ini", "zorbelt.cfg", "zorbelt.log", "zorbelt.ksx", "config.sys", "context.ksx", "bcd",
};
constexpr std::string_view kBootManagerFolder = "ZORBELT";

// Names on the volume are UTF-8; the report is 8-bit text in which characters above 255 become '?'.
std::string ReportName(std::string_view utf8) {
    std::string narrow;
    for (wchar_t c : Common::Utf8ToWide(utf8)) narrow += static_cast<std::uint32_t>(c) < 256 ? static_cast<char>(c) : '?';
    return narrow;
}

bool SameName(std::string_view a, std::string_view b) {
    auto lower = [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; };
    return std::equal(a.begin(), a.end(), b.begin(), b.end(), [&](char x, char y) { return lower(x) == lower(y); });
}

std::vector<Disk::VolumeEntry> WriteListing(Disk::VolumeDirectory& directory, std::string_view title,
                                            std::string& out) {
    std::vector<Disk::VolumeEntry> entries;
    if (Common::Error error = directory.List(entries); error.Failed()) {
        Common::Log::WriteError(Common::Log::kWarning,
                                "Boot configuration report: the folder '" + std::string(title) + "' cannot be listed: ",
                                error);
    }
    out += "--- " + ReportName(title) + " dir content: ---\r\n";
    for (const Disk::VolumeEntry& entry : entries) {
        if (entry.directory) {
            out += ReportName(entry.name) + " <DIR>\r\n";
        } else {
            AppendPrintf(out, "%s %llu\r\n", ReportName(entry.name).c_str(), static_cast<unsigned long long>(entry.size));
        }
    }
    return entries;
}

// `name` is what the report calls the file; `stored` is the entry's own name on the volume.
void WriteFile(Disk::VolumeDirectory& directory, const std::string& name, const std::string& stored, std::string& out) {
    std::string bytes;
    std::uint64_t size = 0;
    Common::Error error = directory.ReadFile(stored, kMaxFileBytes, bytes, size);
    if (error.Succeeded() && size == 0) {
        out += name + " file is empty\r\n\r\n";
        return;
    }
    out += "--- " + name + " file content: ---\r\n";
    if (error.Failed()) {
        Common::Log::WriteError(Common::Log::kWarning, "Boot configuration report: '" + name + "' cannot be read: ", error);
        out += "Read error";
    } else {
        if (IsPlainText(bytes)) {
            out += bytes;
        } else {
            for (unsigned char byte : bytes) AppendPrintf(out, "%02X ", byte);
        }
        if (bytes.size() < size) {
            AppendPrintf(out, "\r\n--- %s file cut: the first %llu of %llu bytes are shown ---", name.c_str(),
                         static_cast<unsigned long long>(bytes.size()), static_cast<unsigned long long>(size));
        }
    }
    out += "\r\n--- " + name + " file end ---\r\n\r\n";
}

}  // namespace

std::optional<Disk::VolumeEntry> FindEntry(const std::vector<Disk::VolumeEntry>& entries, std::string_view name,
                                           bool directory) {
    for (const Disk::VolumeEntry& entry : entries)
        if (entry.directory == directory && SameName(entry.name, name)) return entry;
    return std::nullopt;
}

bool IsPlainText(std::string_view bytes) {
    return std::none_of(bytes.begin(), bytes.end(), [](char c) {
        auto byte = static_cast<unsigned char>(c);
        return (byte < 0x20 && byte != '\t' && byte != '\n' && byte != '\r') || byte == 0x7F;
    });
}

void WriteVolumeContent(Disk::VolumeDirectory& root, std::string& out) {
    std::vector<Disk::VolumeEntry> entries = WriteListing(root, "Root", out);
    for (std::string_view name : kBootFiles) {
        if (std::optional<Disk::VolumeEntry> file = FindEntry(entries, name, false))
            WriteFile(root, std::string(name), file->name, out);
    }
    std::optional<Disk::VolumeEntry> folder = FindEntry(entries, kBootManagerFolder, true);
    if (!folder) return;
    std::unique_ptr<Disk::VolumeDirectory> directory;
    if (Common::Error error = root.OpenDirectory(folder->name, directory); error.Failed() || !directory) {
        Common::Log::WriteError(Common::Log::kWarning, "Boot configuration report: the boot manager's folder cannot be opened: ",
                                error);
        return;
    }
    for (const Disk::VolumeEntry& entry : WriteListing(*directory, kBootManagerFolder, out)) {
        if (!entry.directory) WriteFile(*directory, ReportName(entry.name), entry.name, out);
    }
}

}  // namespace DaApi::Ksx
