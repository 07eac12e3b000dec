// The online-backup details writer.
#include "products/imager/system_report/online_backup_details.h"

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <system_error>
#include <vector>

#include "core/common/log.h"
#include "core/common/strings.h"
#include "products/imager/system_report/certificate_text.h"
#include "products/imager/system_report/file_creation_time.h"
#include "products/imager/system_report/filtered_copy.h"
#include "products/imager/system_report/link_check.h"
#include "products/imager/system_report/version_report.h"

namespace fs = std::filesystem;

namespace SystemReport {
namespace {

constexpr const char* kLineEnd = "\r\n";

bool IsCertificateFile(const fs::path& path) {
    std::string name = Common::PathToUtf8(path.filename());
    if (name.size() < 4) return false;
    std::string extension = name.substr(name.size() - 4);
    for (char& c : extension) c = static_cast<char>(c >= 'A' && c <= 'Z' ? c + 32 : c);
    return extension == ".crt";
}

// "2024-05-01 12:34:56 UTC": universal time, so that reports from machines in any time zone compare.
std::string TimeText(std::optional<std::time_t> time) {
    if (!time) return "unknown";
    using namespace std::chrono;
    const sys_seconds stamp{seconds(*time)};
    const sys_days day = floor<days>(stamp);
    const year_month_day date(day);
    const hh_mm_ss clock(stamp - day);
    char text[48];
    std::snprintf(text, sizeof text, "%04d-%02u-%02u %02d:%02d:%02d UTC", static_cast<int>(date.year()),
                  static_cast<unsigned>(date.month()), static_cast<unsigned>(date.day()),
                  static_cast<int>(clock.hours().count()), static_cast<int>(clock.minutes().count()),
                  static_cast<int>(clock.seconds().count()));
    return text;
}

std::string CertificateDetails(const fs::path& path) {
    std::string text = Common::FormatPlaceholders("Filename: '{0}'", {Common::PathToUtf8(path.filename())}) + kLineEnd;
    std::error_code ec;
    const std::uintmax_t size = fs::file_size(path, ec);
    text += Common::FormatPlaceholders("Size: {0} bytes", {ec ? std::string("unknown") : std::to_string(size)}) + kLineEnd;
    text += Common::FormatPlaceholders("Creation time: {0}", {TimeText(FileCreationTime(path))}) + kLineEnd;
    text += std::string("-----") + kLineEnd;
    std::string contents;
    if (ReadWholeFile(path, contents).Failed()) return text + "Failed to open x509 file" + kLineEnd;
    std::string printed;
    const auto* bytes = reinterpret_cast<const std::uint8_t*>(contents.data());
    if (Common::Error error = PrintCertificate(std::span(bytes, contents.size()), printed); error.Failed()) {
        return text + Common::WideToUtf8(error.Message()) + kLineEnd;
    }
    return text + printed;
}

// Directory entries in listing order; links are left out with a log line.
std::vector<fs::path> Listing(const fs::path& folder) {
    std::vector<fs::path> paths;
    std::error_code ec;
    for (fs::directory_iterator it(folder, fs::directory_options::skip_permission_denied, ec), end; !ec && it != end;
         it.increment(ec)) {
        if (IsLink(it->path())) {
            Common::Log::Info("Link '" + Common::PathToUtf8(it->path()) + "' is not followed.");
            continue;
        }
        paths.push_back(it->path());
    }
    return paths;
}

}  // namespace

std::string OnlineBackupDetailsText(const fs::path& onlineBackupFolder) {
    std::string text = Common::WideToUtf8(ProductVersionLine()) + kLineEnd + kLineEnd;
    for (const fs::path& path : Listing(onlineBackupFolder)) {
        std::error_code ec;
        if (!IsCertificateFile(path) || !fs::is_regular_file(path, ec)) continue;
        text += CertificateDetails(path) + kLineEnd;
    }
    return text;
}

Common::Error WriteOnlineBackupDetails(const fs::path& makerFolder) {
    // A maker folder that is itself a link or junction would have the details written wherever it points.
    if (IsLink(makerFolder)) {
        Common::Log::Warning("Link '" + Common::PathToUtf8(makerFolder) +
                             "' is not followed; no online-backup details are written.");
        return Common::Error::Make(Common::Codes::kOpenFile, L"The folder is a link.");
    }
    bool found = false;
    for (const fs::path& child : Listing(makerFolder)) {
        std::error_code ec;
        const fs::path folder = child / "OnlineBackup";
        if (!fs::is_directory(child, ec) || !fs::is_directory(folder, ec) || IsLink(folder)) continue;
        found = true;
        const fs::path file = folder / "online_backup.txt";
        const std::string failure = Common::FormatPlaceholders("Failed to write file '{0}'.", {Common::PathToUtf8(file)});
        // Writing through a link planted under that name would overwrite whatever it points to: the
        // details of an earlier run are replaced by a new file, and a link there is left as it is.
        if (IsLink(file)) {
            Common::Log::Error(failure);
            continue;
        }
        const std::string text = OnlineBackupDetailsText(folder);
        fs::remove(file, ec);
        if (!WriteNewFile(file, text)) Common::Log::Error(failure);
    }
    if (!found) return Common::Error::Make(Common::Codes::kOpenFile, L"No OnlineBackup folder is available");
    return {};
}

}  // namespace SystemReport
