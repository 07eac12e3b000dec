// The disk report's walks.
#include "core/da_api/disks_report_walk.h"

#include <set>

#include "core/common/log.h"
#include "core/da_api/da_properties.h"
#include "core/da_api/disks_report_access.h"

namespace DaApi::DisksReport {
namespace {

// Value of the selection writes that name the computer: "the computer named by property 54".
constexpr Value kComputerByName = Prop::kComputerName;

// Bounds that end a walk over an interface that keeps answering (a damaged table that loops is the
// library's to catch; these make sure the report ends whatever it answers). A handle met twice also ends
// the walk.
constexpr std::size_t kMaxDisks = 4096;
constexpr std::size_t kMaxObjects = 65536;

// Advances with `step` and returns the new current handle, 0 past the last or when the step fails.
Value Advance(PropertyId step, PropertyId handle) {
    if (!Set(step, 0)) return 0;
    return Get(handle);
}

// Calls `visit` for every handle that `next` yields, until 0, a repeated handle or the bound.
void WalkHandles(const std::function<Value()>& next, std::size_t bound, const char* what,
                 const std::function<void(Value)>& visit) {
    std::set<Value> seen;
    for (Value handle = next(); handle != 0; handle = next()) {
        if (!seen.insert(handle).second || seen.size() > bound) {
            Common::Log::Warning(std::string("Disk report: the walk over ") + what + " does not end; stopped it.");
            return;
        }
        visit(handle);
    }
}

void WalkVolumeContents(Value volumeHandle, Value volumeNumber, const std::function<void(const Place&)>& visit) {
    if (!Set(Prop::kVolumeHandle, volumeHandle) || !Set(Prop::kObjectHandle, 0)) return;
    Place place{true, false, true, volumeNumber};
    WalkHandles([] { return Advance(Prop::kNextVolumeObject, Prop::kObjectHandle); }, kMaxObjects, "a volume",
                [&](Value) {
                    if (Get(Prop::kSkip) == 0) visit(place);
                });
}

}  // namespace

Common::Error BeginPass() {
    Common::Error error = Common::CatchErrors([] { DaSetProperty(Prop::kSelectComputer, kComputerByName); });
    if (error.Failed()) Common::Log::WriteError(Common::Log::kError, "Disk report: cannot select the computer: ", error);
    Drop(Prop::kDropDisk);
    return error;
}

void EndPass() {
    Drop(Prop::kObjectHandle);
    Drop(Prop::kDropDisk);
    Drop(Prop::kDropVolumeGroup);
}

void ReleaseComputer() { Set(Prop::kReleaseComputer, kComputerByName); }

void ForEachDisk(const std::function<void()>& visit) {
    Drop(Prop::kDropDisk);
    WalkHandles([] { return Advance(Prop::kNextDisk, Prop::kDiskHandle); }, kMaxDisks, "the disks",
                [&](Value) { visit(); });
    Drop(Prop::kDropDisk);
}

void ForEachObject(const std::function<void(const Place&)>& visit) {
    bool volumeGroup = Get(Prop::kIsVolumeGroup) != 0;
    Set(Prop::kObjectHandle, 0);
    WalkHandles([] { return Advance(Prop::kNextObject, Prop::kObjectHandle); }, kMaxObjects, "a disk's objects",
                [&](Value handle) {
                    if (Get(Prop::kSkip) != 0) return;
                    if (!volumeGroup) {
                        visit(Place{});
                        return;
                    }
                    Value number = Get(Prop::kPartitionNumber);
                    visit(Place{true, true, false, number});
                    if (Value volumeHandle = Get(Prop::kVolumeHandle); volumeHandle != 0) {
                        WalkVolumeContents(volumeHandle, number, visit);
                    }
                    Set(Prop::kObjectHandle, handle);
                });
    Set(Prop::kObjectHandle, 0);
}

}  // namespace DaApi::DisksReport
