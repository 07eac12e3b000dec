// The operating-system tool items with a fake starter: what each runs, byte for byte, the entry it makes,
// the rules of System Information's executable, and where they stand in a run's list on which system.
#include <gtest/gtest.h>

#include <functional>
#include <optional>
#include <regex>
#include <set>
#include <typeinfo>

#include "core/common/strings.h"
#include "products/imager/system_report/report_event_logs.h"
#include "products/imager/system_report/report_generation.h"
#include "products/imager/system_report/report_system_tools.h"
#include "products/imager/system_report/report_msinfo32.h"
#include "products/imager/system_report/report_registry_keys.h"
#include "products/imager/system_report/report_user_groups.h"
#include "products/imager/system_report/report_user_rights.h"
#include "products/imager/system_report/report_wmi_pnp.h"

namespace {

namespace fs = std::filesystem;
using namespace SystemReport;

struct StarterLog {
    std::vector<std::pair<std::wstring, std::wstring>> starts;
    bool created = true;
    std::int32_t exitCode = 0;
};

class FakeStarter final : public ProcessStarter {
public:
    explicit FakeStarter(std::shared_ptr<StarterLog> log) : log_(std::move(log)) {}
    bool Start(const std::wstring& executable, const std::wstring& arguments) override {
        log_->starts.emplace_back(executable, arguments);
        return log_->created;
    }
    bool Terminate() override { return false; }
    std::int32_t GetExitCode() override { return log_->exitCode; }
    std::wstring GetFailure() override { return log_->created ? L"" : kToolNotFound; }

private:
    std::shared_ptr<StarterLog> log_;
};

class PassFilter final : public CopyFileFilter {
public:
    Common::Error Filter(const std::string& text, std::string& filtered) const override { return filtered = text, Common::Error(); }
};

class FakeProbe final : public SystemProbe {
public:
    FakeProbe(bool wow64, bool preinstallation) : wow64_(wow64), preinstallation_(preinstallation) {}
    bool IsWow64Process() override { return wow64_; }
    bool IsPreinstallationEnvironment() override { return preinstallation_; }

private:
    bool wow64_, preinstallation_;
};

struct HostState {
    std::optional<unsigned long> major = 10;
    bool running = false, startSucceeds = true;
    std::wstring programW6432, programFiles;
    int starts = 0, stops = 0;
};

class FakeHost final : public MsInfoHost {
public:
    explicit FakeHost(std::shared_ptr<HostState> state) : state_(std::move(state)) {}
    std::optional<unsigned long> WindowsMajorVersion() override { return state_->major; }
    bool HelpServiceRunning() override { return state_->running; }
    bool StartHelpService() override { return ++state_->starts, state_->startSucceeds; }
    void StopHelpService() override { ++state_->stops; }
    std::wstring ProgramW6432Folder() override { return state_->programW6432; }
    std::wstring ProgramFilesFolder() override { return state_->programFiles; }

private:
    std::shared_ptr<HostState> state_;
};

// A working folder with blanks; it need not exist, as the fake starter writes nothing.
const fs::path kFolder = fs::temp_directory_path() / "Report Folder" / "scratch dir";

std::wstring ScratchNameIn(const std::wstring& arguments) {
    static const std::wregex name(L"[0-9A-F]{8}-[0-9A-F]{4}-4[0-9A-F]{3}-[89AB][0-9A-F]{3}-[0-9A-F]{12}");
    std::wsmatch match;
    return std::regex_search(arguments, match, name) ? match.str() : std::wstring();
}

using MakeItem = std::function<ReportPtr(std::unique_ptr<ProcessStarter>)>;

template <typename Item, typename... Args>
MakeItem Maker(Args... args) {
    return [=](std::unique_ptr<ProcessStarter> starter) { return std::make_shared<Item>(args..., std::move(starter)); };
}

struct ItemCase {
    MakeItem make;
    std::wstring executable;
    std::wstring arguments;  // {0}: the quoted path of the scratch file
    std::wstring extension, archiveName;
    std::shared_ptr<CopyFileFilter> filter;
};

const auto kTextFilter = std::make_shared<PassFilter>();
const auto kWideTextFilter = std::make_shared<PassFilter>();

std::vector<ItemCase> Cases() {
    MakeItem msinfo = [](std::unique_ptr<ProcessStarter> starter) {
        return std::make_shared<ReportMSInfo32>(std::make_shared<FakeProbe>(false, false),
                                                std::make_unique<FakeHost>(std::make_shared<HostState>()), std::move(starter));
    };
    return {
        {msinfo, L"msinfo32.exe", L" /nfo {0}", L".nfo", L"msinfo.nfo", nullptr},
        {Maker<ReportAppLog>(), L"wmic", L"nteventlog where \"Logfilename='Application'\" Call BackupEventLog {0}", L"", L"applog.evt", nullptr},
        {Maker<ReportSysLog>(), L"wmic", L"nteventlog where \"Logfilename='System'\" Call BackupEventLog {0}", L"", L"syslog.evt", nullptr},
        {Maker<ReportRegistryKeys>(kWideTextFilter), L"reg", L"EXPORT \"HKLM\\Software\\Brendix\" {0} /y", L"", L"vexreg.reg",
         kWideTextFilter},
        {Maker<ReportRegistryKeys64>(kWideTextFilter), L"reg", L"EXPORT \"HKLM\\Software\\Wow6432Node\\Brendix\" {0} /y", L"",
         L"vexreg64.reg", kWideTextFilter},
        {Maker<ReportUserRights>(kTextFilter), L"secedit", L"/export /areas USER_RIGHTS /cfg {0}", L"", L"rights.txt", kTextFilter},
        {Maker<ReportWmiPnpAll>(), L"wmic",
         L"/OUTPUT:{0} path Win32_PnPEntity get Caption, ClassGuid, Manufacturer, Name, PNPDeviceID, Service, Status", L"",
         L"wmi-PnPEntities-all.txt", nullptr},
        {Maker<ReportWmiPnpStorageAndNetwork>(), L"wmic",
         L"/OUTPUT:{0} path Win32_PnPEntity where \"(PNPDeviceID like '%VEN%') and (ClassGuid like "
         L"'{4d36e96a-e325-11ce-bfc1-08002be10318}' or ClassGuid like '{4d36e97b-e325-11ce-bfc1-08002be10318}' or "
         L"ClassGuid like '{4d36e972-e325-11ce-bfc1-08002be10318}' or Service like '%USBXHCI%' or Service like "
         L"'%nvme%')\" get Caption",
         L"", L"wmi-PnPEntities-StorageAndNetwork.txt", nullptr},
        {Maker<ReportWmiPnpVen>(), L"wmic",
         L"/OUTPUT:{0} path Win32_PnPEntity where \"PNPDeviceID like '%VEN%'\" get Caption, ClassGuid, Manufacturer, "
         L"Name, PNPDeviceID, Service, Status",
         L"", L"wmi-PnPEntities-InclVenInfo.txt", nullptr},
    };
}

// Each outcome of the tool: ended with 0; failed or terminated (1); timed out (-1); could not be started.
TEST(SystemToolItemsTest, EachItemRunsItsToolWithAFreshNameAndNamesItsFileOnlyWhenTheToolSucceeded) {
    const std::wstring folder = Common::Utf8ToWide(Common::PathToUtf8(kFolder)) + static_cast<wchar_t>(fs::path::preferred_separator);
    std::set<std::wstring> names;
    for (auto [created, exitCode] : {std::pair{true, 0}, std::pair{true, 1}, std::pair{true, -1}, std::pair{false, 0}}) {
        for (const ItemCase& item : Cases()) {
            SCOPED_TRACE(Common::WideToUtf8(item.archiveName) + " exit " + std::to_string(exitCode));
            auto log = std::make_shared<StarterLog>();
            log->created = created;
            log->exitCode = exitCode;
            FileEntries entries;
            ASSERT_TRUE(item.make(std::make_unique<FakeStarter>(log))->Create(kFolder, entries).Succeeded());

            ASSERT_EQ(log->starts.size(), 1u);
            const auto& [executable, arguments] = log->starts[0];
            std::wstring name = ScratchNameIn(arguments);
            EXPECT_TRUE(names.insert(name).second) << "scratch name " << Common::WideToUtf8(name) << " used again";
            std::wstring file = folder + name + item.extension;
            EXPECT_EQ(executable, item.executable);
            EXPECT_EQ(arguments, Common::FormatPlaceholders(item.arguments, {L"\"" + file + L"\""}));
            if (!created || exitCode != 0) {
                EXPECT_TRUE(entries.empty());
                continue;
            }
            ASSERT_EQ(entries.size(), 1u);
            EXPECT_EQ(Common::Utf8ToWide(Common::PathToUtf8(entries[0].source)), file);
            EXPECT_EQ(entries[0].archiveName, item.archiveName);
            EXPECT_EQ(entries[0].filter, item.filter);
        }
    }
}

TEST(ReportMSInfo32Test, ChoosesItsExecutableByVersionServiceAndProgramFolder) {
    const std::wstring tail = L"\\Common Files\\Microsoft Shared\\MSInfo\\msinfo32.exe\"";
    struct Case {
        const char* label;
        std::optional<unsigned long> major;
        bool running, startSucceeds, wow64;
        std::wstring programW6432, programFiles;
        std::optional<std::wstring> executable;  // none: nothing runs
        int serviceStarts, serviceStops;         // stops: when the item is destroyed
    } cases[] = {
        {"Vista", 6, false, false, false, L"", L"", L"msinfo32.exe", 0, 0},
        {"no version", std::nullopt, false, false, false, L"", L"", L"msinfo32.exe", 0, 0},
        {"XP x64, 32-bit process: the native folder", 5, true, true, true, L"C:\\Program Files",
         L"C:\\Program Files (x86)", L"\"C:\\Program Files" + tail, 0, 0},
        {"XP x64 without %ProgramW6432%", 5, true, true, true, L"", L"D:\\Programme", L"\"D:\\Programme" + tail, 0, 0},
        {"32-bit XP ignores %ProgramW6432%", 5, true, true, false, L"C:\\Wrong", L"C:\\Program Files",
         L"\"C:\\Program Files" + tail, 0, 0},
        {"the item starts the service and stops it again", 5, false, true, false, L"", L"C:\\Program Files",
         L"\"C:\\Program Files" + tail, 1, 1},
        {"the service cannot be started", 5, false, false, false, L"", L"C:\\Program Files", std::nullopt, 1, 0},
        {"no program folder", 5, true, true, true, L"", L"", std::nullopt, 0, 0},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.label);
        auto host = std::make_shared<HostState>();
        host->major = c.major;
        host->running = c.running;
        host->startSucceeds = c.startSucceeds;
        host->programW6432 = c.programW6432;
        host->programFiles = c.programFiles;
        auto log = std::make_shared<StarterLog>();
        FileEntries entries;
        {
            ReportMSInfo32 item(std::make_shared<FakeProbe>(c.wow64, false), std::make_unique<FakeHost>(host),
                                std::make_unique<FakeStarter>(log));
            EXPECT_TRUE(item.Create(kFolder, entries).Succeeded());
        }
        std::optional<std::wstring> started;
        if (!log->starts.empty()) started = log->starts[0].first;
        EXPECT_EQ(started, c.executable);
        EXPECT_EQ(entries.size(), c.executable ? 1u : 0u);
        EXPECT_EQ(host->starts, c.serviceStarts);
        EXPECT_EQ(host->stops, c.serviceStops);
    }
}

template <typename... Items>
std::vector<std::string> Types() {
    return {typeid(Items).name()...};
}

// The Windows tool items for a system, in their order.
std::vector<std::string> ToolItemTypes(bool wow64, bool preinstallation) {
    ReportContext context;
    context.systemProbe = std::make_shared<FakeProbe>(wow64, preinstallation);
    std::vector<std::string> types;
    for (const ReportPtr& item : MakeWindowsToolItems(context)) {
        const Report& report = *item;
        types.push_back(typeid(report).name());
    }
    return types;
}

// The 64-bit registry twin comes right after the registry export, the device lists after System Information
// (a pre-installation environment without the twin: system_tools_wine_e2e.sh).
TEST(SystemToolItemsTest, TheRunsListDependsOnWow64AndThePreinstallationEnvironment) {
    using Head = std::vector<std::string>;
    const Head head = Types<ReportSysLog, ReportAppLog, ReportUserRights, ReportRegistryKeys>();
    auto list = [&](Head tail) { return tail.insert(tail.begin(), head.begin(), head.end()), tail; };
    EXPECT_EQ(ToolItemTypes(false, false), list(Types<ReportMSInfo32>()));
    EXPECT_EQ(ToolItemTypes(true, false), list(Types<ReportRegistryKeys64, ReportMSInfo32>()));
    EXPECT_EQ(ToolItemTypes(true, true), list(Types<ReportRegistryKeys64, ReportMSInfo32, ReportWmiPnpAll, ReportWmiPnpVen,
                                                    ReportWmiPnpStorageAndNetwork>()));
}

// Whatever the platform's tool items are, they come right before the locations item (a stand-in here, as
// the real one would start network discovery), which is last.
TEST(SystemToolItemsTest, ThePlatformsToolItemsComeRightBeforeTheLocationsItem) {
    ReportContext context;
    context.systemProbe = std::make_shared<FakeProbe>(true, true);
    auto locations = std::make_shared<ReportUserGroups>();
    std::vector<ReportPtr> items = MakeReportItems(context, locations);
    std::vector<ReportPtr> tools = MakeSystemToolItems(context);
    ASSERT_GT(items.size(), tools.size());
    EXPECT_EQ(items.back(), locations);
    for (size_t i = 0; i < tools.size(); ++i) {
        const Report &listed = *items[items.size() - 1 - tools.size() + i], &tool = *tools[i];
        EXPECT_EQ(typeid(listed), typeid(tool)) << i;
    }
}

}  // namespace
