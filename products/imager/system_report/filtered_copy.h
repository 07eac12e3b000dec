// Reading a file and passing its whole text through a copy filter.
#pragma once

#include <filesystem>
#include <string>

#include "core/common/error.h"
#include "core/file/zip/entry_source.h"
#include "products/imager/system_report/copy_file_filter.h"

namespace SystemReport {

// The whole text of `source` passed through `filter`. Fails when the file cannot be read or the filter
// reports an error: then nothing of the file may be stored. An exception that the filter throws passes
// through to the caller.
Common::Error FilteredCopyFile(const std::filesystem::path& source, const CopyFileFilter& filter, std::string& filtered);

// The archive writer's transform for entries through `filter`, which must live until the archive is
// committed or given up. A filter that can stream is fed the text in pieces, so a filtered file of any size
// is packed in bounded memory; any other gets the whole text, up to Zip::Transform::kWholeTextLimit.
Zip::Transform FilterTransform(const CopyFileFilter& filter);

// The whole content of a file. Never throws: a file that cannot be opened or read to its end, or that
// does not fit in memory, is an error carrying the path.
Common::Error ReadWholeFile(const std::filesystem::path& path, std::string& content);

}  // namespace SystemReport
