// The operating-system tool items with a fake starter: what each runs, byte for byte, the entry it makes,
// the rules of System Information's executable, and which items a run has on which system.
#include <gtest/gtest.h>

#include <functional>
#include <optional>
#include <regex>
#include <set>
#include <typeinfo>

#include "core/common/strings.h"
#include "products/imager/system_report/report_event_logs.h"
#include "products/imager/system_report/report_msinfo32.h"
#include "products/imager/system_report/report_registry_keys.h"
#include "products/imager/system_report/report_system_tools.h"
#include "products/imager/system_report/report_user_rights.h"
#include "products/imager/system_report/report_wmi_pnp.h"

namespace {

namespace fs = std::filesystem;
using namespace SystemReport;

struct StarterLog {
    std::vector<std::pair<std::wstring, std::wstring>> starts;
    bool created = true;
    std::int32_t exitCode = 0;
    int terminates = 0;
};

class FakeStarter final : public ProcessStarter {
public:
    explicit FakeStarter(std::shared_ptr<StarterLog> log) : log_(std::move(log)) {}
    bool Start(const std::wstring& executable, const std::wstring& arguments) override {
        log_->starts.emplace_back(executable, arguments);
        return log_->created;
    }
    bool Terminate() override {
        ++log_->terminates;
        return false;
    }
    std::int32_t GetExitCode() override { return log_->exitCode; }

private:
    std::shared_ptr<StarterLog> log_;
};

class NamedFilter final : public CopyFileFilter {
public:
    Common::Error Filter(const std::string& text, std::string& filtered) const override {
        filtered = text;
        return {};
    }
};

class FakeProbe final : public SystemProbe {
public:
    FakeProbe(bool wow64, bool preinstallation) : wow64_(wow64), preinstallation_(preinstallation) {}
    bool IsWow64Process() override { return wow64_; }
    bool IsPreinstallationEnvironment() override { return preinstallation_; }

private:
    bool wow64_, preinstallation_;
};

struct HostLog {
    std::optional<unsigned long> major = 10;
    bool running = false;
    bool startSucceeds = true;
    std::wstring programW6432;
    std::wstring programFiles;
    int starts = 0;
    int stops = 0;
};

class FakeHost final : public MsInfoHost {
public:
    explicit FakeHost(std::shared_ptr<HostLog> log) : log_(std::move(log)) {}
    std::optional<unsigned long> WindowsMajorVersion() override { return log_->major; }
    bool HelpServiceRunning() override { return log_->running; }
    bool StartHelpService() override {
        ++log_->starts;
        return log_->startSucceeds;
    }
    void StopHelpService() override { ++log_->stops; }
    std::wstring ProgramW6432Folder() override { return log_->programW6432; }
    std::wstring ProgramFilesFolder() override { return log_->programFiles; }

private:
    std::shared_ptr<HostLog> log_;
};

// A working folder with blanks; it need not exist, the fake starter writes nothing.
fs::path Folder() { return fs::temp_directory_path() / "Report Folder" / "scratch dir"; }

std::wstring FolderText() {
    return Common::Utf8ToWide(Common::PathToUtf8(Folder())) + std::wstring(1, fs::path::preferred_separator);
}

const std::wregex kScratchName(L"[0-9A-F]{8}-[0-9A-F]{4}-4[0-9A-F]{3}-[89AB][0-9A-F]{3}-[0-9A-F]{12}");

// The scratch name in an argument string; empty when there is none.
std::wstring ScratchNameIn(const std::wstring& arguments) {
    std::wsmatch match;
    return std::regex_search(arguments, match, kScratchName) ? match.str() : std::wstring();
}

struct ItemCase {
    const char* label;
    std::function<ReportPtr(std::unique_ptr<ProcessStarter>, const ReportContext&)> make;
    std::wstring executable;
    std::wstring arguments;  // {0}: the quoted path of the scratch file
    std::wstring extension;
    std::wstring archiveName;
    std::wstring title;
    enum { kNoFilter, kTextFilter, kWideTextFilter } filter;
};

std::vector<ItemCase> Cases() {
    return {
        {"msinfo32",
         [](auto starter, const ReportContext& context) {
             return std::make_shared<ReportMSInfo32>(context.systemProbe, std::make_unique<FakeHost>(std::make_shared<HostLog>()),
                                                     std::move(starter));
         },
         L"msinfo32.exe", L" /nfo {0}", L".nfo", L"msinfo.nfo", L"MSInfo32 report", ItemCase::kNoFilter},
        {"applog", [](auto starter, const ReportContext&) { return std::make_shared<ReportAppLog>(std::move(starter)); },
         L"wmic", L"nteventlog where \"Logfilename='Application'\" Call BackupEventLog {0}", L"", L"applog.evt",
         L"applog.evt", ItemCase::kNoFilter},
        {"syslog", [](auto starter, const ReportContext&) { return std::make_shared<ReportSysLog>(std::move(starter)); },
         L"wmic", L"nteventlog where \"Logfilename='System'\" Call BackupEventLog {0}", L"", L"syslog.evt",
         L"syslog.evt", ItemCase::kNoFilter},
        {"registry",
         [](auto starter, const ReportContext& context) {
             return std::make_shared<ReportRegistryKeys>(context.wideTextFilter, std::move(starter));
         },
         L"reg", L"EXPORT \"HKLM\\Software\\Brendix\" {0} /y", L"", L"vexreg.reg", L"vexreg.reg",
         ItemCase::kWideTextFilter},
        {"registry64",
         [](auto starter, const ReportContext& context) {
             return std::make_shared<ReportRegistryKeys64>(context.wideTextFilter, std::move(starter));
         },
         L"reg", L"EXPORT \"HKLM\\Software\\Wow6432Node\\Brendix\" {0} /y", L"", L"vexreg64.reg", L"vexreg64.reg",
         ItemCase::kWideTextFilter},
        {"rights",
         [](auto starter, const ReportContext& context) {
             return std::make_shared<ReportUserRights>(context.textFilter, std::move(starter));
         },
         L"secedit", L"/export /areas USER_RIGHTS /cfg {0}", L"", L"rights.txt", L"User rights", ItemCase::kTextFilter},
        {"pnp all", [](auto starter, const ReportContext&) { return std::make_shared<ReportWmiPnpAll>(std::move(starter)); },
         L"wmic",
         L"/OUTPUT:{0} path Win32_PnPEntity get Caption, ClassGuid, Manufacturer, Name, PNPDeviceID, Service, Status", L"",
         L"wmi-PnPEntities-all.txt", L"PnP controllers", ItemCase::kNoFilter},
        {"pnp storage and network",
         [](auto starter, const ReportContext&) { return std::make_shared<ReportWmiPnpStorageAndNetwork>(std::move(starter)); },
         L"wmic",
         L"/OUTPUT:{0} path Win32_PnPEntity where \"(PNPDeviceID like '%VEN%') and (ClassGuid like "
         L"'{4d36e96a-e325-11ce-bfc1-08002be10318}' or ClassGuid like '{4d36e97b-e325-11ce-bfc1-08002be10318}' or "
         L"ClassGuid like '{4d36e972-e325-11ce-bfc1-08002be10318}' or Service like '%USBXHCI%' or Service like "
         L"'%nvme%')\" get Caption",
         L"", L"wmi-PnPEntities-StorageAndNetwork.txt", L"PnP storage controllers and PnP network controllers",
         ItemCase::kNoFilter},
        {"pnp vendor", [](auto starter, const ReportContext&) { return std::make_shared<ReportWmiPnpVen>(std::move(starter)); },
         L"wmic",
         L"/OUTPUT:{0} path Win32_PnPEntity where \"PNPDeviceID like '%VEN%'\" get Caption, ClassGuid, Manufacturer, "
         L"Name, PNPDeviceID, Service, Status",
         L"", L"wmi-PnPEntities-InclVenInfo.txt", L"PnP controllers with vendor's information", ItemCase::kNoFilter},
    };
}

ReportContext TestContext() {
    ReportContext context;
    context.textFilter = std::make_shared<NamedFilter>();
    context.wideTextFilter = std::make_shared<NamedFilter>();
    context.systemProbe = std::make_shared<FakeProbe>(false, false);
    return context;
}

TEST(SystemToolItemsTest, EachItemRunsItsToolAndNamesItsFile) {
    ReportContext context = TestContext();
    for (const ItemCase& item : Cases()) {
        SCOPED_TRACE(item.label);
        auto log = std::make_shared<StarterLog>();
        ReportPtr report = item.make(std::make_unique<FakeStarter>(log), context);
        FileEntries entries;
        ASSERT_TRUE(report->Create(Folder(), entries).Succeeded());

        ASSERT_EQ(log->starts.size(), 1u);
        const auto& [executable, arguments] = log->starts[0];
        std::wstring name = ScratchNameIn(arguments);
        ASSERT_FALSE(name.empty()) << Common::WideToUtf8(arguments);
        std::wstring file = FolderText() + name + item.extension;
        EXPECT_EQ(executable, item.executable);
        EXPECT_EQ(arguments, Common::FormatPlaceholders(item.arguments, {L"\"" + file + L"\""}));

        ASSERT_EQ(entries.size(), 1u);
        EXPECT_EQ(Common::Utf8ToWide(Common::PathToUtf8(entries[0].source)), file);
        EXPECT_EQ(entries[0].archiveName, item.archiveName);
        EXPECT_EQ(entries[0].title, item.title);
        EXPECT_FALSE(entries[0].folder);
        switch (item.filter) {
            case ItemCase::kNoFilter: EXPECT_EQ(entries[0].filter, nullptr); break;
            case ItemCase::kTextFilter: EXPECT_EQ(entries[0].filter, context.textFilter); break;
            case ItemCase::kWideTextFilter: EXPECT_EQ(entries[0].filter, context.wideTextFilter); break;
        }
    }
}

TEST(SystemToolItemsTest, AFailingToolAddsNothingAndIsNoError) {
    ReportContext context = TestContext();
    struct Outcome {
        bool created;
        std::int32_t exitCode;
    };
    // Exit code 1 (failed or terminated), -1 (timed out), and a tool that could not be started.
    for (Outcome outcome : {Outcome{true, 1}, Outcome{true, -1}, Outcome{false, 0}}) {
        for (const ItemCase& item : Cases()) {
            SCOPED_TRACE(std::string(item.label) + " exit " + std::to_string(outcome.exitCode));
            auto log = std::make_shared<StarterLog>();
            log->created = outcome.created;
            log->exitCode = outcome.exitCode;
            ReportPtr report = item.make(std::make_unique<FakeStarter>(log), context);
            FileEntries entries;
            EXPECT_TRUE(report->Create(Folder(), entries).Succeeded());
            EXPECT_EQ(log->starts.size(), 1u);
            EXPECT_TRUE(entries.empty());
        }
    }
}

TEST(SystemToolItemsTest, EveryRunHasAFreshScratchName) {
    auto log = std::make_shared<StarterLog>();
    ReportContext context = TestContext();
    FileEntries entries;
    for (const ItemCase& item : Cases()) {
        item.make(std::make_unique<FakeStarter>(log), context)->Create(Folder(), entries);
        item.make(std::make_unique<FakeStarter>(log), context)->Create(Folder(), entries);
    }
    std::set<std::wstring> names;
    for (const auto& start : log->starts) names.insert(ScratchNameIn(start.second));
    EXPECT_EQ(names.size(), 2 * Cases().size());
    EXPECT_EQ(names.count(L""), 0u);
}

TEST(SystemToolItemsTest, StopTerminatesTheToolAndKeepsLaterStartsFromRunning) {
    auto log = std::make_shared<StarterLog>();
    ReportRegistryKeys item(nullptr, std::make_unique<FakeStarter>(log));
    item.Stop();
    EXPECT_EQ(log->terminates, 1);
    FileEntries entries;
    EXPECT_TRUE(item.Create(Folder(), entries).Succeeded());
    EXPECT_TRUE(log->starts.empty());
    EXPECT_TRUE(entries.empty());
}

// System Information before Windows Vista: the help service, the program folders, the quoted full path.
struct MsInfoRun {
    std::shared_ptr<HostLog> host = std::make_shared<HostLog>();
    std::shared_ptr<StarterLog> starter = std::make_shared<StarterLog>();
    bool wow64 = false;

    // The executable that was started, or nullopt when nothing was.
    std::optional<std::wstring> Run(FileEntries& entries) {
        ReportMSInfo32 item(std::make_shared<FakeProbe>(wow64, false), std::make_unique<FakeHost>(host),
                            std::make_unique<FakeStarter>(starter));
        EXPECT_TRUE(item.Create(Folder(), entries).Succeeded());
        if (starter->starts.empty()) return std::nullopt;
        return starter->starts.back().first;
    }
};

TEST(ReportMSInfo32Test, FromVistaOnTheBareNameRunsAndTheServiceIsLeftAlone) {
    for (std::optional<unsigned long> major : {std::optional<unsigned long>(6), std::optional<unsigned long>(10),
                                               std::optional<unsigned long>()}) {
        MsInfoRun run;
        run.host->major = major;
        FileEntries entries;
        EXPECT_EQ(run.Run(entries), L"msinfo32.exe");
        EXPECT_EQ(run.host->starts, 0);
        EXPECT_EQ(run.host->stops, 0);
    }
}

TEST(ReportMSInfo32Test, BeforeVistaTheQuotedFullPathRuns) {
    const std::wstring tail = L"\\Common Files\\Microsoft Shared\\MSInfo\\msinfo32.exe\"";
    {
        SCOPED_TRACE("32-bit process on 64-bit Windows: the native program folder");
        MsInfoRun run;
        run.host->major = 5;
        run.host->running = true;
        run.wow64 = true;
        run.host->programW6432 = L"C:\\Program Files";
        run.host->programFiles = L"C:\\Program Files (x86)";
        FileEntries entries;
        EXPECT_EQ(run.Run(entries), L"\"C:\\Program Files" + tail);
        EXPECT_EQ(entries.size(), 1u);
        EXPECT_EQ(run.host->starts, 0) << "a running service is not started";
        EXPECT_EQ(run.host->stops, 0) << "nor stopped";
    }
    {
        SCOPED_TRACE("64-bit Windows without %ProgramW6432%");
        MsInfoRun run;
        run.host->major = 5;
        run.host->running = true;
        run.wow64 = true;
        run.host->programFiles = L"D:\\Programme";
        FileEntries entries;
        EXPECT_EQ(run.Run(entries), L"\"D:\\Programme" + tail);
    }
    {
        SCOPED_TRACE("32-bit Windows ignores %ProgramW6432%");
        MsInfoRun run;
        run.host->major = 5;
        run.host->running = true;
        run.host->programW6432 = L"C:\\Wrong";
        run.host->programFiles = L"C:\\Program Files";
        FileEntries entries;
        EXPECT_EQ(run.Run(entries), L"\"C:\\Program Files" + tail);
    }
}

TEST(ReportMSInfo32Test, TheItemStopsTheHelpServiceOnlyIfItStartedIt) {
    MsInfoRun run;
    run.host->major = 5;
    run.host->programFiles = L"C:\\Program Files";
    FileEntries entries;
    EXPECT_TRUE(run.Run(entries).has_value());
    EXPECT_EQ(run.host->starts, 1);
    EXPECT_EQ(run.host->stops, 1);
}

TEST(ReportMSInfo32Test, NothingRunsWithoutTheServiceOrAProgramFolder) {
    {
        SCOPED_TRACE("the service cannot be started");
        MsInfoRun run;
        run.host->major = 5;
        run.host->startSucceeds = false;
        run.host->programFiles = L"C:\\Program Files";
        FileEntries entries;
        EXPECT_EQ(run.Run(entries), std::nullopt);
        EXPECT_TRUE(entries.empty());
        EXPECT_EQ(run.host->stops, 0);
    }
    {
        SCOPED_TRACE("no program folder");
        MsInfoRun run;
        run.host->major = 5;
        run.host->running = true;
        run.wow64 = true;
        FileEntries entries;
        EXPECT_EQ(run.Run(entries), std::nullopt);
        EXPECT_TRUE(entries.empty());
    }
}

std::vector<std::string> ItemTypes(bool wow64, bool preinstallation) {
    ReportContext context = TestContext();
    context.systemProbe = std::make_shared<FakeProbe>(wow64, preinstallation);
    std::vector<std::string> types;
    for (const ReportPtr& item : MakeSystemToolItems(context)) {
        const Report& report = *item;
        types.push_back(typeid(report).name());
    }
    return types;
}

template <typename... Items>
std::vector<std::string> Types() {
    return {typeid(Items).name()...};
}

TEST(SystemToolItemsTest, TheListDependsOnWow64AndThePreinstallationEnvironment) {
    EXPECT_EQ(ItemTypes(false, false),
              (Types<ReportSysLog, ReportAppLog, ReportUserRights, ReportRegistryKeys, ReportMSInfo32>()));
    EXPECT_EQ(ItemTypes(true, false),
              (Types<ReportSysLog, ReportAppLog, ReportUserRights, ReportRegistryKeys, ReportRegistryKeys64,
                     ReportMSInfo32>()));
    EXPECT_EQ(ItemTypes(false, true),
              (Types<ReportSysLog, ReportAppLog, ReportUserRights, ReportRegistryKeys, ReportMSInfo32, ReportWmiPnpAll,
                     ReportWmiPnpVen, ReportWmiPnpStorageAndNetwork>()));
    EXPECT_EQ(ItemTypes(true, true),
              (Types<ReportSysLog, ReportAppLog, ReportUserRights, ReportRegistryKeys, ReportRegistryKeys64,
                     ReportMSInfo32, ReportWmiPnpAll, ReportWmiPnpVen, ReportWmiPnpStorageAndNetwork>()));
}

}  // namespace
