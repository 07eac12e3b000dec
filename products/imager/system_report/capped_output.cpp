// Capped text: the oldest or the newest end of what was appended.
#include "products/imager/system_report/capped_output.h"

#include <algorithm>

namespace SystemReport {

bool CappedOutput::Append(std::string_view text) {
    seen_ += text.size();
    if (keep_ == Keep::kOldest) {
        std::size_t room = cap_ - std::min(cap_, text_.size());
        text_.append(text.substr(0, room));
        return text.size() <= room;
    }
    if (text.size() >= cap_) {
        text_.assign(text.substr(text.size() - cap_));
    } else {
        text_.append(text);
        if (text_.size() >= 2 * cap_) text_.erase(0, text_.size() - cap_);
    }
    return true;
}

std::string CappedOutput::Take() {
    if (keep_ == Keep::kNewest && text_.size() > cap_) text_.erase(0, text_.size() - cap_);
    if (keep_ == Keep::kNewest && Cut()) {
        std::size_t lineEnd = text_.find('\n');
        if (lineEnd != std::string::npos) text_.erase(0, lineEnd + 1);
    }
    return std::move(text_);
}

std::string SizeText(std::uint64_t bytes) {
    if (bytes >= (1u << 20) && bytes % (1u << 20) == 0) return std::to_string(bytes >> 20) + " MiB";
    if (bytes >= (1u << 10) && bytes % (1u << 10) == 0) return std::to_string(bytes >> 10) + " KiB";
    return std::to_string(bytes) + " bytes";
}

}  // namespace SystemReport
