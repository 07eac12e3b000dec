// The system probe off Windows: no WOW64, no pre-installation environment.
#include "products/imager/system_report/system_probe.h"

namespace SystemReport {
namespace {

class PosixSystemProbe final : public SystemProbe {
public:
    bool IsWow64Process() override { return false; }
    bool IsPreinstallationEnvironment() override { return false; }
};

}  // namespace

std::shared_ptr<SystemProbe> MakeSystemProbe() { return std::make_shared<PosixSystemProbe>(); }

}  // namespace SystemReport
