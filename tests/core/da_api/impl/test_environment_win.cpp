// Environment variables for tests on Windows (the product reads them with GetEnvironmentVariableW).
#include "core/common/windows_api.h"

#include "core/common/strings.h"
#include "tests/core/da_api/impl/test_environment.h"

namespace DaApi {

const char kPathListSeparator = ';';

void SetEnvironment(const char* name, const std::string& value) {
    const std::wstring wideName = Common::Utf8ToWide(name);
    const std::wstring wideValue = Common::Utf8ToWide(value);
    SetEnvironmentVariableW(wideName.c_str(), value.empty() ? nullptr : wideValue.c_str());
}

}  // namespace DaApi
