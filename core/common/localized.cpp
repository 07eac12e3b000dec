// Lookup in the localized-string table.
#include "core/common/localized.h"

namespace Common {

std::wstring Localized(std::wstring_view key) { return std::wstring(key); }

}  // namespace Common
