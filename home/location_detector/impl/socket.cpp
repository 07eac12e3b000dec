// The parts of the socket handle that are the same on every platform.
#include "home/location_detector/impl/socket.h"

namespace LocationDetector::Net {

Socket& Socket::operator=(Socket&& other) noexcept {
    if (this != &other) {
        Close();
        native_ = other.Release();
    }
    return *this;
}

std::intptr_t Socket::Release() noexcept {
    std::intptr_t native = native_;
    native_ = -1;
    return native;
}

}  // namespace LocationDetector::Net
