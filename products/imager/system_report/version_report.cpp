// The version report.
#include "products/imager/system_report/version_report.h"

#include "core/common/product.h"
#include "core/common/strings.h"

namespace SystemReport {

std::wstring ProductVersionLine() {
    using namespace Common::Product;
    return Common::FormatPlaceholders(L"Product version: {0}.{1}.{2}",
                                      {std::to_wstring(kVersionMajor), std::to_wstring(kVersionMinor),
                                       std::to_wstring(kVersionBuild)});
}

Common::Error WriteVersionReport(std::ostream* out) {
    std::wstring line = ProductVersionLine();
    if (out && !line.empty()) *out << Common::WideToUtf8(line) << "\r\n";
    return {};
}

ReportVersion::ReportVersion() : TextReport(L"Version Report", L"version.txt", &WriteVersionReport) {}

}  // namespace SystemReport
