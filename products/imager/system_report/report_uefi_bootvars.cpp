// The UEFI boot variables report item.
#include "products/imager/system_report/report_uefi_bootvars.h"

#include "core/grub_parser/uefi_bootvars/bootvars_report.h"

namespace SystemReport {

ReportUefiBootvars::ReportUefiBootvars(Uefi::VariableStorePtr store)
    : TextReport(L"UEFI Boot Variables Report", L"uefi_vars.txt",
                 [store](std::ostream* out) { return Uefi::WriteUefiBootVariablesReport(out, *store); }) {}

}  // namespace SystemReport
