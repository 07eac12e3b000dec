// The report item that writes the firmware's boot entries and boot order into "uefi_vars.txt".
#pragma once

#include "core/grub_parser/uefi_bootvars/variable.h"
#include "products/imager/system_report/text_report.h"

namespace SystemReport {

class ReportUefiBootvars final : public TextReport {
public:
    explicit ReportUefiBootvars(Uefi::VariableStorePtr store = Uefi::MakeSystemVariableStore());
};

}  // namespace SystemReport
