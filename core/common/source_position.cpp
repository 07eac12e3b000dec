// Shortening of compiler-spelled function signatures.
#include "core/common/source_position.h"

namespace Common {

// Drops the return type and the parameter list: the name ends at the first '(' outside template brackets
// (GCC spells lambdas "<lambda()>"), and starts after the last blank outside them.
std::string ShortFunctionName(std::string_view signature) {
    int depth = 0;
    size_t start = 0;
    for (size_t i = 0; i < signature.size(); ++i) {
        char c = signature[i];
        if (c == '<') ++depth;
        else if (c == '>' && depth > 0) --depth;
        else if (depth == 0 && c == ' ') start = i + 1;
        else if (depth == 0 && c == '(' && i > start) return std::string(signature.substr(start, i - start));
    }
    return std::string(signature.substr(start));
}

}  // namespace Common
