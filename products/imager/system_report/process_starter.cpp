// What the tool starters share: their state's accessors and the command-line splitting rule.
#include "products/imager/system_report/process_starter.h"

namespace SystemReport {

ProcessStarterImpl::ProcessStarterImpl(std::chrono::milliseconds timeout) : timeout_(timeout) {}

std::int32_t ProcessStarterImpl::GetExitCode() {
    std::lock_guard guard(lock_);
    return exitCode_;
}

std::wstring ProcessStarterImpl::GetFailure() {
    std::lock_guard guard(lock_);
    return failure_;
}

std::vector<std::wstring> SplitCommandLine(std::wstring_view commandLine) {
    std::vector<std::wstring> words;
    std::wstring word;
    bool inWord = false;
    bool quoted = false;
    for (size_t i = 0; i < commandLine.size();) {
        wchar_t c = commandLine[i];
        if (!quoted && (c == L' ' || c == L'\t')) {
            if (inWord) words.push_back(std::move(word));
            word.clear();
            inWord = false;
            ++i;
            continue;
        }
        inWord = true;
        if (c == L'\\') {
            size_t run = 0;
            while (i < commandLine.size() && commandLine[i] == L'\\') ++run, ++i;
            if (i < commandLine.size() && commandLine[i] == L'"') {
                word.append(run / 2, L'\\');
                if (run % 2 == 1) {
                    word.push_back(L'"');
                    ++i;
                }
            } else {
                word.append(run, L'\\');
            }
            continue;
        }
        if (c == L'"') {
            quoted = !quoted;
        } else {
            word.push_back(c);
        }
        ++i;
    }
    if (inWord) words.push_back(std::move(word));
    return words;
}

}  // namespace SystemReport
