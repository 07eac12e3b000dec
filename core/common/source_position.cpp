// Shortening of compiler-spelled function signatures.
#include "core/common/source_position.h"

namespace Common {

namespace {

// Drops the return type and the parameter list: the name ends at the first '(' outside template brackets
// (GCC spells lambdas "<lambda()>"), and starts after the last blank outside them.
std::string_view QualifiedName(std::string_view signature) {
    int depth = 0;
    size_t start = 0;
    for (size_t i = 0; i < signature.size(); ++i) {
        char c = signature[i];
        if (c == '<') ++depth;
        else if (c == '>' && depth > 0) --depth;
        else if (depth == 0 && c == ' ') start = i + 1;
        else if (depth == 0 && c == '(' && i > start) return signature.substr(start, i - start);
    }
    return signature.substr(start);
}

}  // namespace

// An unnamed namespace says nothing to a reader of the log: its step in the name is left out (GCC and
// Clang spell it differently, and Clang's spelling holds a blank and a parenthesis).
std::string ShortFunctionName(std::string_view signature) {
    std::string text(signature);
    for (std::string_view unnamed : {std::string_view("{anonymous}::"), std::string_view("(anonymous namespace)::")}) {
        for (size_t at = text.find(unnamed); at != std::string::npos; at = text.find(unnamed, at)) {
            text.erase(at, unnamed.size());
        }
    }
    return std::string(QualifiedName(text));
}

}  // namespace Common
