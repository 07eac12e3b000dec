// The output file of a report item that writes text.
#include "products/imager/system_report/report_file.h"

#include <cerrno>

namespace SystemReport {

ReportFileBuffer::ReportFileBuffer() { setp(buffer_.data(), buffer_.data() + buffer_.size()); }

bool ReportFileBuffer::Open(const std::filesystem::path& path) {
    // Unbuffered, so that every flush below is written at once and its count says what the disk took.
    file_.pubsetbuf(nullptr, 0);
    return file_.open(path, std::ios::binary | std::ios::out | std::ios::trunc) != nullptr;
}

Common::Error ReportFileBuffer::Close() {
    Flush();
    if (!file_.close()) Record(0);
    return error_;
}

ReportFileBuffer::int_type ReportFileBuffer::overflow(int_type c) {
    Flush();
    if (!traits_type::eq_int_type(c, traits_type::eof())) {
        *pptr() = traits_type::to_char_type(c);
        pbump(1);
    }
    return traits_type::not_eof(c);
}

int ReportFileBuffer::sync() {
    Flush();
    return 0;
}

void ReportFileBuffer::Flush() {
    std::streamsize pending = pptr() - pbase();
    if (pending > 0) {
        errno = 0;
        if (file_.sputn(pbase(), pending) < pending) Record(errno);
    }
    setp(buffer_.data(), buffer_.data() + buffer_.size());
}

void ReportFileBuffer::Record(int systemError) {
    if (error_.Failed()) return;
    // The facility's file-access code, as the archive's own write failure carries.
    error_ = Common::Error::Make(Common::Codes::kOpenFile, L"The disk is full.",
                                 systemError != 0 ? Common::Error::AddErrno(systemError) : Common::Error());
}

}  // namespace SystemReport
