// The add operations of Common::Error that wrap a native code with the system's text for it.
#include <cerrno>
#include <cstring>

#include "core/common/error.h"
#include "core/common/error_system_text.h"
#include "core/common/strings.h"

namespace Common {

Error Error::AddWindowsError(std::uint32_t code, Error cause, std::source_location where) {
    return Make(code, Detail::WindowsErrorText(code), std::move(cause), where);
}

Error Error::AddHResult(std::uint32_t code, Error cause, std::source_location where) {
    return Make(code, Detail::HResultText(code), std::move(cause), where);
}

Error Error::AddNTStatus(std::uint32_t code, Error cause, std::source_location where) {
    return Make(code, Detail::NtStatusText(code), std::move(cause), where);
}

Error Error::AddErrno(int code, Error cause, std::source_location where) {
    return Make(static_cast<std::uint32_t>(code), Utf8ToWide(std::strerror(code)), std::move(cause), where);
}

}  // namespace Common
