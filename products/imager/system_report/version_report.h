// The version report: one line naming the product version this tool was built for.
#pragma once

#include <memory>
#include <ostream>
#include <string>

#include "products/imager/system_report/text_report.h"

namespace SystemReport {

// "Product version: 24.7.38530".
std::wstring ProductVersionLine();

// Writes the version line in UTF-8 with CR LF; never fails.
Common::Error WriteVersionReport(std::ostream* out);

class ReportVersion final : public TextReport {
public:
    ReportVersion();
};

}  // namespace SystemReport
