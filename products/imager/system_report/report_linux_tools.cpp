// The table of the Linux report items.
#include "products/imager/system_report/report_linux_tools.h"

namespace SystemReport {
namespace {

using Kind = LinuxSource::Kind;

LinuxSource Tool(std::vector<std::string> words) { return {Kind::kTool, std::move(words)}; }
LinuxSource File(std::string path) { return {Kind::kFile, {std::move(path)}}; }

std::vector<LinuxItemPlan> Plans() {
    return {
        // The kernel's log through dmesg, else straight from the kernel: rescue media may lack util-linux.
        {"dmesg.txt", {Tool({"dmesg"}), {Kind::kKernelLog, {"/dev/kmsg"}}}, false, true},
        {"journal.txt", {Tool({"journalctl", "-b", "--no-pager", "-o", "short-precise"})}, false, true},
        // Every column, sizes in bytes; warnings on standard error would make the JSON unreadable.
        {"lsblk.json", {{Kind::kTool, {"lsblk", "-J", "-O", "-b"}, true}}},
        // A cache file could list devices that are gone and miss new ones: probe each device afresh.
        {"blkid.txt", {Tool({"blkid", "-c", "/dev/null", "-o", "export"})}},
        {"storage.txt",
         {File("/proc/mdstat"), Tool({"dmsetup", "table"}), Tool({"dmsetup", "info", "-c"}), Tool({"pvs", "-a", "-o", "all"}),
          Tool({"vgs", "-o", "all"}), Tool({"lvs", "-a", "-o", "all"}), File("/proc/mounts"), File("/proc/partitions"),
          File("/proc/swaps")},
         true},
        {"system.txt",
         {Tool({"uname", "-a"}), File("/etc/os-release"), File("/proc/cmdline"), File("/proc/cpuinfo"), File("/proc/meminfo"),
          Tool({"uptime"})},
         true},
        {"hardware.txt", {Tool({"lspci", "-nnk"}), Tool({"lsusb"}), {Kind::kFolder, {"/sys/class/dmi/id"}}}, true},
        {"network.txt", {Tool({"ip", "-d", "addr"}), Tool({"ip", "route"})}, true},
    };
}

}  // namespace

std::vector<ReportPtr> MakeLinuxToolItems(std::shared_ptr<CopyFileFilter> textFilter, const LinuxToolOptions& options) {
    std::vector<ReportPtr> items;
    for (LinuxItemPlan& plan : Plans()) items.push_back(std::make_shared<LinuxToolItem>(std::move(plan), options, textFilter));
    // The disks' health after the block devices, so that the listing says which disk each file is.
    items.insert(items.begin() + 4, std::make_shared<LinuxSmartItem>(options));
    return items;
}

}  // namespace SystemReport
