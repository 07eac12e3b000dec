// The rule engine over PCRE2: compilation once per rule, and the replace loop of std::regex_replace.
#include "products/imager/system_report/filters/rule_engine.h"

#include <limits>
#include <string>

#include "core/common/log.h"
#include "core/common/strings.h"
#include "products/imager/system_report/filters/pcre2_api.h"
#include "products/imager/system_report/filters/replacement_format.h"
#include "products/imager/system_report/filters/word_class.h"

namespace SystemReport::Filters {
namespace {

// The JIT stack only holds backtracking points of groups and alternatives; single-character repeats
// need none, so the rules' use stays small and constant whatever the text.
constexpr std::size_t kJitStackStart = 64 * 1024;
constexpr std::size_t kJitStackMax = 4 * 1024 * 1024;

template <typename Unit>
std::wstring Pcre2Message(int code) {
    typename Pcre2Api<Unit>::Uchar buffer[256] = {};
    int length = Pcre2Api<Unit>::errorMessage(code, buffer, 256);
    std::wstring text;
    for (int i = 0; i < length; ++i) text += static_cast<wchar_t>(buffer[i]);
    return text;
}

template <typename Unit>
Common::Error EngineError(int code, std::size_t rule) {
    return Common::Error::Make(Common::Codes::kUnexpected,
                               L"The text could not be filtered: " + Pcre2Message<Unit>(code) + L".")
        .WithField({"rule", Common::ErrorField::Kind::Decimal, {}, rule + 1});
}

}  // namespace

template <typename Unit>
struct RuleEngine<Unit>::Rule {
    struct Piece {
        FormatPiece::Kind kind;
        std::vector<Unit> literal;
        std::size_t group;
    };
    typename Pcre2Handles<Unit>::Code code;
    std::vector<Piece> format;
};

template <typename Unit>
RuleEngine<Unit>::RuleEngine(std::span<const RuleText> rules) {
    using Api = Pcre2Api<Unit>;
    typename Pcre2Handles<Unit>::CompileContext context(Api::compileContextCreate(nullptr));
    if (!context) Common::ThrowIfFailed(Common::Error::Make(Common::Codes::kUnexpected, L"Out of memory."));
    Api::setNewline(context.get(), PCRE2_NEWLINE_LF);
    const std::string wordClass = WordClassBody(static_cast<int>(sizeof(Unit) * 8));
    for (const RuleText& text : rules) {
        std::string pattern = ExpandWordClass(text.pattern, wordClass);
        std::vector<Unit> units(pattern.begin(), pattern.end());
        int error = 0;
        PCRE2_SIZE offset = 0;
        auto rule = std::make_unique<Rule>();
        rule->code.reset(Api::compile(units.data(), units.size(), PCRE2_CASELESS | PCRE2_NEVER_UTF | PCRE2_NEVER_UCP,
                                      &error, &offset, context.get()));
        if (!rule->code) {
            Common::ThrowIfFailed(Common::Error::Make(
                Common::Codes::kUnexpected, L"Filter pattern '" + Common::Utf8ToWide(text.pattern) +
                                                L"' does not compile: " + Pcre2Message<Unit>(error) + L" at " +
                                                std::to_wstring(offset) + L"."));
        }
        if (Api::jitCompile(rule->code.get(), PCRE2_JIT_COMPLETE) != 0) usesJit_ = false;
        std::uint32_t groups = 0;
        Api::patternInfo(rule->code.get(), PCRE2_INFO_CAPTURECOUNT, &groups);
        for (FormatPiece& piece : ParseReplacement(text.replacement, groups)) {
            rule->format.push_back({piece.kind, std::vector<Unit>(piece.literal.begin(), piece.literal.end()), piece.group});
        }
        rules_.push_back(std::move(rule));
    }
    if (!usesJit_) Common::Log::Info("The text filters run without JIT compilation on this system.");
}

template <typename Unit>
RuleEngine<Unit>::~RuleEngine() = default;

template <typename Unit>
Common::Error RuleEngine<Unit>::Apply(std::span<const Unit> text, std::vector<Unit>& result) const {
    using Api = Pcre2Api<Unit>;
    typename Pcre2Handles<Unit>::MatchContext context(Api::matchContextCreate(nullptr));
    typename Pcre2Handles<Unit>::JitStack stack(Api::jitStackCreate(kJitStackStart, kJitStackMax, nullptr));
    if (!context || !stack) return EngineError<Unit>(PCRE2_ERROR_NOMEMORY, 0);
    Api::jitStackAssign(context.get(), nullptr, stack.get());
    // The rules take time linear in the text, so the count of backtracking steps is no measure of a
    // runaway match here; a limit would only refuse large texts.
    Api::setMatchLimit(context.get(), std::numeric_limits<std::uint32_t>::max());

    // Each rule reads the previous rule's output from `buffer` (the caller's text for the first) and
    // writes into `result`; the two then trade places.
    std::vector<Unit> buffer;
    std::span<const Unit> input = text;
    for (std::size_t index = 0; index < rules_.size(); ++index) {
        const Rule& rule = *rules_[index];
        typename Pcre2Handles<Unit>::MatchData data(Api::matchDataCreate(rule.code.get(), nullptr));
        if (!data) return EngineError<Unit>(PCRE2_ERROR_NOMEMORY, index);
        const PCRE2_SIZE* ovector = Api::ovector(data.get());
        const Unit* subject = input.data();
        const std::size_t size = input.size();
        result.clear();
        result.reserve(size);
        std::size_t copied = 0;  // end of the previous match: where the text before the next one begins
        std::size_t start = 0;
        std::uint32_t options = 0;
        for (;;) {
            int found = Api::match(rule.code.get(), subject, size, start, options, data.get(), context.get());
            if (found == PCRE2_ERROR_NOMATCH) {
                if (options == 0) break;
                // No non-empty match where the empty one was: search on one unit further.
                options = 0;
                ++start;
                continue;
            }
            if (found < 0) return EngineError<Unit>(found, index);
            const std::size_t begin = ovector[0];
            const std::size_t end = ovector[1];
            result.insert(result.end(), subject + copied, subject + begin);
            for (const typename Rule::Piece& piece : rule.format) {
                switch (piece.kind) {
                case FormatPiece::Kind::Literal:
                    result.insert(result.end(), piece.literal.begin(), piece.literal.end());
                    break;
                case FormatPiece::Kind::Group:
                    if (piece.group < static_cast<std::size_t>(found) && ovector[2 * piece.group] != PCRE2_UNSET) {
                        result.insert(result.end(), subject + ovector[2 * piece.group],
                                      subject + ovector[2 * piece.group + 1]);
                    }
                    break;
                case FormatPiece::Kind::Prefix:
                    result.insert(result.end(), subject + copied, subject + begin);
                    break;
                case FormatPiece::Kind::Suffix:
                    result.insert(result.end(), subject + end, subject + size);
                    break;
                }
            }
            copied = end;
            start = end;
            if (begin != end) {
                options = 0;
            } else {
                // As std::regex_iterator does after an empty match: first a non-empty match at the same
                // place, else the search goes on from the next unit.
                if (end == size) break;
                options = PCRE2_NOTEMPTY_ATSTART | PCRE2_ANCHORED;
            }
        }
        result.insert(result.end(), subject + copied, subject + size);
        buffer.swap(result);
        input = buffer;
    }
    if (rules_.empty()) buffer.assign(text.begin(), text.end());
    result.swap(buffer);
    return {};
}

template class RuleEngine<std::uint8_t>;
template class RuleEngine<std::uint16_t>;

}  // namespace SystemReport::Filters
