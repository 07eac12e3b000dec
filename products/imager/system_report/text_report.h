// The generic report item that writes what one text producer gives into one file of the scratch folder.
#pragma once

#include <functional>
#include <ostream>
#include <string>

#include "products/imager/system_report/report.h"

namespace SystemReport {

// Writes the item's text to `out` (which may be null: a producer must then still release what it took).
using TextProducer = std::function<Common::Error(std::ostream* out)>;

class TextReport : public Report {
public:
    TextReport(std::wstring title, std::wstring fileName, TextProducer producer);
    // Creates `fileName` in the folder, runs the producer, and appends the entry (archive name = file
    // name) unless the file could not be created. A write that the disk did not take whole gives 0x40007
    // "The disk is full." but does not stop the producer, and what reached the file is still archived;
    // otherwise the producer's error is returned.
    Common::Error Create(const std::filesystem::path& folder, FileEntries& entries) override;

private:
    std::wstring title_;
    std::wstring fileName_;
    TextProducer producer_;
};

}  // namespace SystemReport
