// The secure-socket library's process-wide set-up. OpenSSL 3 locks internally, so the thread-locking
// callback of older versions has nothing left to do.
#include "products/imager/system_report/exe/secure_sockets.h"

#include <openssl/err.h>
#include <openssl/ssl.h>

#include <mutex>

namespace SystemReport {

void InitializeSecureSockets() {
    static std::once_flag once;
    std::call_once(once, [] {
        OPENSSL_init_ssl(OPENSSL_INIT_LOAD_SSL_STRINGS | OPENSSL_INIT_LOAD_CRYPTO_STRINGS, nullptr);
    });
}

}  // namespace SystemReport
