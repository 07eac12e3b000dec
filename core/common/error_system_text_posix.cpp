// Off Windows there are no message tables for Windows, HRESULT or NT codes: the code itself is still
// written, with an empty message.
#include "core/common/error_system_text.h"

namespace Common::Detail {

std::wstring WindowsErrorText(std::uint32_t) { return {}; }
std::wstring HResultText(std::uint32_t) { return {}; }
std::wstring NtStatusText(std::uint32_t) { return {}; }

}  // namespace Common::Detail
