// The printed form of an X.509 certificate, as OpenSSL prints it.
#pragma once

#include <cstdint>
#include <span>
#include <string>

#include "core/common/error.h"

namespace SystemReport {

// Reads one certificate from `bytes` (PEM, else DER) and prints it with X509_print_ex, lines ended by
// CR LF. Fails with "Failed to allocate memory for x509 file" when OpenSSL cannot make its objects and
// with "Failed to retrieve certificate contents" when the bytes hold no certificate or it cannot be printed.
Common::Error PrintCertificate(std::span<const std::uint8_t> bytes, std::string& text);

}  // namespace SystemReport
