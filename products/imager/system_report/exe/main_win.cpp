// Entry point of the Windows GUI-subsystem executable.
#include <string>
#include <vector>

#include "products/imager/system_report/exe/system_report_main.h"

int wmain(int argc, wchar_t** argv) {
    std::vector<std::wstring> arguments;
    for (int i = 1; i < argc; ++i) arguments.emplace_back(argv[i]);
    return SystemReport::SystemReportMain(arguments);
}
