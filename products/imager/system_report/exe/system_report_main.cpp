// The run of the report tool: arguments, logging, the default path, the start of the run, generation,
// outcome, and the clean end.
#include "products/imager/system_report/exe/system_report_main.h"

#include "core/common/folders.h"
#include "core/common/log.h"
#include "core/common/product.h"
#include "core/common/strings.h"
#include "core/logging/logging.h"
#include "products/imager/system_report/exe/command_line.h"
#include "products/imager/system_report/exe/platform.h"
#include "products/imager/system_report/exe/secure_sockets.h"
#include "products/imager/system_report/log_retention.h"
#include "products/imager/system_report/report_generation.h"

namespace SystemReport {
namespace {

constexpr const char* kChannel = "system_report";
constexpr const wchar_t* kDefaultArchiveName = L"SystemReport.zip";
constexpr const wchar_t* kLoggingConfigurationName = L"SystemReport.logging.ini";
constexpr std::uint64_t kLogFileSize = 0x100000;
constexpr std::uint32_t kLogFilesKept = 10;

std::optional<std::filesystem::path> ProductLogRoot() {
    auto folders = Common::MakeSystemFolderService();
    auto product = Common::ProductDataFolder(*folders);
    if (!product) return std::nullopt;
    return *product / "Logs";
}

// Logging into Logs/system_report below the product's data folder, or beside the executable when that
// folder cannot be used. Returns the library's handle (null when neither folder can be written).
Logging_Handle StartLogging(const std::optional<std::filesystem::path>& logRoot) {
    Logging_SetErrorFormatter(&Common::Log::FormatErrorForLog);
    Logging_SetFieldFormatter(&Common::Log::FormatFieldForLog);

    Logging_Handle handle = nullptr;
    if (logRoot) {
        Logging_Configuration configuration{Common::PathToUtf8(*logRoot / kChannel)};
        handle = Logging_InitializeEx(&configuration, 0);
    }
    if (!handle) {
        Logging_Configuration besideExecutable{Common::PathToUtf8(Common::ExecutablePath().parent_path())};
        handle = Logging_InitializeEx(&besideExecutable, 0);
    }

    Logging_ChannelConfig* file = Logging_CreateLogScopeConfig(kLogFileSize, kLogFilesKept, 1, 0);
    Logging_TuneChannel(kChannel, file);
    Logging_FreeChannelConfig(file);
    Logging_SetDefaultChannel(kChannel);
    Logging_LinkChannel("debugger", kChannel);
    Logging_ChannelConfig* console = Logging_CreateConsoleConfig();
    Logging_TuneChannel("cout", console);
    Logging_FreeChannelConfig(console);
    Logging_LinkChannel("cout", kChannel);
    Logging_ReadConfiguration(
        Common::PathToUtf8(Common::ExecutablePath().parent_path() / kLoggingConfigurationName).c_str());
    return handle;
}

// The folder of the executable, whatever the current directory is; a path without a separator gives
// the bare name.
std::filesystem::path DefaultArchivePath() { return Common::ExecutablePath().parent_path() / kDefaultArchiveName; }

void ShowResult(const std::filesystem::path& fileName, const Common::Error& result) {
    if (result.Failed()) {
        Platform::ShowMessage(L"Error while generating the system report.", Common::Product::kReportCaption,
                              Platform::BoxStyle::Error);
    } else {
        Platform::ShowMessage(SuccessMessage(Common::PathToWide(fileName)), Common::Product::kReportCaption,
                              Platform::BoxStyle::Information);
    }
}

}  // namespace

std::wstring SuccessMessage(const std::wstring& fileName) {
    std::wstring text = L"The system report is successfully generated.\nReport file location: " + fileName;
    constexpr size_t kBufferCharacters = 1024;
    if (text.size() > kBufferCharacters - 1) text.resize(kBufferCharacters - 1);
    return text;
}

void LogResult(const std::filesystem::path& fileName, const Common::Error& result) {
    std::string name = Common::PathToUtf8(fileName);
    if (result.Failed()) {
        Common::Log::WriteError(Common::Log::kError, "System report generation to file '" + name + "' fails: ", result);
    } else {
        Common::Log::Info("System report generation succeeded. Report file '" + name + "' created.");
    }
}

int SystemReportMain(const std::vector<Argument>& arguments) {
    Platform::PrepareProcess();
    CommandLine line = ParseCommandLine(arguments);
    if (line.help) {
        Platform::ShowMessage(kUsageText, Common::Product::kReportCaption, Platform::BoxStyle::Information);
        return 0;
    }

    std::optional<std::filesystem::path> logRoot = ProductLogRoot();
    Logging_Handle logging = StartLogging(logRoot);

    std::filesystem::path fileName = line.fileName.empty() ? DefaultArchivePath() : line.fileName;
    Common::Log::Info("System report generation to file '" + Common::PathToUtf8(fileName) + "' started.");

    InitializeSecureSockets();
    Platform::PulseStartEvent();
    ApplyLogRetention(logRoot, ProductLogChannels());

    Common::Error result;
    {
        ReportManager manager;
        Platform::StopRequests stops([&manager] { manager.Stop(); });
        result = Common::CatchErrors([&] { return GenerateReport(manager, fileName); });
    }
    LogResult(fileName, result);
    if (!line.silent) ShowResult(fileName, result);

    int status = Platform::ExitStatus(result.Code());
    if (logging) Logging_Deinitialize(logging);
    return status;
}

}  // namespace SystemReport
