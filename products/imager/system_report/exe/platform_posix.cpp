// POSIX half of the entry point's platform needs.
#include <iostream>

#include "core/common/log.h"
#include "core/common/strings.h"
#include "products/imager/system_report/exe/platform.h"

namespace SystemReport::Platform {

void PrepareProcess() {}

void ShowMessage(const std::wstring& text, const std::wstring& caption, BoxStyle) {
    std::cout << Common::WideToUtf8(caption) << ": " << Common::WideToUtf8(text) << std::endl;
}

void PulseStartEvent() { Common::Log::Debug("No start event on this platform."); }

int ExitStatus(std::uint32_t code) {
    int low = static_cast<int>(code & 0xFF);
    return code != 0 && low == 0 ? 1 : low;
}

}  // namespace SystemReport::Platform
