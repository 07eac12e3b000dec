// Environment variables for tests on POSIX systems.
#include "tests/core/da_api/impl/test_environment.h"

#include <cstdlib>

namespace DaApi {

const char kPathListSeparator = ':';

void SetEnvironment(const char* name, const std::string& value) {
    if (value.empty()) ::unsetenv(name);
    else ::setenv(name, value.c_str(), 1);
}

}  // namespace DaApi
