// Copying one file into the archive through a copy filter.
#pragma once

#include <filesystem>
#include <string_view>

#include "core/common/error.h"
#include "core/file/zip/zip_writer.h"
#include "products/imager/system_report/copy_file_filter.h"

namespace SystemReport {

// Reads the source's whole text, passes it through the filter and stores the result under `name`.
// A source that cannot be read, or a filter that fails, stores nothing and returns the error (code 0x40007).
Common::Error FilteredCopyFile(const std::filesystem::path& source, Zip::ZipWriter& zip, std::string_view name,
                               const CopyFileFilter& filter, std::time_t modified);

// The whole content of a file; the error carries the path.
Common::Error ReadWholeFile(const std::filesystem::path& path, std::string& content);

}  // namespace SystemReport
