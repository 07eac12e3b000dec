// A stand-in for an operating-system tool in the tests of the tool starter.
#pragma once

#include <chrono>
#include <filesystem>
#include <vector>

namespace TestTool {

// Does what the words say, in order, and returns the exit code:
//   --write <file> <text>   writes the text to the file
//   --pid <file>            writes `id`, the tool's process id, to the file
//   --sleep <ms>            sleeps
//   --exit <code>           ends with that code (0 when absent)
// Words are paths so that file names keep every character on both platforms.
int Run(const std::vector<std::filesystem::path>& words, unsigned long id);

// For the tests: waits at most `limit` for the tool with process id `id` to be gone (on Linux: reaped).
bool WaitForEnd(unsigned long id, std::chrono::milliseconds limit);

}  // namespace TestTool
