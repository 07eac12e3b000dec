// The interface of a text filter applied to a file's whole text as it is copied into the report.
#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "core/common/error.h"

namespace SystemReport {

class CopyFileFilter {
public:
    virtual ~CopyFileFilter() = default;
    // `text` is the file's bytes as they are on disk (8-bit text or UTF-16LE, as the filter expects).
    // A failure means the text could not be filtered: the caller must not store it.
    virtual Common::Error Filter(const std::string& text, std::string& filtered) const = 0;

    // The filter over one text that arrives in pieces, giving the same bytes as Filter on the whole text.
    class Stream {
    public:
        virtual ~Stream() = default;
        // Appends to `filtered` what is settled; `last` ends the text. After a failure nothing of the text
        // may be stored.
        virtual Common::Error Push(std::string_view piece, bool last, std::string& filtered) = 0;
    };
    // A stream for one text, or nullptr from a filter that needs the whole text at once.
    virtual std::unique_ptr<Stream> StartStream() const { return nullptr; }
};

}  // namespace SystemReport
