// The boot-chain check item.
#include "products/imager/system_report/report_boot_check.h"

#include "core/boot_check/bcd_hive_file.h"
#include "core/boot_check/boot_check.h"
#include "core/boot_check/machine_probe.h"

namespace SystemReport {

ReportBootCheck::ReportBootCheck(Uefi::VariableStorePtr store)
    : TextReport(L"Boot Chain Check", L"boot_check.txt", [store](std::ostream* out) -> Common::Error {
          if (!out) return {};
          BootCheck::Machine machine = BootCheck::ProbeMachine(*store);
          *out << BootCheck::BuildBootCheck(machine, BootCheck::OpenHiveBytes);
          return {};
      }) {}

}  // namespace SystemReport
