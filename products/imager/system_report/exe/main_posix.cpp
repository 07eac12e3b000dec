// Entry point on POSIX systems: arguments are bytes and are passed on as such, so that a path in any
// encoding reaches the file system unchanged.
#include <vector>

#include "products/imager/system_report/exe/system_report_main.h"

int main(int argc, char** argv) {
    std::vector<SystemReport::Argument> arguments(argv + 1, argv + argc);
    return SystemReport::SystemReportMain(arguments);
}
