// The steps of one run of the report tool, from the arguments to the exit status.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "core/common/error.h"
#include "products/imager/system_report/exe/command_line.h"

namespace SystemReport {

// `arguments` excludes the program name. Returns the process exit status.
int SystemReportMain(const std::vector<Argument>& arguments);

// The two outcome lines of the log.
void LogResult(const std::filesystem::path& fileName, const Common::Error& result);

// The text of the success box, cut to the 1024-character buffer it is formatted into.
std::wstring SuccessMessage(const std::wstring& fileName);

}  // namespace SystemReport
