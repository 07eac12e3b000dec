// Certificate printing through OpenSSL's memory BIOs.
#include "products/imager/system_report/certificate_text.h"

#include <openssl/bio.h>
#include <openssl/err.h>
#include <openssl/pem.h>
#include <openssl/x509.h>

#include <climits>
#include <memory>

namespace SystemReport {
namespace {

struct BioFree {
    void operator()(BIO* bio) const noexcept { BIO_free(bio); }
};
struct X509Free {
    void operator()(X509* certificate) const noexcept { X509_free(certificate); }
};
using BioPtr = std::unique_ptr<BIO, BioFree>;
using X509Ptr = std::unique_ptr<X509, X509Free>;

Common::Error NoMemory() {
    return Common::Error::Make(Common::Codes::kOpenFile, L"Failed to allocate memory for x509 file");
}

Common::Error NoContents() {
    return Common::Error::Make(Common::Codes::kOpenFile, L"Failed to retrieve certificate contents");
}

}  // namespace

Common::Error PrintCertificate(std::span<const std::uint8_t> bytes, std::string& text) {
    if (bytes.size() > static_cast<std::size_t>(INT_MAX)) return NoContents();
    const int size = static_cast<int>(bytes.size());
    BioPtr input(BIO_new_mem_buf(bytes.data(), size));
    if (!input) return NoMemory();
    X509Ptr certificate(PEM_read_bio_X509(input.get(), nullptr, nullptr, nullptr));
    if (!certificate) {
        const unsigned char* next = bytes.data();
        certificate.reset(d2i_X509(nullptr, &next, size));
    }
    // The failed attempt's reasons stay out of the error queue of later OpenSSL users on this thread.
    ERR_clear_error();
    if (!certificate) return NoContents();

    BioPtr output(BIO_new(BIO_s_mem()));
    if (!output) return NoMemory();
    // Names on one line as "CN = name, O = maker", non-ASCII characters as UTF-8.
    const unsigned long nameFlags = (XN_FLAG_ONELINE & ~ASN1_STRFLGS_ESC_MSB) | ASN1_STRFLGS_UTF8_CONVERT;
    if (X509_print_ex(output.get(), certificate.get(), nameFlags, X509_FLAG_COMPAT) != 1) {
        ERR_clear_error();
        return NoContents();
    }
    char* data = nullptr;
    long length = BIO_get_mem_data(output.get(), &data);
    if (length <= 0 || !data) return NoContents();
    text.clear();
    text.reserve(static_cast<std::size_t>(length) + static_cast<std::size_t>(length) / 32);
    for (long i = 0; i < length; ++i) {
        if (data[i] == '\n' && (i == 0 || data[i - 1] != '\r')) text += '\r';
        text += data[i];
    }
    return {};
}

}  // namespace SystemReport
