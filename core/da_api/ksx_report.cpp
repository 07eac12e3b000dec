// The boot configuration report: the walk over the partitions.
#include "core/da_api/ksx_report.h"

#include <map>
#include <memory>
#include <string>

#include "core/common/log.h"
#include "core/da_api/da_api.h"
#include "core/da_api/da_properties.h"
#include "core/da_api/disks_report_access.h"
#include "core/da_api/ksx_bcd.h"
#include "core/da_api/ksx_content.h"
#include "core/da_api/report_printf.h"

namespace DaApi {
namespace {

using DisksReport::Get;
using DisksReport::Set;

// An interface whose object walk never ends must not hold the report forever.
constexpr std::size_t kMaxObjects = 100000;

// The BIOS numbering shown in the partition lines: 0x80 is disk 1. A disk without a BIOS number (an image
// file) takes the number of its place among the disks, the first being 1.
class DiskNumbers {
public:
    Value Current() {
        if (Get(Prop::kHasBiosNumber) != 0) return Get(Prop::kBiosNumber) - 127;
        auto [place, added] = places_.try_emplace(Get(Prop::kDiskHandle), places_.size() + 1);
        return place->second;
    }

private:
    std::map<Value, Value> places_;
};

void WritePartition(std::ostream& out, Value disk, Value volumeHandle, const std::filesystem::path& scratch) {
    std::string text;
    AppendPrintf(text, "--- Partition %llu-%llu content ---\r\n\r\n", static_cast<unsigned long long>(disk),
                 static_cast<unsigned long long>(Get(Prop::kPartitionNumber)));
    Ksx::StoreCopy store;
    {
        std::unique_ptr<Disk::MountedVolume> volume;
        Common::Error error = DaMountVolume(volumeHandle, volume);
        std::unique_ptr<Disk::VolumeDirectory> root = volume ? volume->Root() : nullptr;
        if (error.Failed() || !root) {
            Common::Log::WriteError(Common::Log::kWarning, "Boot configuration report: a volume cannot be mounted: ", error);
            text += "Mount error\r\n\r\n\r\n";
        } else {
            Common::Log::Debug("Boot configuration report: reading a volume through the " + volume->Way() + ".");
            Set(Prop::kVolumeHandle, volumeHandle);
            Ksx::WriteVolumeContent(*root, text);
            store = Ksx::CopyStore(*root, scratch);
        }
    }
    // The mount is released before the store is loaded: one volume and one hive at a time.
    Ksx::WriteBcdPart(store, text);
    out << text;
}

}  // namespace

Common::Error WriteKsxReport(std::ostream* out, const std::filesystem::path& scratch) {
    if (!out) return {};
    *out << "\r\n------ Selvora report ------\r\n\r\n";
    Common::Error selected = Common::CatchErrors([] { DaSetProperty(Prop::kSelectComputer, Prop::kComputerName); });
    if (selected.Failed()) {
        Common::Log::WriteError(Common::Log::kError, "Boot configuration report: the computer cannot be selected: ", selected);
        return selected;
    }
    DisksReport::Drop(Prop::kDropDisk);
    DisksReport::Drop(Prop::kObjectHandle);
    DiskNumbers disks;
    std::size_t objects = 0;
    for (Set(Prop::kNextObject, 0); Get(Prop::kObjectHandle) != 0; Set(Prop::kNextObject, 0)) {
        if (++objects > kMaxObjects) {
            Common::Log::Error("Boot configuration report: the object walk does not end; the report stops here.");
            break;
        }
        Value volumeHandle = Get(Prop::kVolumeHandle);
        if (Get(Prop::kSkip) != 0 || volumeHandle == 0) continue;
        WritePartition(*out, disks.Current(), volumeHandle, scratch);
    }
    Set(Prop::kReleaseComputer, Prop::kComputerName);
    return {};
}

}  // namespace DaApi
