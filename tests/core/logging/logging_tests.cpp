// The logging library as the entry point sets it up: file output with rotation, linked console output,
// the severity words, source positions and the external configuration.
#include "core/logging/logging.h"

#include <gtest/gtest.h>

#include <iostream>
#include <sstream>

#include "core/common/log.h"
#include "core/common/strings.h"
#include "tests/support/zip_test_reader.h"

namespace {

namespace fs = std::filesystem;

class LoggingTest : public ::testing::Test {
protected:
    void SetUp() override {
        Logging_SetErrorFormatter(&Common::Log::FormatErrorForLog);
        Logging_SetFieldFormatter(&Common::Log::FormatFieldForLog);
        Logging_Configuration configuration{Common::PathToUtf8(temp.path() / "logs")};
        handle = Logging_InitializeEx(&configuration, 0);
        ASSERT_NE(handle, nullptr);
    }
    void TearDown() override { Logging_Deinitialize(handle); }

    void TuneFile(std::uint64_t size, std::uint32_t files) {
        Logging_ChannelConfig* file = Logging_CreateLogScopeConfig(size, files, 1, 0);
        ASSERT_TRUE(Logging_TuneChannel("system_report", file));
        Logging_FreeChannelConfig(file);
        Logging_SetDefaultChannel("system_report");
    }

    std::string LogText() { return TestSupport::ReadFile(temp.path() / "logs" / "system_report.log"); }

    TestSupport::TempFolder temp;
    Logging_Handle handle = nullptr;
};

TEST_F(LoggingTest, LinesCarryTimeSeverityWordAndSourcePosition) {
    TuneFile(0x100000, 10);
    Common::Log::Info("System report generation to file 'x.zip' started.");
    int line = __LINE__ - 1;
    Common::Log::Write(0, std::string_view("level zero"), std::source_location::current());
    Common::Log::Write(6, std::string_view("level six"), std::source_location::current());
    Common::Log::WriteError(Common::Log::kError, "fails: ", Common::Error::Make(0x4000a, L"Error occurred while creating the file."));
    std::string text = LogText();
    EXPECT_NE(text.find("[information] logging_tests.cpp:" + std::to_string(line)), std::string::npos) << text;
    EXPECT_NE(text.find("System report generation to file 'x.zip' started.\n"), std::string::npos);
    EXPECT_NE(text.find("[0] "), std::string::npos);
    EXPECT_NE(text.find("[6] "), std::string::npos);
    EXPECT_NE(text.find("[error] "), std::string::npos);
    EXPECT_NE(text.find("fails: Error occurred while creating the file. [code=0x4000a"), std::string::npos);
    // "YYYY-MM-DD HH:MM:SS.mmm " opens every line.
    EXPECT_EQ(text[4], '-');
    EXPECT_EQ(text[13], ':');
    EXPECT_EQ(text[19], '.');
}

TEST_F(LoggingTest, FilesRotateAtTheirSizeAndOnlyTheConfiguredNumberIsKept) {
    TuneFile(1000, 3);
    std::string payload(200, 'x');
    for (int i = 0; i < 40; ++i) Common::Log::Info(payload);
    fs::path folder = temp.path() / "logs";
    EXPECT_TRUE(fs::exists(folder / "system_report.log"));
    EXPECT_TRUE(fs::exists(folder / "system_report.1.log"));
    EXPECT_TRUE(fs::exists(folder / "system_report.2.log"));
    EXPECT_FALSE(fs::exists(folder / "system_report.3.log"));
    for (const char* name : {"system_report.log", "system_report.1.log", "system_report.2.log"}) {
        EXPECT_LE(fs::file_size(folder / name), 1000u) << name;
    }
}

TEST_F(LoggingTest, ConsoleChannelLinkedToTheMainChannelGetsItsLines) {
    TuneFile(0x100000, 10);
    Logging_ChannelConfig* console = Logging_CreateConsoleConfig();
    Logging_TuneChannel("cout", console);
    Logging_FreeChannelConfig(console);
    Logging_LinkChannel("cout", "system_report");
    std::ostringstream captured;
    std::streambuf* old = std::cout.rdbuf(captured.rdbuf());
    Common::Log::Warning("to both");
    std::cout.rdbuf(old);
    EXPECT_NE(captured.str().find("[warning] "), std::string::npos);
    EXPECT_NE(LogText().find("to both"), std::string::npos);
}

TEST_F(LoggingTest, ExternalConfigurationOverridesLevelAndOutputs) {
    TuneFile(0x100000, 10);
    fs::path configuration = temp.path() / "SystemReport.logging.ini";
    TestSupport::WriteFile(configuration, "# quieter\nlevel = warning\noutputs = file\n");
    EXPECT_TRUE(Logging_ReadConfiguration(Common::PathToUtf8(configuration).c_str()));
    Common::Log::Info("dropped");
    Common::Log::Error("kept");
    std::string text = LogText();
    EXPECT_EQ(text.find("dropped"), std::string::npos);
    EXPECT_NE(text.find("kept"), std::string::npos);

    TestSupport::WriteFile(configuration, "outputs = cout\n");
    Logging_ReadConfiguration(Common::PathToUtf8(configuration).c_str());
    Common::Log::Error("not in the file");
    EXPECT_EQ(LogText().find("not in the file"), std::string::npos);
    EXPECT_FALSE(Logging_ReadConfiguration(Common::PathToUtf8(temp.path() / "absent.ini").c_str()));
}

TEST(LoggingInitializationTest, UnusableFolderGivesNoHandle) {
    TestSupport::TempFolder temp;
    TestSupport::WriteFile(temp.path() / "file", "x");
    Logging_Configuration configuration{Common::PathToUtf8(temp.path() / "file" / "logs")};
    EXPECT_EQ(Logging_InitializeEx(&configuration, 0), nullptr);
    Common::Log::Info("no logging: must be harmless");
}

}  // namespace
