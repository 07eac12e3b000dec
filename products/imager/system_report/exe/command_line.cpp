// Parsing of the report tool's arguments.
#include "products/imager/system_report/exe/command_line.h"

#include <string_view>

namespace SystemReport {
namespace {

constexpr std::wstring_view kFileNameOption = L"/filename:";
constexpr std::wstring_view kSilentOption = L"/silent";

bool IsHelpWord(std::wstring_view argument) {
    return argument == L"/?" || argument == L"?" || argument == L"/help" || argument == L"/h";
}

}  // namespace

CommandLine ParseCommandLine(const std::vector<std::wstring>& arguments) {
    CommandLine line;
    for (const std::wstring& argument : arguments) {
        if (IsHelpWord(argument)) {
            line.help = true;
            return line;
        }
        if (argument.compare(0, kFileNameOption.size(), kFileNameOption) == 0) {
            line.fileName = argument.substr(kFileNameOption.size());
        } else if (argument == kSilentOption) {
            line.silent = true;
        }
    }
    return line;
}

}  // namespace SystemReport
