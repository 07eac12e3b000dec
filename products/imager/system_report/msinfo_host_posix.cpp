// Off Windows there is no System Information tool and nothing for it to need.
#include "products/imager/system_report/msinfo_host.h"

namespace SystemReport {
namespace {

class PosixMsInfoHost final : public MsInfoHost {
public:
    std::optional<unsigned long> WindowsMajorVersion() override { return std::nullopt; }
    bool HelpServiceRunning() override { return false; }
    bool StartHelpService() override { return false; }
    void StopHelpService() override {}
    std::wstring ProgramW6432Folder() override { return {}; }
    std::wstring ProgramFilesFolder() override { return {}; }
};

}  // namespace

std::unique_ptr<MsInfoHost> MakeMsInfoHost() { return std::make_unique<PosixMsInfoHost>(); }

}  // namespace SystemReport
