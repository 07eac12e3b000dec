// The Linux report items: against stand-in tools (shell scripts) for hangs, children, huge output and a
// journal with private data, with no tools at all, and as root against the machine's own tools over loop
// and device-mapper devices made by the test.
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <map>
#include <thread>

#include "core/common/strings.h"
#include "products/imager/system_report/filters/text_data_filter.h"
#include "products/imager/system_report/report_linux_tools.h"
#include "products/imager/system_report/report_manager.h"
#include "products/imager/system_report/report_system_tools.h"
#include "tests/home/location_detector/impl/log_capture.h"
#include "tests/support/zip_test_reader.h"

namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using namespace SystemReport;
using TestSupport::ReadFile;
using TestSupport::TempFolder;
using Kind = LinuxSource::Kind;

// A folder of stand-in tools; each is a shell script that names its helpers by full path, as the folder
// is the only one searched.
class FakeTools {
public:
    void Add(const std::string& name, const std::string& body) {
        fs::path path = folder_.path() / name;
        TestSupport::WriteFile(path, "#!/bin/sh\n" + body + "\n");
        fs::permissions(path, fs::perms::owner_all);
    }
    fs::path Path(const std::string& name) const { return folder_.path() / name; }
    LinuxToolOptions Options(std::chrono::milliseconds limit = 60s, std::size_t cap = 16u << 20) const {
        return {{folder_.path()}, limit, cap};
    }

private:
    TempFolder folder_;
};

// Gone once it no longer exists or is a zombie that only its new parent has still to reap.
bool Gone(const std::string& pid) {
    std::ifstream stat("/proc/" + pid + "/stat");
    std::string line;
    if (!std::getline(stat, line)) return true;
    std::size_t name = line.rfind(')');
    return name != std::string::npos && line.compare(name, 4, ") Z ") == 0;
}

bool WaitGone(const std::string& pid) {
    for (int i = 0; i < 500 && !Gone(pid); ++i) std::this_thread::sleep_for(20ms);
    return Gone(pid);
}

// What a run of `items` put into the archive, by name inside the archive, and its log.
struct RunResult {
    bool succeeded = false;
    std::map<std::string, std::string> files;
    std::map<std::string, std::shared_ptr<CopyFileFilter>> filters;
    std::string log;
};

RunResult RunItems(const std::vector<ReportPtr>& items) {
    LocationTests::LogCapture log;
    TempFolder scratch;
    RunResult result;
    ReportManager manager;
    for (const ReportPtr& item : items) manager.Add(item);
    result.succeeded = manager.Create(scratch.path()).Succeeded();
    for (const FileEntry& entry : manager.Entries()) {
        std::string name = Common::WideToUtf8(entry.archiveName);
        result.files[name] = ReadFile(entry.source);
        result.filters[name] = entry.filter;
    }
    result.log = log.Text();
    return result;
}

int Count(const std::string& text, const std::string& part) {
    int count = 0;
    for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) ++count;
    return count;
}

std::string Shell(const std::string& command) {
    std::string output;
    if (FILE* pipe = popen(command.c_str(), "r")) {
        char buffer[4096];
        while (size_t n = fread(buffer, 1, sizeof buffer, pipe)) output.append(buffer, n);
        if (pclose(pipe) != 0) output.clear();
    }
    while (!output.empty() && output.back() == '\n') output.pop_back();
    return output;
}

TEST(LinuxToolItemTest, ToolsThatHangLeaveChildrenOrFailAreKilledOrRecordedAndTheRunGoesOn) {
    FakeTools tools;
    const std::string folder = tools.Path("").string();
    tools.Add("hang", "echo before the hang; /bin/sleep 600 & echo $! > " + folder + "hang.child; echo $$ > " + folder +
                          "hang.pid; wait");
    tools.Add("leave", "echo parent done; /bin/sleep 600 & echo $! > " + folder + "leave.child");
    tools.Add("fail", "echo half; exit 3");
    LinuxItemPlan plan{"tools.txt",
                       {{Kind::kTool, {"hang"}}, {Kind::kTool, {"leave"}}, {Kind::kTool, {"fail"}}, {Kind::kTool, {"nosuch"}}},
                       true};
    RunResult run = RunItems({std::make_shared<LinuxToolItem>(plan, tools.Options(3s), nullptr)});
    ASSERT_TRUE(run.succeeded);
    EXPECT_EQ(run.files["Linux/tools.txt"],
              "==== hang ====\nbefore the hang\n[cut: hang did not end within 3 s and was killed with what it started; "
              "its output until then is above]\n\n"
              "==== leave ====\nparent done\n\n"
              "==== fail ====\nhalf\n[fail ended with exit code 3]\n\n"
              "==== nosuch ====\n[not run: nosuch was not found]\n\n");
    for (const char* pidFile : {"hang.pid", "hang.child", "leave.child"}) {
        std::string pid = ReadFile(tools.Path(pidFile));
        EXPECT_TRUE(WaitGone(pid.substr(0, pid.find('\n')))) << pidFile;
    }
}

TEST(LinuxToolItemTest, OutputBeyondTheCapIsCutAtItsEndOrForALogAtItsStart) {
    FakeTools tools;
    tools.Add("endless", "exec /usr/bin/yes listing");
    tools.Add("count", "exec /usr/bin/seq 1 100000");
    const std::size_t cap = 64 * 1024;
    {
        LinuxItemPlan plan{"listing.txt", {{Kind::kTool, {"endless"}}}};
        std::string text = RunItems({std::make_shared<LinuxToolItem>(plan, tools.Options(60s, cap), nullptr)}).files["Linux/listing.txt"];
        const std::string note = "\n[cut: the file reached its size limit of 64 KiB; the rest is left out]\n";
        EXPECT_EQ(text.size(), cap + note.size());
        EXPECT_TRUE(text.starts_with("listing\nlisting\n"));
        EXPECT_TRUE(text.ends_with(note));
    }
    {
        LinuxItemPlan plan{"log.txt", {{Kind::kTool, {"count"}}}, false, true};
        std::string text = RunItems({std::make_shared<LinuxToolItem>(plan, tools.Options(60s, cap), nullptr)}).files["Linux/log.txt"];
        const std::string note = "[cut: only the newest 64 KiB of 588895 bytes are kept; the oldest lines are left out]\n";
        ASSERT_TRUE(text.starts_with(note)) << text.substr(0, 200);
        EXPECT_LE(text.size(), cap + note.size());
        EXPECT_GT(text.size(), cap + note.size() - 8) << "only the first half line is dropped";
        std::size_t first = std::stoul(text.substr(note.size()));
        EXPECT_EQ(text.substr(note.size(), std::to_string(first).size() + 1), std::to_string(first) + "\n");
        EXPECT_TRUE(text.ends_with("\n99999\n100000\n"));
    }
}

// Only journalctl is there, and it is a stand-in; dmesg falls back to the kernel's own log where it can.
TEST(LinuxToolItemsTest, WithoutToolsEachItemIsSkippedWithOneLineAndTheJournalIsRedacted) {
    FakeTools tools;
    tools.Add("journalctl", "echo \"args: $*\"\n"
                            "echo 'Nov 23 10:00:00.123456 host login[42]: UserName: alice'\n"
                            "echo 'Nov 23 10:00:01.000001 host mailer[43]: sent to alice.smith@example.com'");
    const std::string marker = "sr-linux-items-marker-" + std::to_string(getpid());
    const bool kernelLog = access("/dev/kmsg", R_OK) == 0 && std::ofstream("/dev/kmsg") << "<6>" + marker + "\n";

    RunResult run = RunItems(MakeLinuxToolItems(std::make_shared<TextDataFilter>(), tools.Options()));
    ASSERT_TRUE(run.succeeded);
    for (auto [name, file] : {std::pair{"lsblk", "lsblk.json"}, {"blkid", "blkid.txt"}, {"ip", "network.txt"}}) {
        EXPECT_EQ(Count(run.log, std::string("Not found or not readable: ") + name + "; 'Linux/" + file + "' is not in the report."), 1)
            << name;
        EXPECT_FALSE(run.files.contains(std::string("Linux/") + file));
    }
    EXPECT_EQ(Count(run.log, "Not found: smartctl; no 'Linux/smart-*.txt' is in the report."), 1);
    if (kernelLog) {
        EXPECT_NE(run.files["Linux/dmesg.txt"].find("] " + marker + "\n"), std::string::npos);
        EXPECT_NE(run.filters["Linux/dmesg.txt"], nullptr);
    } else {
        EXPECT_EQ(Count(run.log, "Not found or not readable: dmesg, /dev/kmsg; 'Linux/dmesg.txt' is not in the report."), 1);
    }
    EXPECT_NE(run.files["Linux/storage.txt"].find("==== dmsetup table ====\n[not run: dmsetup was not found]\n"), std::string::npos);
    EXPECT_NE(run.files["Linux/storage.txt"].find("==== /proc/mounts ====\n"), std::string::npos);

    std::string redacted;
    ASSERT_NE(run.filters["Linux/journal.txt"], nullptr);
    ASSERT_TRUE(run.filters["Linux/journal.txt"]->Filter(run.files["Linux/journal.txt"], redacted).Succeeded());
    EXPECT_TRUE(redacted.starts_with("args: -b --no-pager -o short-precise\n")) << redacted;
    EXPECT_EQ(redacted.find("alice"), std::string::npos) << redacted;
    EXPECT_NE(redacted.find("sent to ***@**.**"), std::string::npos) << redacted;
}

// A disk image with a partition table, attached as a loop device; optionally a device-mapper device over
// it. Both are removed however the test ends.
class LoopDisk {
public:
    LoopDisk() {
        image_ = temp_.path() / "disk.img";
        const std::string quoted = "'" + image_.string() + "'";
        if (Shell("truncate -s 9M " + quoted + " && printf 'label: dos\\n,4M,c\\n' | sfdisk -q " + quoted + " && echo ok") == "ok") {
            device_ = Shell("losetup -f --show " + quoted);
        }
    }
    ~LoopDisk() {
        if (!mapped_.empty()) Shell("dmsetup remove --noudevsync " + mapped_ + " && echo ok");
        if (!device_.empty()) Shell("losetup -d " + device_ + " && echo ok");
    }
    const std::string& Device() const { return device_; }
    // A linear target over the whole loop device; false where the kernel has no device-mapper.
    bool Map(const std::string& name) {
        if (Shell("echo \"0 $(blockdev --getsz " + device_ + ") linear " + device_ + " 0\" | dmsetup create --noudevsync " + name +
                  " && echo ok") != "ok") {
            return false;
        }
        mapped_ = name;
        return true;
    }

private:
    TempFolder temp_;
    fs::path image_;
    std::string device_, mapped_;
};

class LinuxMachineTest : public testing::Test {
protected:
    void SetUp() override {
        if (geteuid() != 0) GTEST_SKIP() << "loop devices need root";
        if (disk_.Device().empty()) GTEST_SKIP() << "no loop device could be attached";
    }
    LoopDisk disk_;
};

TEST_F(LinuxMachineTest, LoopDevicesAreListedWithExactSizesAndEachDiskHasSmartDataOrALineWhyNot) {
    TempFolder out;
    RunResult run = RunItems(MakeLinuxToolItems(nullptr));
    ASSERT_TRUE(run.succeeded);
    TestSupport::WriteFile(out.path() / "lsblk.json", run.files["Linux/lsblk.json"]);
    const std::string name = fs::path(disk_.Device()).filename().string();
    EXPECT_EQ(Shell("python3 -c 'import json,sys\n"
                    "for d in json.load(open(sys.argv[1]))[\"blockdevices\"]:\n"
                    "  if d[\"name\"] == sys.argv[2]: print(d[\"size\"])' '" +
                    (out.path() / "lsblk.json").string() + "' " + name),
              std::to_string(9 << 20));
    EXPECT_NE(run.files["Linux/blkid.txt"].find("DEVNAME=" + disk_.Device() + "\nPTUUID="), std::string::npos);

    bool smartFiles = false;
    for (const auto& [file, text] : run.files) smartFiles |= file.starts_with("Linux/smart-") && text.find("smartctl") != std::string::npos;
    EXPECT_TRUE(smartFiles || run.log.find("Not found: smartctl; no 'Linux/smart-*.txt'") != std::string::npos ||
                run.log.find("No disk with a device behind it is listed in /sys/block") != std::string::npos)
        << run.log;
}

TEST_F(LinuxMachineTest, StorageShowsADeviceMapperDevice) {
    const std::string name = "sr-linux-items-" + std::to_string(getpid());
    if (!disk_.Map(name)) GTEST_SKIP() << "dmsetup create failed: this kernel has no device-mapper";
    RunResult run = RunItems(MakeLinuxToolItems(nullptr));
    const std::string& storage = run.files["Linux/storage.txt"];
    std::size_t table = storage.find("==== dmsetup table ====\n"), info = storage.find("==== dmsetup info -c ====\n");
    ASSERT_NE(table, std::string::npos);
    EXPECT_NE(storage.find(name + ": 0 18432 linear ", table), std::string::npos) << storage;
    EXPECT_NE(storage.find(name, info), std::string::npos);
}

// On Linux the Windows tool items are left out and the Linux ones stand in their place.
TEST(LinuxToolItemsTest, TheRunsToolItemsAreTheLinuxOnes) {
    std::vector<ReportPtr> items = MakeSystemToolItems(ReportContext{});
    EXPECT_EQ(items.size(), 9u);
    for (const ReportPtr& item : items) {
        const Report& report = *item;
        EXPECT_TRUE(dynamic_cast<const LinuxToolItem*>(&report) || dynamic_cast<const LinuxSmartItem*>(&report)) << typeid(report).name();
    }
}

}  // namespace
