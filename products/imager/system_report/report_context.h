// What the items of one run share: the two redaction filters (one instance of each per run) and the
// folder service.
#pragma once

#include <memory>

#include "core/common/folders.h"
#include "products/imager/system_report/copy_file_filter.h"
#include "products/imager/system_report/system_probe.h"

namespace SystemReport {

struct ReportContext {
    std::shared_ptr<CopyFileFilter> textFilter;      // 8-bit text
    std::shared_ptr<CopyFileFilter> wideTextFilter;  // UTF-16LE text
    std::shared_ptr<Common::FolderService> folders;
    std::shared_ptr<SystemProbe> systemProbe;        // which items this system has
};

}  // namespace SystemReport
