// The generic text report item.
#include "products/imager/system_report/text_report.h"

#include "core/common/localized.h"
#include "core/common/log.h"
#include "core/common/strings.h"
#include "products/imager/system_report/report_file.h"

namespace SystemReport {

TextReport::TextReport(std::wstring title, std::wstring fileName, TextProducer producer)
    : title_(std::move(title)), fileName_(std::move(fileName)), producer_(std::move(producer)) {}

Common::Error TextReport::Create(const std::filesystem::path& folder, FileEntries& entries) {
    std::filesystem::path path = folder / fileName_;
    ReportFileBuffer file;
    if (!file.Open(path)) {
        producer_(nullptr);
        Common::Log::Error(L"Cannot create '" + path.wstring() + L"' for the " + title_ + L".");
        return Common::Error::Make(Common::Codes::kCreateFile, Common::Localized(L"Error occurred while creating the file."));
    }
    std::ostream out(&file);
    Common::Error error = Common::CatchErrors([&] { return producer_(&out); });
    Common::Error written = file.Close();
    // A partial text is worth more than none: the file is archived whatever the producer or the disk did.
    entries.push_back({path, fileName_, Common::Localized(title_), nullptr, false, false});
    if (written.Failed()) {
        Common::Log::Error(L"'" + path.wstring() + L"' for the " + title_ + L" holds only part of its text.");
        if (error.Failed()) Common::Log::WriteError(Common::Log::kWarning, "Its producer failed as well: ", error);
        return written;
    }
    return error;
}

}  // namespace SystemReport
