// Sockets of the location detectors: the socket layer's start-up, a move-only socket handle, and the
// non-blocking operations that the detectors build their bounded waits on.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "core/common/error.h"
#include "home/location_detector/impl/utils.h"

namespace LocationDetector::Net {

// Holds the platform's socket layer open (Winsock 2.2 through WSAStartup; nothing elsewhere). A failed
// start-up is kept, not thrown: the detectors log it and go on finding nothing.
class SocketLayer {
public:
    SocketLayer();
    ~SocketLayer();
    SocketLayer(const SocketLayer&) = delete;
    SocketLayer& operator=(const SocketLayer&) = delete;

    bool Started() const { return error_.Succeeded(); }
    const Common::Error& StartError() const { return error_; }

private:
    Common::Error error_;
};

// The platform's socket handle, held as an integer wide enough for a SOCKET or a file descriptor; -1 is
// none (INVALID_SOCKET converts to it as well).
class Socket {
public:
    Socket() = default;
    explicit Socket(std::intptr_t native) : native_(native) {}
    Socket(Socket&& other) noexcept : native_(other.Release()) {}
    Socket& operator=(Socket&& other) noexcept;
    Socket(const Socket&) = delete;
    Socket& operator=(const Socket&) = delete;
    ~Socket() { Close(); }

    bool Valid() const { return native_ != -1; }
    std::intptr_t Native() const { return native_; }
    std::intptr_t Release() noexcept;
    void Close() noexcept;

private:
    std::intptr_t native_ = -1;
};

struct Endpoint {
    Ipv4Address address{};
    std::uint16_t port = 0;
};

struct Datagram {
    std::size_t size = 0;
    Endpoint from;
};

// Every function below throws Common::ErrorException with the system's error when the system refuses.
// Sockets are made non-blocking, so no call waits except the Wait functions, and those at most `timeout`.
Socket OpenUdp();
Socket OpenTcp();
void Bind(Socket& socket, const Endpoint& endpoint);
// Multicast leaves through the interface that holds `address`, with the given hop limit.
void SetMulticastInterface(Socket& socket, const Ipv4Address& address);
void SetMulticastTtl(Socket& socket, int ttl);
void SendTo(Socket& socket, std::span<const std::uint8_t> bytes, const Endpoint& to);
// Empty when nothing is waiting. A datagram larger than `buffer` is cut to its size.
std::optional<Datagram> ReceiveFrom(Socket& socket, std::span<std::uint8_t> buffer);

// Indices of the sockets that have something to read; empty after `timeout`.
std::vector<std::size_t> WaitReadable(std::span<const Socket* const> sockets, std::chrono::milliseconds timeout);

// Begins a connection; Connected or Failed may come at once, else Pending until WaitConnected settles it.
enum class ConnectState { Connected, Pending, Failed };
ConnectState StartConnect(Socket& socket, const Endpoint& to, Common::Error& failure);
ConnectState WaitConnected(Socket& socket, std::chrono::milliseconds timeout, Common::Error& failure);
// Bytes taken by the system; 0 when its buffer is full.
std::size_t Send(Socket& socket, std::span<const std::uint8_t> bytes);
bool WaitWritable(Socket& socket, std::chrono::milliseconds timeout);
// Bytes read; 0 when the peer closed the connection; empty when nothing is waiting.
std::optional<std::size_t> Receive(Socket& socket, std::span<std::uint8_t> buffer);

// An IPv4 interface that is up, is not a loopback interface and can send multicast.
struct NetworkInterface {
    std::string name;
    Ipv4Address address{};
};
std::vector<NetworkInterface> MulticastInterfaces();

}  // namespace LocationDetector::Net
