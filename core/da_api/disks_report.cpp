// The disk layout report: the order of its sections and passes.
#include "core/da_api/disks_report.h"

#include "core/common/log.h"
#include "core/da_api/da_properties.h"
#include "core/da_api/disks_report_access.h"
#include "core/da_api/disks_report_details.h"
#include "core/da_api/disks_report_rows.h"
#include "core/da_api/disks_report_walk.h"

namespace DaApi {
namespace {

using namespace DisksReport;

constexpr const char* kHeader[] = {
    "          PS         Speed IFace Hs-Bs-Tg Model                     ",
    "Num  NT    L9NO  Size FSsize Free FS     Type            Label       ABCHSV Error",
    "---- ----- ---- ----- ----- ----- ------ --------------- ----------- ------ ----------",
};

// Context values of the table walk; the interface may ignore them.
constexpr Value kTableContext = 0;

bool IsVolumeGroup() { return Get(Prop::kIsVolumeGroup) != 0; }

// Each pass walks from the first disk again and leaves the selection clean.
template <typename Body>
void Pass(Body&& body) {
    BeginPass();
    body();
    EndPass();
}

void WriteTable(std::ostream& out) {
    Set(Prop::kContextA, kTableContext);
    Set(Prop::kContextB, kTableContext);
    ForEachDisk([&] {
        if (IsVolumeGroup()) {
            WriteVolumeGroupRow(out);
        } else {
            WriteDiskRow(out);
        }
        ForEachObject([&](const Place& place) {
            if (place.volume) {
                WriteVolumeRow(out, place);
            } else {
                WritePartitionRow(out, place);
            }
        });
    });
}

void WriteSummary(std::ostream& out) {
    WriteLine(out, "");
    WriteComputerSummary(out);
    ForEachDisk([&] {
        if (IsVolumeGroup()) return;
        WriteDiskProperties(out);
        WriteLine(out, "");
    });
}

void WriteErrors(std::ostream& out) {
    WriteComputerError(out);
    ForEachDisk([&] {
        WriteDiskError(out);
        ForEachObject([&](const Place& place) { WriteObjectError(out, place); });
    });
}

void WriteSectors(std::ostream& out) {
    ForEachDisk([&] {
        ForEachObject([&](const Place& place) { WriteSectorPassObject(out, place); });
        WriteLine(out, "");
    });
}

void WriteDetails(std::ostream& out) {
    ForEachDisk([&] { ForEachObject([&](const Place& place) { WritePartitionDetail(out, place); }); });
}

void WriteFileSystems(std::ostream& out) {
    ForEachDisk([&] {
        ForEachObject([&](const Place& place) {
            if (Get(Prop::kHasFileSystem) != 0) WriteFileSystemDetail(out, place);
        });
    });
}

Common::Error WriteDocument(std::ostream& out) {
    WriteLine(out, "DA-API report version 3");
    WriteLine(out, "");
    Common::Error computer = BeginPass();
    WriteLine(out, "Computer " + GetText8(Prop::kComputerName));
    for (const char* line : kHeader) WriteLine(out, line);
    WriteTable(out);
    EndPass();

    Pass([&] { WriteSummary(out); });
    Pass([&] { WriteErrors(out); });
    Pass([&] { WriteSectors(out); });
    Pass([&] { WriteDetails(out); });
    Pass([&] { WriteFileSystems(out); });
    return computer;
}

}  // namespace

Common::Error WriteDisksReport(std::ostream* out) {
    if (!out) return {};
    Common::Log::Info("Disk report: writing the disk layout.");
    Common::Error result;
    Common::Error failure = Common::CatchErrors([&] { result = WriteDocument(*out); });
    if (failure.Failed()) {
        Common::Log::WriteError(Common::Log::kError, "Disk report: the walk failed: ", failure);
        result = failure;
        EndPass();
    }
    ReleaseComputer();
    return result;
}

}  // namespace DaApi
