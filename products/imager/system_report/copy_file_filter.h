// The interface of a text filter applied to a file's whole text as it is copied into the report.
#pragma once

#include <string>

#include "core/common/error.h"

namespace SystemReport {

class CopyFileFilter {
public:
    virtual ~CopyFileFilter() = default;
    // `text` is the file's bytes as they are on disk (8-bit text or UTF-16LE, as the filter expects).
    // A failure means the text could not be filtered: the caller must not store it.
    virtual Common::Error Filter(const std::string& text, std::string& filtered) const = 0;
};

}  // namespace SystemReport
