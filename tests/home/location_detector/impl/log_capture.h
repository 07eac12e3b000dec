// Captures what the program logs during a test: the "system_report" channel written to a file of a
// temporary folder, read back as text.
#pragma once

#include <sstream>
#include <string>

#include "core/common/log.h"
#include "core/common/strings.h"
#include "core/logging/logging.h"
#include "tests/support/zip_test_reader.h"

namespace LocationTests {

class LogCapture {
public:
    LogCapture() {
        Logging_SetErrorFormatter(&Common::Log::FormatErrorForLog);
        Logging_SetFieldFormatter(&Common::Log::FormatFieldForLog);
        Logging_Configuration configuration{Common::PathToUtf8(temp_.path())};
        handle_ = Logging_InitializeEx(&configuration, 0);
        Logging_ChannelConfig* file = Logging_CreateLogScopeConfig(0, 1, 1, 0);
        Logging_TuneChannel(Common::Log::kChannel, file);
        Logging_FreeChannelConfig(file);
        Logging_SetDefaultChannel(Common::Log::kChannel);
    }
    ~LogCapture() { Logging_Deinitialize(handle_); }
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    bool Active() const { return handle_ != nullptr; }
    std::string Text() const { return TestSupport::ReadFile(temp_.path() / "system_report.log"); }
    // Whether a line of the given severity word ends with `text`.
    bool Has(const std::string& severity, const std::string& text) const {
        std::istringstream lines(Text());
        for (std::string line; std::getline(lines, line);) {
            if (line.find("[" + severity + "]") != std::string::npos && line.ends_with(text)) return true;
        }
        return false;
    }

private:
    TestSupport::TempFolder temp_;
    Logging_Handle handle_ = nullptr;
};

}  // namespace LocationTests
