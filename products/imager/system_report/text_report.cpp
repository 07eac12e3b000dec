// The generic text report item.
#include "products/imager/system_report/text_report.h"

#include <fstream>

#include "core/common/localized.h"
#include "core/common/log.h"
#include "core/common/strings.h"

namespace SystemReport {

TextReport::TextReport(std::wstring title, std::wstring fileName, TextProducer producer)
    : title_(std::move(title)), fileName_(std::move(fileName)), producer_(std::move(producer)) {}

Common::Error TextReport::Create(const std::filesystem::path& folder, FileEntries& entries) {
    std::filesystem::path path = folder / fileName_;
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    if (!out) {
        producer_(nullptr);
        Common::Log::Error(L"Cannot create '" + path.wstring() + L"' for the " + title_ + L".");
        return Common::Error::Make(Common::Codes::kCreateFile, Common::Localized(L"Error occurred while creating the file."));
    }
    Common::Error error = Common::CatchErrors([&] { return producer_(&out); });
    out.close();
    if (!out) {
        Common::Log::Error(L"Cannot write '" + path.wstring() + L"' for the " + title_ + L".");
        return Common::Error::Make(Common::Codes::kOpenFile, L"Cannot write an item to the system report.", error);
    }
    entries.push_back({path, fileName_, Common::Localized(title_), nullptr, false, false});
    return error;
}

}  // namespace SystemReport
