// The rule engine over PCRE2: compilation once per rule, and the replace loop of std::regex_replace run
// over a stream of pieces.
#include "products/imager/system_report/filters/rule_engine.h"

#include <algorithm>
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
        .WithField({"rule", Common::ErrorField::Kind::Decimal, {}, rule + 1});  // counted from 1, as the tables
}

}  // namespace

template <typename Unit>
struct RuleEngine<Unit>::Rule {
    struct Piece {
        FormatPiece::Kind kind;
        Text literal;
        std::size_t group;
    };
    std::size_t index = 0;  // in the table, for error reports
    typename Pcre2Handles<Unit>::Code code;
    std::vector<Piece> format;
    bool wholeText = false;  // the rule needs the whole text at once
};

// One rule applied to a stream. Its input grows at the end as the rule before it (or, for the first
// rule, the caller) appends more; the rule hands on what is settled by appending it to the next
// rule's input. The input keeps one unit of context before what is not handed on yet, so that "^" and
// "\b" see the unit before. Until the text ends, PCRE2_PARTIAL_HARD reports a match that more text could
// still complete or change, and the text from its start is held back.
template <typename Unit>
class RuleEngine<Unit>::Stage {
public:
    Stage(const Rule& rule, typename Pcre2Api<Unit>::MatchContext* context)
        : rule_(rule), context_(context), data_(Pcre2Api<Unit>::matchDataCreate(rule.code.get(), nullptr)) {}

    bool Ready() const { return data_ != nullptr; }

    // Where the rule before this one appends what it hands on.
    Text& Input() { return input_; }
    std::size_t Held() const { return input_.size(); }

    // Ready for a new text.
    void Reset() {
        input_.clear();
        emitted_ = start_ = previousEnd_ = waitFor_ = 0;
        retry_ = 0;
    }

    // Appends to `out` what is settled; at the end of the text (`last`), everything.
    Common::Error Step(bool last, Text& out) {
        const std::size_t size = Size();
        if (!last && (rule_.wholeText || size < waitFor_ || start_ >= size)) return {};
        if (Common::Error error = Run(last, out); error.Failed()) return error;
        if (!last) Compact();
        return {};
    }

private:
    using Api = Pcre2Api<Unit>;

    const Unit* Data() const { return input_.data(); }
    std::size_t Size() const { return input_.size(); }

    Common::Error Run(bool last, Text& out) {
        static const Unit empty{};
        const std::size_t size = Size();
        const Unit* subject = size == 0 ? &empty : Data();
        const PCRE2_SIZE* ovector = Api::ovector(data_.get());
        const std::uint32_t partial = last ? 0 : PCRE2_PARTIAL_HARD;
        waitFor_ = 0;
        while (last || start_ < size) {
            int found = Api::match(rule_.code.get(), Api::Units(subject), size, start_, retry_ | partial, data_.get(), context_);
            if (found == PCRE2_ERROR_PARTIAL) {
                // A match may begin here once more text has come: wait until as much again has.
                Emit(out, subject, ovector[0]);
                if (retry_ == 0) start_ = std::max<std::size_t>(start_, ovector[0]);
                waitFor_ = size + (size - emitted_);
                return {};
            }
            if (found == PCRE2_ERROR_NOMATCH) {
                if (retry_ == 0) {
                    Emit(out, subject, size);
                    start_ = size;
                    return {};
                }
                // No non-empty match where the empty one was: the search goes on one unit further.
                retry_ = 0;
                if (start_ == size) return {};
                ++start_;
                continue;
            }
            if (found < 0) return EngineError<Unit>(found, rule_.index);
            const std::size_t begin = ovector[0];
            const std::size_t end = ovector[1];
            Emit(out, subject, begin);
            for (const typename Rule::Piece& piece : rule_.format) {
                switch (piece.kind) {
                case FormatPiece::Kind::Literal:
                    out.insert(out.end(), piece.literal.begin(), piece.literal.end());
                    break;
                case FormatPiece::Kind::Group:
                    if (piece.group < static_cast<std::size_t>(found) && ovector[2 * piece.group] != PCRE2_UNSET) {
                        out.insert(out.end(), subject + ovector[2 * piece.group], subject + ovector[2 * piece.group + 1]);
                    }
                    break;
                // Only whole-text rules name these, so the text before and after the match is all here.
                case FormatPiece::Kind::Prefix:
                    out.insert(out.end(), subject + previousEnd_, subject + begin);
                    break;
                case FormatPiece::Kind::Suffix:
                    out.insert(out.end(), subject + end, subject + size);
                    break;
                }
            }
            emitted_ = previousEnd_ = start_ = end;
            // As std::regex_iterator does after an empty match: first a non-empty match at the same place,
            // else the search goes on from the next unit.
            retry_ = begin == end ? PCRE2_NOTEMPTY_ATSTART | PCRE2_ANCHORED : 0;
            if (begin == end && end == size && last) return {};
        }
        return {};
    }

    void Emit(Text& out, const Unit* subject, std::size_t upTo) {
        if (upTo > emitted_) out.insert(out.end(), subject + emitted_, subject + upTo);
        emitted_ = std::max(emitted_, upTo);
    }

    // Drops from the input what is handed on, but for the one unit of context before the rest.
    void Compact() {
        const std::size_t keep = std::min(emitted_, start_);
        if (keep <= 1) return;
        const std::size_t drop = keep - 1;
        input_.erase(input_.begin(), input_.begin() + static_cast<std::ptrdiff_t>(drop));
        emitted_ -= drop;
        start_ -= drop;
        previousEnd_ = previousEnd_ > drop ? previousEnd_ - drop : 0;
        waitFor_ = waitFor_ > drop ? waitFor_ - drop : 0;
    }

    const Rule& rule_;
    typename Pcre2Api<Unit>::MatchContext* context_;
    typename Pcre2Handles<Unit>::MatchData data_;
    Text input_;
    std::size_t emitted_ = 0;      // the input before this is handed on
    std::size_t start_ = 0;        // where the next search begins
    std::size_t previousEnd_ = 0;  // end of the previous match
    std::size_t waitFor_ = 0;      // input size at which a held-back match is tried again
    std::uint32_t retry_ = 0;
};

template <typename Unit>
RuleEngine<Unit>::RuleEngine(std::span<const RuleText> rules, std::size_t pieceUnits)
    : pieceUnits_(std::max<std::size_t>(pieceUnits, 1)) {
    using Api = Pcre2Api<Unit>;
    typename Pcre2Handles<Unit>::CompileContext context(Api::compileContextCreate(nullptr));
    if (!context) Common::ThrowIfFailed(Common::Error::Make(Common::Codes::kUnexpected, L"Out of memory."));
    Api::setNewline(context.get(), PCRE2_NEWLINE_LF);
    const std::string wordClass = WordClassBody(static_cast<int>(sizeof(Unit) * 8));
    for (const RuleText& text : rules) {
        std::string pattern = ExpandWordClass(text.pattern, wordClass);
        Text units(pattern.begin(), pattern.end());
        int error = 0;
        PCRE2_SIZE offset = 0;
        auto rule = std::make_unique<Rule>();
        rule->index = rules_.size();
        rule->code.reset(Api::compile(Api::Units(units.data()), units.size(),
                                      PCRE2_CASELESS | PCRE2_NEVER_UTF | PCRE2_NEVER_UCP, &error, &offset, context.get()));
        if (!rule->code) {
            Common::ThrowIfFailed(Common::Error::Make(
                Common::Codes::kUnexpected, L"Filter pattern '" + Common::Utf8ToWide(text.pattern) +
                                                L"' does not compile: " + Pcre2Message<Unit>(error) + L" at " +
                                                std::to_wstring(offset) + L"."));
        }
        if (Api::jitCompile(rule->code.get(), PCRE2_JIT_COMPLETE | PCRE2_JIT_PARTIAL_HARD) != 0) usesJit_ = false;
        std::uint32_t groups = 0;
        std::uint32_t lookBehind = 0;
        Api::patternInfo(rule->code.get(), PCRE2_INFO_CAPTURECOUNT, &groups);
        Api::patternInfo(rule->code.get(), PCRE2_INFO_MAXLOOKBEHIND, &lookBehind);
        rule->wholeText = lookBehind > 1;
        for (FormatPiece& piece : ParseReplacement(text.replacement, groups)) {
            rule->wholeText |= piece.kind == FormatPiece::Kind::Prefix || piece.kind == FormatPiece::Kind::Suffix;
            rule->format.push_back({piece.kind, Text(piece.literal.begin(), piece.literal.end()), piece.group});
        }
        rules_.push_back(std::move(rule));
    }
    if (!usesJit_) Common::Log::Info("The text filters run without JIT compilation on this system.");
}

template <typename Unit>
RuleEngine<Unit>::~RuleEngine() = default;

// What one text needs while it passes the rules: a match context, a JIT stack and a stage per rule.
template <typename Unit>
struct RuleEngine<Unit>::Stream::State {
    typename Pcre2Handles<Unit>::MatchContext context;
    typename Pcre2Handles<Unit>::JitStack stack;
    std::vector<std::unique_ptr<Stage>> stages;
    std::size_t pieceUnits = 0;
    std::size_t holdLimit = 0;
};

template <typename Unit>
RuleEngine<Unit>::Stream::Stream(std::unique_ptr<State> state) : state_(std::move(state)) {}

template <typename Unit>
RuleEngine<Unit>::Stream::~Stream() = default;

template <typename Unit>
Common::Error RuleEngine<Unit>::Start(std::unique_ptr<Stream>& stream, std::size_t holdLimit) const {
    using Api = Pcre2Api<Unit>;
    auto state = std::make_unique<typename Stream::State>();
    state->pieceUnits = pieceUnits_;
    state->holdLimit = holdLimit;
    state->context.reset(Api::matchContextCreate(nullptr));
    state->stack.reset(Api::jitStackCreate(kJitStackStart, kJitStackMax, nullptr));
    if (!state->context || !state->stack) return EngineError<Unit>(PCRE2_ERROR_NOMEMORY, 0);
    Api::jitStackAssign(state->context.get(), nullptr, state->stack.get());
    // The rules take time linear in the text, so the count of backtracking steps is no measure of a
    // runaway match here; a limit would only refuse large texts.
    Api::setMatchLimit(state->context.get(), std::numeric_limits<std::uint32_t>::max());
    for (const std::unique_ptr<Rule>& rule : rules_) {
        state->stages.push_back(std::make_unique<Stage>(*rule, state->context.get()));
        if (!state->stages.back()->Ready()) return EngineError<Unit>(PCRE2_ERROR_NOMEMORY, rule->index);
    }
    stream.reset(new Stream(std::move(state)));
    return {};
}

template <typename Unit>
Common::Error RuleEngine<Unit>::Stream::Push(std::span<const Unit> piece, bool last, Text& result) {
    std::vector<std::unique_ptr<Stage>>& stages = state_->stages;
    if (stages.empty()) {
        result.insert(result.end(), piece.begin(), piece.end());
        return {};
    }
    // The piece enters in slices, so that every rule works on text still in the processor's caches.
    std::size_t taken = 0;
    do {
        const std::size_t slice = std::min(state_->pieceUnits, piece.size() - taken);
        Text& input = stages.front()->Input();
        input.insert(input.end(), piece.begin() + static_cast<std::ptrdiff_t>(taken),
                     piece.begin() + static_cast<std::ptrdiff_t>(taken + slice));
        taken += slice;
        const bool end = last && taken == piece.size();
        for (std::size_t i = 0; i < stages.size(); ++i) {
            Text& out = i + 1 < stages.size() ? stages[i + 1]->Input() : result;
            if (Common::Error error = stages[i]->Step(end, out); error.Failed()) return error;
            if (stages[i]->Held() > state_->holdLimit) {
                return Common::Error::Make(Common::Codes::kUnexpected,
                                           L"The text could not be filtered: a line that a rule may still match is "
                                           L"longer than " + std::to_wstring(state_->holdLimit >> 20) + L" MiB.")
                    .WithField({"rule", Common::ErrorField::Kind::Decimal, {}, i + 1});
            }
        }
    } while (taken < piece.size());
    if (last) {
        for (const std::unique_ptr<Stage>& stage : stages) stage->Reset();
    }
    return {};
}

template <typename Unit>
Common::Error RuleEngine<Unit>::Apply(std::span<const Unit> text, Text& result) const {
    std::unique_ptr<Stream> stream;
    if (Common::Error error = Start(stream, std::numeric_limits<std::size_t>::max()); error.Failed()) return error;
    result.clear();
    result.reserve(text.size());
    return stream->Push(text, true, result);
}

template class RuleEngine<char>;
template class RuleEngine<std::uint16_t>;

}  // namespace SystemReport::Filters
