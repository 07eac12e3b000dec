// Entry point of the Windows GUI-subsystem executable.
#include <vector>

#include "products/imager/system_report/exe/system_report_main.h"

int wmain(int argc, wchar_t** argv) {
    std::vector<SystemReport::Argument> arguments(argv + 1, argv + argc);
    return SystemReport::SystemReportMain(arguments);
}
