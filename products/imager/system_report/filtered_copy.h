// Reading a file and passing its whole text through a copy filter.
#pragma once

#include <filesystem>
#include <string>

#include "core/common/error.h"
#include "products/imager/system_report/copy_file_filter.h"

namespace SystemReport {

// The whole text of `source` passed through `filter`. Fails when the file cannot be read or the filter
// cannot process it: then nothing of the file may be stored.
Common::Error FilteredCopyFile(const std::filesystem::path& source, const CopyFileFilter& filter, std::string& filtered);

// The whole content of a file; the error carries the path.
Common::Error ReadWholeFile(const std::filesystem::path& path, std::string& content);

}  // namespace SystemReport
