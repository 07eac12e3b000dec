// Parsing of the report tool's arguments.
#include "products/imager/system_report/exe/command_line.h"

#include <string_view>

namespace SystemReport {
namespace {

// The options are ASCII, so each of their characters is one unit in either native encoding.
Argument Native(std::string_view ascii) { return Argument(ascii.begin(), ascii.end()); }

const Argument kFileNameOption = Native("/filename:");
const Argument kSilentOption = Native("/silent");

bool IsHelpWord(const Argument& argument) {
    for (std::string_view word : {"/?", "?", "/help", "/h"}) {
        if (argument == Native(word)) return true;
    }
    return false;
}

}  // namespace

CommandLine ParseCommandLine(const std::vector<Argument>& arguments) {
    CommandLine line;
    for (const Argument& argument : arguments) {
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
