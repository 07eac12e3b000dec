// Text gathered from tools and files up to a size cap: either the oldest part is kept (a listing, whose
// beginning says most) or the newest (a log, whose end is the latest news).
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace SystemReport {

class CappedOutput {
public:
    enum class Keep { kOldest, kNewest };
    CappedOutput(std::size_t cap, Keep keep) : cap_(cap), keep_(keep) {}

    // False once text was dropped while the oldest part is kept: whoever produces more may stop.
    bool Append(std::string_view text);
    bool Cut() const { return seen_ > Kept(); }
    std::uint64_t Seen() const { return seen_; }
    std::size_t Cap() const { return cap_; }
    Keep Keeps() const { return keep_; }

    // The kept text. Once the newest part was cut, it begins after the first line end it holds, so that
    // no half line leads it.
    std::string Take();

private:
    std::size_t Kept() const { return text_.size() < cap_ ? text_.size() : cap_; }

    const std::size_t cap_;
    const Keep keep_;
    std::uint64_t seen_ = 0;
    // For kNewest this may grow to twice the cap before the oldest half is dropped, so that each byte is
    // moved at most once.
    std::string text_;
};

// "16 MiB", "512 KiB", "100 bytes": sizes in the notes that the files carry.
std::string SizeText(std::uint64_t bytes);

}  // namespace SystemReport
