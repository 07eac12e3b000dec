// Ordered replacement rules run over whole texts with PCRE2 (JIT-compiled where the platform allows),
// replacing exactly as ECMAScript std::regex_replace with icase and format_default does.
//
// The text streams through the rules in pieces, so that all of them work on data that is still in the
// processor's caches: each rule holds back the text that a match might still need (PCRE2's partial
// matching says where that begins) and hands the rest on to the next rule. The result is that of
// applying each rule to the whole text in turn.
#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

#include "core/common/error.h"

namespace SystemReport::Filters {

struct RuleText {
    // PCRE2 syntax in ASCII, matched without regard to ASCII case, with LF as the only line end (for
    // "^" and "$" under "(?m)"); "\w" is the word class of WordClassBody for the engine's width. A rule
    // whose look-behind reaches back more than one character, or whose replacement names the text before
    // or after the match, waits for the whole text.
    std::string_view pattern;
    // ECMAScript replacement format (see ParseReplacement).
    std::string_view replacement;
};

// Unit is char (bytes, held in a std::string) or std::uint16_t (UTF-16 code units, taken one by one:
// no UTF checks).
template <typename Unit>
class RuleEngine {
public:
    using Text = std::conditional_t<std::is_same_v<Unit, char>, std::string, std::vector<Unit>>;

    static constexpr std::size_t kPieceUnits = 16 * 1024;

    // Compiles each pattern once. A pattern that does not compile is a defect of the program, not of
    // any text: it throws Common::ErrorException. `pieceUnits` is the size of the pieces in which the
    // text enters the rules (tests make it tiny to put piece ends everywhere).
    explicit RuleEngine(std::span<const RuleText> rules, std::size_t pieceUnits = kPieceUnits);
    ~RuleEngine();
    RuleEngine(const RuleEngine&) = delete;
    RuleEngine& operator=(const RuleEngine&) = delete;

    // Applies the rules in order, each to the previous one's result, and leaves the last result in
    // `result`. Fails only when the engine itself reports an error (memory, limits), and then `result`
    // holds nothing usable. Safe to call from several threads at once.
    Common::Error Apply(std::span<const Unit> text, Text& result) const;

    // The rules over a text that arrives in pieces, for one text at a time on one thread at a time.
    class Stream {
    public:
        ~Stream();
        Stream(const Stream&) = delete;
        Stream& operator=(const Stream&) = delete;
        // Takes the next piece of the text and appends to `result` what no later piece can change; `last`
        // ends the text, and then everything is appended and the stream is ready for a new text. Fails as
        // Apply does, and when a rule would have to hold back more than the stream's hold limit (a line that
        // a rule may still match grows longer than that): the text is then not filtered, and what was
        // appended must not be used.
        Common::Error Push(std::span<const Unit> piece, bool last, Text& result);

    private:
        friend class RuleEngine;
        struct State;
        explicit Stream(std::unique_ptr<State> state);
        std::unique_ptr<State> state_;
    };

    static constexpr std::size_t kHoldLimit = 8u << 20;

    // A stream over these rules; fails only when memory runs out.
    Common::Error Start(std::unique_ptr<Stream>& stream, std::size_t holdLimit = kHoldLimit) const;

    // Whether the patterns run as machine code (false where the platform forbids executable memory).
    bool UsesJit() const { return usesJit_; }

private:
    struct Rule;
    class Stage;
    std::vector<std::unique_ptr<Rule>> rules_;
    std::size_t pieceUnits_;
    bool usesJit_ = true;
};

extern template class RuleEngine<char>;
extern template class RuleEngine<std::uint16_t>;

}  // namespace SystemReport::Filters
