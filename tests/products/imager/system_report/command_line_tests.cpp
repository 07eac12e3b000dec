// The command line: every rule of the argument table that can be observed.
#include "products/imager/system_report/exe/command_line.h"

#include <gtest/gtest.h>

#include "products/imager/system_report/exe/system_report_main.h"

namespace {

using SystemReport::ParseCommandLine;

struct Case {
    std::vector<std::wstring> arguments;
    bool help;
    bool silent;
    std::wstring fileName;
};

TEST(CommandLineTest, ArgumentTable) {
    const Case cases[] = {
        // The help words, /silent and /filename: together, and options in the wrong case: entry_point_e2e.sh.
        {{}, false, false, L""},
        {{L"/HELP"}, false, false, L""},                         // case-sensitive: ignored
        {{L"/filename:x.zip", L"/help"}, true, false, L""},      // help wins anywhere
        {{L"/filename:a.zip", L"/filename:b.zip"}, false, false, L"b.zip"},  // a later one wins
        {{L"/filename:a.zip", L"/filename:"}, false, false, L""},            // empty rest: default
        {{L"/FILENAME:x.zip", L"/Silent"}, false, false, L""},               // not recognised
        {{L"/filename:rel\\dir with blanks\\r.zip"}, false, false, L"rel\\dir with blanks\\r.zip"},
        {{L"/filenamex.zip", L"/silentx", L"junk"}, false, false, L""},
    };
    for (const Case& c : cases) {
        std::vector<SystemReport::Argument> arguments;
        for (const std::wstring& argument : c.arguments) arguments.push_back(std::filesystem::path(argument).native());
        auto line = ParseCommandLine(arguments);
        std::wstring shown;
        for (const auto& a : c.arguments) shown += a + L" ";
        SCOPED_TRACE(std::string(shown.begin(), shown.end()));
        EXPECT_EQ(line.help, c.help);
        if (!c.help) {
            EXPECT_EQ(line.silent, c.silent);
            EXPECT_EQ(line.fileName, std::filesystem::path(c.fileName));
        }
    }
}

TEST(CommandLineTest, SuccessTextIsCutToItsBuffer) {
    EXPECT_EQ(SystemReport::SuccessMessage(L"C:\\r.zip"),
              L"The system report is successfully generated.\nReport file location: C:\\r.zip");
    std::wstring longName(3000, L'x');
    EXPECT_EQ(SystemReport::SuccessMessage(longName).size(), 1023u);
}

}  // namespace
