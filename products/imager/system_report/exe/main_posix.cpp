// Entry point on POSIX systems: arguments arrive as UTF-8.
#include <string>
#include <vector>

#include "core/common/strings.h"
#include "products/imager/system_report/exe/system_report_main.h"

int main(int argc, char** argv) {
    std::vector<std::wstring> arguments;
    for (int i = 1; i < argc; ++i) arguments.push_back(Common::Utf8ToWide(argv[i]));
    return SystemReport::SystemReportMain(arguments);
}
