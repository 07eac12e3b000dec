// The two redaction filters of the report: private data is cut out of 8-bit and UTF-16LE text.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "products/imager/system_report/copy_file_filter.h"
#include "products/imager/system_report/filters/rule_engine.h"

namespace SystemReport {

// Nine rules for 8-bit text: user names, passwords, private keys, the user's folder in "\Users\" paths,
// the memory-lock privilege's holders, certificate bodies, e-mail addresses and stored logins.
class TextDataFilter final : public CopyFileFilter {
public:
    // `pieceUnits`: see RuleEngine.
    explicit TextDataFilter(std::size_t pieceUnits = Filters::RuleEngine<char>::kPieceUnits);
    ~TextDataFilter() override;
    // Any bytes are text: NUL, bytes above 0x7F and invalid UTF-8 are matched as they are.
    Common::Error Filter(const std::string& text, std::string& filtered) const override;
    // Holds back only what a rule may still match; a line that a rule may still match and that grows past
    // RuleEngine::kHoldLimit fails the stream.
    std::unique_ptr<Stream> StartStream() const override;
    // Whether the rules run as machine code; without it the filter is exact but many times slower.
    bool UsesJit() const { return engine_->UsesJit(); }

private:
    std::unique_ptr<Filters::RuleEngine<char>> engine_;
};

// Four rules for UTF-16LE text (registry exports): user names, passwords, private keys, e-mail addresses.
class TextDataFilterWString final : public CopyFileFilter {
public:
    explicit TextDataFilterWString(std::size_t pieceUnits = Filters::RuleEngine<std::uint16_t>::kPieceUnits);
    ~TextDataFilterWString() override;
    // `text` is UTF-16LE. A byte-order mark at its start is kept and is no part of the text; an odd
    // trailing byte is kept as it is; code units are matched one by one, so unpaired surrogates pass
    // through unchanged unless a rule replaces the span they are in.
    Common::Error Filter(const std::string& text, std::string& filtered) const override;
    bool UsesJit() const { return engine_->UsesJit(); }

private:
    std::unique_ptr<Filters::RuleEngine<std::uint16_t>> engine_;
};

}  // namespace SystemReport
