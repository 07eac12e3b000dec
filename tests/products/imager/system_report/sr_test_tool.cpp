// The test tool's actions.
#include "tests/products/imager/system_report/sr_test_tool.h"

#include <chrono>
#include <fstream>
#include <string>
#include <thread>

namespace TestTool {

int Run(const std::vector<std::filesystem::path>& words, unsigned long id) {
    for (size_t i = 0; i < words.size(); ++i) {
        const std::string word = words[i].string();
        if (word == "--write" && i + 2 < words.size()) {
            std::ofstream(words[i + 1], std::ios::binary) << words[i + 2].string();
            i += 2;
        } else if (word == "--pid" && i + 1 < words.size()) {
            std::ofstream(words[++i], std::ios::binary) << id;
        } else if (word == "--sleep" && i + 1 < words.size()) {
            std::this_thread::sleep_for(std::chrono::milliseconds(std::stol(words[++i].string())));
        } else if (word == "--exit" && i + 1 < words.size()) {
            return std::stoi(words[++i].string());
        } else {
            return 99;
        }
    }
    return 0;
}

}  // namespace TestTool
