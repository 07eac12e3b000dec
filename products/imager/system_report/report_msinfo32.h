// System Information saved as an .nfo file by msinfo32.
#pragma once

#include <memory>

#include "products/imager/system_report/msinfo_host.h"
#include "products/imager/system_report/report_process_base.h"
#include "products/imager/system_report/system_probe.h"

namespace SystemReport {

// "msinfo32.exe /nfo "<path>.nfo"" as "msinfo.nfo".
class ReportMSInfo32 final : public ReportProcessBase {
public:
    ReportMSInfo32(std::shared_ptr<SystemProbe> probe, std::unique_ptr<MsInfoHost> host = MakeMsInfoHost(),
                   std::unique_ptr<ProcessStarter> starter = std::make_unique<ProcessStarterImpl>());
    // Stops the help service again if this item started it.
    ~ReportMSInfo32() override;

protected:
    // From Windows Vista on the bare "msinfo32.exe", which the system finds. Before, the tool lives in
    // the common program files and needs the help service: the quoted full path, or nothing when the
    // service cannot be started or no program folder is known.
    std::wstring GetExecutable() override;
    // Appends ".nfo" to `name`: the tool picks its output format by the extension.
    std::wstring GetArguments(const std::filesystem::path& folder, std::wstring& name) override;
    FileEntry MakeFileEntry(const std::filesystem::path& path) override;

private:
    std::shared_ptr<SystemProbe> probe_;
    std::unique_ptr<MsInfoHost> host_;
    bool startedHelpService_ = false;
};

}  // namespace SystemReport
