// The output file of a report item that writes text: its write failures become "The disk is full."
// without stopping the writer.
#pragma once

#include <array>
#include <filesystem>
#include <fstream>
#include <streambuf>

#include "core/common/error.h"

namespace SystemReport {

// A stream over this buffer never goes bad, so a producer writes to its end: a write that puts fewer
// bytes into the file than asked records "The disk is full." here and the later writes are still tried,
// which leaves as much of the text in the file as the disk took.
class ReportFileBuffer final : public std::streambuf {
public:
    ReportFileBuffer();
    ReportFileBuffer(const ReportFileBuffer&) = delete;
    ReportFileBuffer& operator=(const ReportFileBuffer&) = delete;

    // Creates (or empties) the file; false when it cannot be made.
    bool Open(const std::filesystem::path& path);
    // Writes what is left and closes the file; the first failure of a write, or of the close.
    Common::Error Close();

protected:
    int_type overflow(int_type c) override;
    int sync() override;

private:
    void Flush();
    void Record(int systemError);

    std::filebuf file_;
    std::array<char, 16 * 1024> buffer_{};
    Common::Error error_;
};

}  // namespace SystemReport
