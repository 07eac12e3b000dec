// The command line of the report tool.
#pragma once

#include <string>
#include <vector>

namespace SystemReport {

struct CommandLine {
    bool help = false;
    bool silent = false;
    std::wstring fileName;  // empty: the default beside the executable
};

// `arguments` excludes the program name. Comparisons are case-sensitive; a help word anywhere wins;
// a later "/filename:" replaces an earlier one; anything else is ignored.
CommandLine ParseCommandLine(const std::vector<std::wstring>& arguments);

// The usage text of the help box.
inline constexpr const wchar_t* kUsageText = L"Usage: SystemReport.exe [/filename:\"filename\"]";

}  // namespace SystemReport
