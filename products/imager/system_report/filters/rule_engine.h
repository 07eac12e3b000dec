// Ordered replacement rules run over whole texts with PCRE2 (JIT-compiled where the platform allows),
// replacing exactly as ECMAScript std::regex_replace with icase and format_default does.
#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <string_view>
#include <vector>

#include "core/common/error.h"

namespace SystemReport::Filters {

struct RuleText {
    // PCRE2 syntax in ASCII, matched without regard to ASCII case, with LF as the only line end (for
    // "^" and "$" under "(?m)"); "\w" is the word class of WordClassBody for the engine's width.
    std::string_view pattern;
    // ECMAScript replacement format (see ParseReplacement).
    std::string_view replacement;
};

// Unit is std::uint8_t (bytes) or std::uint16_t (UTF-16 code units, taken one by one: no UTF checks).
template <typename Unit>
class RuleEngine {
public:
    // Compiles each pattern once. A pattern that does not compile is a defect of the program, not of
    // any text: it throws Common::ErrorException.
    explicit RuleEngine(std::span<const RuleText> rules);
    ~RuleEngine();
    RuleEngine(const RuleEngine&) = delete;
    RuleEngine& operator=(const RuleEngine&) = delete;

    // Applies the rules in order, each to the previous one's result, and leaves the last result in
    // `result`. Fails only when the engine itself reports an error (memory, limits), and then `result`
    // holds nothing usable. Safe to call from several threads at once.
    Common::Error Apply(std::span<const Unit> text, std::vector<Unit>& result) const;

    // Whether the patterns run as machine code (false where the platform forbids executable memory).
    bool UsesJit() const { return usesJit_; }

private:
    struct Rule;
    std::vector<std::unique_ptr<Rule>> rules_;
    bool usesJit_ = true;
};

extern template class RuleEngine<std::uint8_t>;
extern template class RuleEngine<std::uint16_t>;

}  // namespace SystemReport::Filters
