// The command line of the report tool.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace SystemReport {

// An argument as the system hands it over: bytes on POSIX systems, UTF-16 on Windows. A path taken from
// it reaches the file system unchanged, whatever its encoding.
using Argument = std::filesystem::path::string_type;

struct CommandLine {
    bool help = false;
    bool silent = false;
    std::filesystem::path fileName;  // empty: the default beside the executable
};

// `arguments` excludes the program name. Comparisons are case-sensitive; a help word anywhere wins;
// a later "/filename:" replaces an earlier one; anything else is ignored.
CommandLine ParseCommandLine(const std::vector<Argument>& arguments);

// The usage text of the help box.
inline constexpr const wchar_t* kUsageText = L"Usage: SystemReport.exe [/filename:\"filename\"]";

}  // namespace SystemReport
