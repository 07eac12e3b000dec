// The short name of a function as compilers spell it in std::source_location ("Ns::Class::Method" rather
// than the whole signature), for log lines and error fields.
#pragma once

#include <string>
#include <string_view>

namespace Common {

std::string ShortFunctionName(std::string_view signature);

}  // namespace Common
