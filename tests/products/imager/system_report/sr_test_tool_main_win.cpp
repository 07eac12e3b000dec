// Entry of the test tool: wide arguments, so that non-ASCII file names arrive whole.
#include "core/common/windows_api.h"
#include "tests/products/imager/system_report/sr_test_tool.h"

int wmain(int argc, wchar_t** argv) {
    std::vector<std::filesystem::path> words(argv + 1, argv + argc);
    return TestTool::Run(words, GetCurrentProcessId());
}
