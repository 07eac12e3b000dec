// Setting environment variables from tests, the way the product reads them on each platform.
#pragma once

#include <string>

namespace DaApi {

// ';' on Windows, ':' elsewhere.
extern const char kPathListSeparator;
// An empty value removes the variable.
void SetEnvironment(const char* name, const std::string& value);

}  // namespace DaApi
