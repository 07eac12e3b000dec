// The generic text report item.
#include "products/imager/system_report/text_report.h"

#include <array>
#include <cerrno>
#include <fstream>
#include <streambuf>

#include "core/common/localized.h"
#include "core/common/log.h"
#include "core/common/strings.h"

namespace SystemReport {
namespace {

// The item's output file. Its stream never goes bad, so the producer writes to its end: a write that
// puts fewer bytes into the file than asked records "The disk is full." here and the later writes are
// still tried, which leaves as much of the text in the file as the disk took.
class ReportFileBuffer final : public std::streambuf {
public:
    ReportFileBuffer() { setp(buffer_.data(), buffer_.data() + buffer_.size()); }
    ReportFileBuffer(const ReportFileBuffer&) = delete;
    ReportFileBuffer& operator=(const ReportFileBuffer&) = delete;

    bool Open(const std::filesystem::path& path) {
        // Unbuffered, so that every flush below is written at once and its count says what the disk took.
        file_.pubsetbuf(nullptr, 0);
        return file_.open(path, std::ios::binary | std::ios::out | std::ios::trunc) != nullptr;
    }

    // Writes what is left and closes the file; the first failure of a write, or of the close.
    Common::Error Close() {
        Flush();
        if (!file_.close()) Record(0);
        return error_;
    }

protected:
    int_type overflow(int_type c) override {
        Flush();
        if (!traits_type::eq_int_type(c, traits_type::eof())) {
            *pptr() = traits_type::to_char_type(c);
            pbump(1);
        }
        return traits_type::not_eof(c);
    }

    int sync() override {
        Flush();
        return 0;
    }

private:
    void Flush() {
        std::streamsize pending = pptr() - pbase();
        if (pending > 0) {
            errno = 0;
            if (file_.sputn(pbase(), pending) < pending) Record(errno);
        }
        setp(buffer_.data(), buffer_.data() + buffer_.size());
    }

    void Record(int systemError) {
        if (error_.Failed()) return;
        // The facility's file-access code, as the archive's own write failure carries.
        error_ = Common::Error::Make(Common::Codes::kOpenFile, L"The disk is full.",
                                     systemError != 0 ? Common::Error::AddErrno(systemError) : Common::Error());
    }

    std::filebuf file_;
    std::array<char, 16 * 1024> buffer_{};
    Common::Error error_;
};

}  // namespace

TextReport::TextReport(std::wstring title, std::wstring fileName, TextProducer producer)
    : title_(std::move(title)), fileName_(std::move(fileName)), producer_(std::move(producer)) {}

Common::Error TextReport::Create(const std::filesystem::path& folder, FileEntries& entries) {
    std::filesystem::path path = folder / fileName_;
    ReportFileBuffer file;
    if (!file.Open(path)) {
        producer_(nullptr);
        Common::Log::Error(L"Cannot create '" + path.wstring() + L"' for the " + title_ + L".");
        return Common::Error::Make(Common::Codes::kCreateFile, Common::Localized(L"Error occurred while creating the file."));
    }
    std::ostream out(&file);
    Common::Error error = Common::CatchErrors([&] { return producer_(&out); });
    Common::Error written = file.Close();
    // A partial text is worth more than none: the file is archived whatever the producer or the disk did.
    entries.push_back({path, fileName_, Common::Localized(title_), nullptr, false, false});
    if (written.Failed()) {
        Common::Log::Error(L"'" + path.wstring() + L"' for the " + title_ + L" holds only part of its text.");
        if (error.Failed()) Common::Log::WriteError(Common::Log::kWarning, "Its producer failed as well: ", error);
        return written;
    }
    return error;
}

}  // namespace SystemReport
