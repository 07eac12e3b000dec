// The rule tables of the redaction filters and the byte handling around them.
//
// The reference for every rule is ECMAScript std::regex with icase, replacing each match in turn as
// std::regex_replace does. Where a pattern below differs from that plain form (shown in its comment),
// the change only spares the engine work that cannot lead to a match; the output is the same.
#include "products/imager/system_report/filters/text_data_filter.h"

#include <array>
#include <cstdint>
#include <limits>
#include <span>
#include <string_view>

namespace SystemReport {
namespace {

constexpr const char* kAddressRule = R"(([\.\w\-]++(?:@[\w\-]++\.[\w]{2,4}|(*SKIP)(*FAIL))))";

constexpr Filters::RuleText kTextRules[] = {
    {R"((user[ ]?name[:]?)([^\n]+))", "$1 ***"},
    {R"((curuser)([^\n]+))", "$1 ***"},
    {R"((password)([^\n]+))", "$1 ***"},
    {R"((private)([^\n]+))", "$1 ***"},
    // ([^\n]*)(\\Users\\)([^\\]+)([^\n]*). A match ends at a line end (the last group takes the rest of
    // the line), so each search begins at the start of the text or at a line end; and a line with no match
    // from its start has none from a later place in it. Matches therefore begin at line starts only: "^"
    // spares the engine trying every other place of a line (time quadratic in its length), and the
    // look-ahead passes over lines without "\Users\" at the speed of a plain search.
    {R"((?m)^(?=[^\n]*\\Users\\)([^\n]*)(\\Users\\)([^\\]+)([^\n]*))", "$1$2***$4"},
    {R"((SeLockMemoryPrivilege = )([^\n]+))", "$1 ***"},
    {R"((BEGIN CERTIFICATE-----)([^ ]+)(-----END CERTIFICATE))", "$1 *** $3"},
    // ([\.\w\-]+@[\w\-]+\.[\w]{2,4}). '@' is no address character, so the part before it is always the
    // whole rest of a run of address characters, and the domain always a whole run of [\w\-] up to a '.':
    // the possessive forms give the same matches without backtracking. Where no address starts at some
    // place, none starts later in the same run either, and the search skips to the run's end.
    {kAddressRule, "***@**.**"},
    // (<LocationLogin>)([^\n]+)(</LocationLogin>). When no closing tag follows an opening tag on its line,
    // none follows a later opening tag on that line either: the search goes on at the line end.
    {R"((<LocationLogin>)(?:([^\n]+)(</LocationLogin>)|[^\n]*+(*SKIP)(*FAIL)))", "$1 *** $3"},
};

constexpr Filters::RuleText kWideTextRules[] = {
    {R"((username)([^\n<>\]\]]+))", "$1 ***"},
    {R"((password)([^\n]+))", "$1 ***"},
    {R"((private)([^\n]+))", "$1 ***"},
    {kAddressRule, "***@**.**"},
};

constexpr std::uint16_t kByteOrderMark = 0xFEFF;

char Lower(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }

// `word` (lower case) at `at` in `text`, in any ASCII case, as the rules match it.
bool WordAt(std::string_view text, std::size_t at, std::string_view word) {
    if (text.size() - at < word.size()) return false;
    for (std::size_t i = 0; i < word.size(); ++i) {
        if (Lower(text[at + i]) != word[i]) return false;
    }
    return true;
}

bool Contains(std::string_view line, std::string_view word) {
    for (std::size_t at = 0; at < line.size(); ++at) {
        if (WordAt(line, at, word)) return true;
    }
    return false;
}

// The byte pairs that begin one of the words below, in any case, and '@' followed by anything. Most places
// of a line fail this one lookup; the letters alone ('s', 'p', 'u', 'b') would send every sixth byte or so
// to a word comparison.
class WordStarts {
public:
    WordStarts() {
        static constexpr std::string_view kPairs[] = {"us", "pa", "pr", "se", "be", "<l"};
        for (unsigned first = 0; first < 256; ++first) {
            for (unsigned second = 0; second < 256; ++second) {
                const char a = Lower(static_cast<char>(first)), b = Lower(static_cast<char>(second));
                bool start = first == '@';
                for (std::string_view pair : kPairs) start = start || (a == pair[0] && b == pair[1]);
                if (start) bits_[Key(first, second) / 64] |= std::uint64_t{1} << (Key(first, second) % 64);
            }
        }
    }

    bool At(std::string_view line, std::size_t at) const {
        const unsigned key = Key(static_cast<unsigned char>(line[at]), static_cast<unsigned char>(line[at + 1]));
        return (bits_[key / 64] >> (key % 64)) & 1;
    }

private:
    static unsigned Key(unsigned first, unsigned second) { return first | second << 8; }

    std::array<std::uint64_t, 65536 / 64> bits_{};
};

// Whether a rule of the table may match in `line`: every match holds one of these words (rules 1, 2 and
// 5 all hold "user"; rule 8 holds '@').
bool MayMatch(std::string_view line) {
    static const WordStarts starts;
    if (line.empty()) return false;
    for (std::size_t at = 0; at + 1 < line.size(); ++at) {
        if (!starts.At(line, at)) continue;
        switch (Lower(line[at])) {
        case '@': return true;
        case 'u': if (WordAt(line, at, "user")) return true; break;
        case 'p': if (WordAt(line, at, "password") || WordAt(line, at, "private")) return true; break;
        case 's': if (WordAt(line, at, "selockmemoryprivilege")) return true; break;
        case 'b': if (WordAt(line, at, "begin certificate")) return true; break;
        case '<': if (WordAt(line, at, "<locationlogin>")) return true; break;
        default: break;
        }
    }
    return line.back() == '@';
}

// Passes lines that no rule can touch by the rules, which are slow next to a plain scan, and sends the rest
// through them in windows of whole lines. A window is filtered as a text of its own, which gives the same
// bytes as filtering the whole text as long as no match crosses a window's edge. Only two rules match
// across a line end: the user-folder rule, whose folder name runs to the next backslash, and the
// certificate rule, whose body runs to the next blank. So a window opens at a line that a rule may match,
// and closes after the first line that no rule may match and that holds a backslash (when a "\Users\" came
// before) and a blank (when a certificate began before): no match can reach past it. A line longer than
// kLongLine goes to the rules as it comes, as though a rule might match it.
class LineGate final : public CopyFileFilter::Stream {
public:
    static constexpr std::size_t kLongLine = 64 * 1024;

    explicit LineGate(std::unique_ptr<Filters::RuleEngine<char>::Stream> rules) : rules_(std::move(rules)) {}

    Common::Error Push(std::string_view piece, bool last, std::string& filtered) override {
        if (!carry_.empty()) {
            const std::size_t lineEnd = piece.find('\n');
            const std::size_t taken = lineEnd == std::string_view::npos ? piece.size() : lineEnd + 1;
            carry_.append(piece.substr(0, taken));
            piece.remove_prefix(taken);
            if (lineEnd == std::string_view::npos && !last) return LongLine(filtered);
            std::string line;
            line.swap(carry_);
            if (Common::Error error = Scan(line, last && piece.empty(), filtered).error; error.Failed()) return error;
            if (piece.empty() && !last) return {};
        }
        const Scanned scanned = Scan(piece, last, filtered);
        if (scanned.error.Failed() || last) return scanned.error;
        carry_.assign(piece.substr(scanned.end));
        return LongLine(filtered);
    }

private:
    struct Scanned {
        Common::Error error;
        std::size_t end = 0;  // where the line that has not ended yet begins
    };

    // Hands on every line of `text` that has ended, and at the `last` the rest too.
    Scanned Scan(std::string_view text, bool last, std::string& filtered) {
        std::size_t from = 0;  // what is not handed on yet
        std::size_t at = 0;
        while (at < text.size()) {
            const std::size_t lineEnd = text.find('\n', at);
            if (lineEnd == std::string_view::npos && !last) break;
            const std::size_t end = lineEnd == std::string_view::npos ? text.size() : lineEnd + 1;
            const std::string_view line = text.substr(at, end - at);
            if (midLine_ || MayMatch(line)) {
                if (!open_) {
                    filtered.append(text.substr(from, at - from));
                    from = at;
                    open_ = true;
                }
                userFolder_ = userFolder_ || midLine_ || Contains(line, "\\users\\");
                certificate_ = certificate_ || midLine_ || Contains(line, "begin certificate-----");
            } else if (open_) {
                if (line.find('\\') != std::string_view::npos) userFolder_ = false;
                if (line.find(' ') != std::string_view::npos) certificate_ = false;
                if (!userFolder_ && !certificate_) {
                    if (Common::Error error = rules_->Push(text.substr(from, end - from), true, filtered);
                        error.Failed()) {
                        return {error};
                    }
                    from = end;
                    open_ = false;
                }
            }
            midLine_ = false;
            at = end;
        }
        if (!open_) {
            filtered.append(text.substr(from, at - from));
            return {{}, at};
        }
        Common::Error error = rules_->Push(text.substr(from, at - from), last, filtered);
        if (last) open_ = userFolder_ = certificate_ = false;
        return {error, at};
    }

    // A line that has not ended grows long: it goes to the rules as it is.
    Common::Error LongLine(std::string& filtered) {
        if (carry_.size() <= kLongLine) return {};
        open_ = userFolder_ = certificate_ = midLine_ = true;
        Common::Error error = rules_->Push(carry_, false, filtered);
        carry_.clear();
        return error;
    }

    std::unique_ptr<Filters::RuleEngine<char>::Stream> rules_;
    std::string carry_;         // the start of a line that has not ended yet
    bool open_ = false;         // a window is open: the rules have its start
    bool userFolder_ = false;   // a user-folder match in the window may run up to the next backslash
    bool certificate_ = false;  // a certificate in the window may run up to the next blank
    bool midLine_ = false;      // the rules have the start of the current line
};

}  // namespace

TextDataFilter::TextDataFilter(std::size_t pieceUnits)
    : engine_(std::make_unique<Filters::RuleEngine<char>>(kTextRules, pieceUnits)) {}

TextDataFilter::~TextDataFilter() = default;

Common::Error TextDataFilter::Filter(const std::string& text, std::string& filtered) const {
    if (&text == &filtered) {
        const std::string copy = text;
        return Filter(copy, filtered);
    }
    // The whole text is here: no line is too long to hold back.
    std::unique_ptr<Filters::RuleEngine<char>::Stream> rules;
    if (Common::Error error = engine_->Start(rules, std::numeric_limits<std::size_t>::max()); error.Failed()) {
        return error;
    }
    filtered.clear();
    filtered.reserve(text.size());
    return LineGate(std::move(rules)).Push(text, true, filtered);
}

std::unique_ptr<CopyFileFilter::Stream> TextDataFilter::StartStream() const {
    std::unique_ptr<Filters::RuleEngine<char>::Stream> rules;
    Common::ThrowIfFailed(engine_->Start(rules));
    return std::make_unique<LineGate>(std::move(rules));
}

TextDataFilterWString::TextDataFilterWString(std::size_t pieceUnits)
    : engine_(std::make_unique<Filters::RuleEngine<std::uint16_t>>(kWideTextRules, pieceUnits)) {}

TextDataFilterWString::~TextDataFilterWString() = default;

Common::Error TextDataFilterWString::Filter(const std::string& text, std::string& filtered) const {
    std::vector<std::uint16_t> units(text.size() / 2);
    for (std::size_t i = 0; i < units.size(); ++i) {
        units[i] = static_cast<std::uint16_t>(static_cast<unsigned char>(text[2 * i]) |
                                              static_cast<unsigned char>(text[2 * i + 1]) << 8);
    }
    const bool byteOrderMark = !units.empty() && units.front() == kByteOrderMark;
    std::vector<std::uint16_t> result;
    if (Common::Error error = engine_->Apply(std::span<const std::uint16_t>(units).subspan(byteOrderMark ? 1 : 0), result);
        error.Failed()) {
        return error;
    }
    filtered.clear();
    filtered.reserve(2 * result.size() + 3);
    if (byteOrderMark) filtered += "\xFF\xFE";
    for (std::uint16_t unit : result) {
        filtered += static_cast<char>(unit & 0xFF);
        filtered += static_cast<char>(unit >> 8);
    }
    if (text.size() % 2 != 0) filtered += text.back();
    return {};
}

}  // namespace SystemReport
