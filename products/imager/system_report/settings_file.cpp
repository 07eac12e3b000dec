// Scrubbing of settings files: line-based, so that whatever the file holds besides the two keys is kept.
#include "products/imager/system_report/settings_file.h"

#include <algorithm>
#include <array>
#include <cwctype>

#include "core/common/strings.h"
#include "products/imager/system_report/link_check.h"

namespace SystemReport {
namespace {

constexpr std::array<std::wstring_view, 2> kSecretKeys = {L"OBPassword", L"OBSessionPassword"};

bool EqualsIgnoringCase(std::wstring_view a, std::wstring_view b) {
    return a.size() == b.size() && std::equal(a.begin(), a.end(), b.begin(), [](wchar_t x, wchar_t y) {
               return std::towlower(x) == std::towlower(y);
           });
}

std::wstring_view Trimmed(std::wstring_view text) {
    size_t begin = text.find_first_not_of(L" \t");
    if (begin == std::wstring_view::npos) return {};
    size_t end = text.find_last_not_of(L" \t\r");
    return text.substr(begin, end - begin + 1);
}

bool IsSecretLine(std::wstring_view line) {
    size_t equals = line.find(L'=');
    if (equals == std::wstring_view::npos) return false;
    std::wstring_view key = Trimmed(line.substr(0, equals));
    return std::any_of(kSecretKeys.begin(), kSecretKeys.end(),
                       [key](std::wstring_view secret) { return EqualsIgnoringCase(key, secret); });
}

std::wstring RemoveSecretLines(std::wstring_view text) {
    std::wstring out;
    out.reserve(text.size());
    size_t start = 0;
    while (start < text.size()) {
        size_t end = text.find(L'\n', start);
        size_t next = end == std::wstring_view::npos ? text.size() : end + 1;
        std::wstring_view line = text.substr(start, next - start);
        if (!IsSecretLine(line)) out += line;
        start = next;
    }
    return out;
}

}  // namespace

bool IsSettingsFile(const std::filesystem::path& path) {
    std::wstring extension = path.extension().wstring();
    return EqualsIgnoringCase(extension, L".ini");
}

std::string RemoveSecretSettings(const std::string& text) {
    const bool utf16 = text.size() >= 2 && static_cast<unsigned char>(text[0]) == 0xFF &&
                       static_cast<unsigned char>(text[1]) == 0xFE;
    if (utf16) {
        std::string body = text.substr(2);
        std::string odd = body.size() % 2 ? body.substr(body.size() - 1) : std::string();
        return text.substr(0, 2) + Common::WideToUtf16Le(RemoveSecretLines(Common::Utf16LeToWide(body))) + odd;
    }
    // 8-bit text is scanned byte by byte (widened 1:1), so bytes that are not UTF-8 survive unchanged.
    std::wstring wide(text.begin(), text.end());
    for (wchar_t& c : wide) c = static_cast<wchar_t>(static_cast<unsigned char>(c));
    std::wstring kept = RemoveSecretLines(wide);
    return std::string(kept.begin(), kept.end());
}

std::optional<std::filesystem::path> WriteReportCopyOfSettings(const std::filesystem::path& path,
                                                               const std::string& scrubbed) {
    std::filesystem::path copy = path;
    copy += ".for_report";
    if (!WriteNewFile(copy, scrubbed)) return std::nullopt;
    return copy;
}

}  // namespace SystemReport
