// The report item that checks the boot chain (firmware entries, partitions, BCD stores, boot code) and
// writes what it found into "boot_check.txt".
#pragma once

#include "core/grub_parser/uefi_bootvars/variable.h"
#include "products/imager/system_report/text_report.h"

namespace SystemReport {

class ReportBootCheck final : public TextReport {
public:
    explicit ReportBootCheck(Uefi::VariableStorePtr store = Uefi::MakeSystemVariableStore());
};

}  // namespace SystemReport
