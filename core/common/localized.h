// The program's localized-string table. Texts are looked up by key; where no translation exists the key
// itself is the text. This build carries only the English texts, so every key is its own text.
#pragma once

#include <string>
#include <string_view>

namespace Common {

std::wstring Localized(std::wstring_view key);

}  // namespace Common
