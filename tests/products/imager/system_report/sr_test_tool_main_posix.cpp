// Entry of the test tool: the arguments' bytes are the file names' bytes.
#include <unistd.h>

#include "tests/products/imager/system_report/sr_test_tool.h"

int main(int argc, char** argv) {
    std::vector<std::filesystem::path> words(argv + 1, argv + argc);
    return TestTool::Run(words, static_cast<unsigned long>(getpid()));
}
