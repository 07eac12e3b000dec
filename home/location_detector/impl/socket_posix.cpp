// Sockets over the POSIX socket interface and getifaddrs.
#include "home/location_detector/impl/socket.h"

#include <arpa/inet.h>
#include <errno.h>
#include <fcntl.h>
#include <ifaddrs.h>
#include <net/if.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstring>
#include <memory>

namespace LocationDetector::Net {
namespace {

[[noreturn]] void ThrowSystem(const wchar_t* what, int code = errno) {
    throw Common::ErrorException(Common::Error::Make(Common::Codes::kUnexpected, what, Common::Error::AddErrno(code)));
}

int Fd(const Socket& socket) { return static_cast<int>(socket.Native()); }

sockaddr_in ToSockaddr(const Endpoint& endpoint) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(endpoint.port);
    std::memcpy(&address.sin_addr, endpoint.address.data(), 4);
    return address;
}

Endpoint FromSockaddr(const sockaddr_in& address) {
    Endpoint endpoint;
    std::memcpy(endpoint.address.data(), &address.sin_addr, 4);
    endpoint.port = ntohs(address.sin_port);
    return endpoint;
}

Socket Open(int type) {
    int fd = ::socket(AF_INET, type | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    if (fd < 0) ThrowSystem(L"Cannot create a socket.");
    return Socket(fd);
}

bool Poll(Socket& socket, short events, std::chrono::milliseconds timeout) {
    pollfd entry{Fd(socket), events, 0};
    int ready = ::poll(&entry, 1, static_cast<int>(timeout.count()));
    if (ready < 0 && errno != EINTR) ThrowSystem(L"Cannot wait for a socket.");
    return ready > 0;
}

Common::Error PendingError(Socket& socket) {
    int code = 0;
    socklen_t size = sizeof code;
    if (::getsockopt(Fd(socket), SOL_SOCKET, SO_ERROR, &code, &size) != 0) code = errno;
    if (code == 0) return {};
    return Common::Error::Make(Common::Codes::kUnexpected, L"Cannot connect.", Common::Error::AddErrno(code));
}

}  // namespace

SocketLayer::SocketLayer() = default;
SocketLayer::~SocketLayer() = default;

void Socket::Close() noexcept {
    if (native_ != -1) ::close(static_cast<int>(native_));
    native_ = -1;
}

Socket OpenUdp() { return Open(SOCK_DGRAM); }
Socket OpenTcp() { return Open(SOCK_STREAM); }

void Bind(Socket& socket, const Endpoint& endpoint) {
    sockaddr_in address = ToSockaddr(endpoint);
    if (::bind(Fd(socket), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0)
        ThrowSystem(L"Cannot bind a socket.");
}

void SetMulticastInterface(Socket& socket, const Ipv4Address& address) {
    in_addr value{};
    std::memcpy(&value, address.data(), 4);
    if (::setsockopt(Fd(socket), IPPROTO_IP, IP_MULTICAST_IF, &value, sizeof value) != 0)
        ThrowSystem(L"Cannot choose the multicast interface.");
}

void SetMulticastTtl(Socket& socket, int ttl) {
    unsigned char value = static_cast<unsigned char>(ttl);
    if (::setsockopt(Fd(socket), IPPROTO_IP, IP_MULTICAST_TTL, &value, sizeof value) != 0)
        ThrowSystem(L"Cannot set the multicast hop limit.");
}

void SendTo(Socket& socket, std::span<const std::uint8_t> bytes, const Endpoint& to) {
    sockaddr_in address = ToSockaddr(to);
    if (::sendto(Fd(socket), bytes.data(), bytes.size(), MSG_NOSIGNAL, reinterpret_cast<const sockaddr*>(&address),
                 sizeof address) < 0)
        ThrowSystem(L"Cannot send a datagram.");
}

std::optional<Datagram> ReceiveFrom(Socket& socket, std::span<std::uint8_t> buffer) {
    sockaddr_in from{};
    socklen_t size = sizeof from;
    ssize_t received = ::recvfrom(Fd(socket), buffer.data(), buffer.size(), 0, reinterpret_cast<sockaddr*>(&from), &size);
    if (received < 0) {
        if (errno == EAGAIN || errno == EWOULDBLOCK || errno == EINTR) return std::nullopt;
        ThrowSystem(L"Cannot receive a datagram.");
    }
    return Datagram{static_cast<std::size_t>(received), FromSockaddr(from)};
}

std::vector<std::size_t> WaitReadable(std::span<const Socket* const> sockets, std::chrono::milliseconds timeout) {
    std::vector<pollfd> entries;
    for (const Socket* socket : sockets) entries.push_back({Fd(*socket), POLLIN, 0});
    std::vector<std::size_t> ready;
    int count = ::poll(entries.data(), entries.size(), static_cast<int>(timeout.count()));
    if (count < 0) {
        if (errno == EINTR) return ready;
        ThrowSystem(L"Cannot wait for a socket.");
    }
    for (std::size_t i = 0; i < entries.size(); ++i) {
        if (entries[i].revents != 0) ready.push_back(i);
    }
    return ready;
}

ConnectState StartConnect(Socket& socket, const Endpoint& to, Common::Error& failure) {
    sockaddr_in address = ToSockaddr(to);
    if (::connect(Fd(socket), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0)
        return ConnectState::Connected;
    if (errno == EINPROGRESS || errno == EINTR) return ConnectState::Pending;
    failure = Common::Error::Make(Common::Codes::kUnexpected, L"Cannot connect.", Common::Error::AddErrno(errno));
    return ConnectState::Failed;
}

ConnectState WaitConnected(Socket& socket, std::chrono::milliseconds timeout, Common::Error& failure) {
    if (!Poll(socket, POLLOUT, timeout)) return ConnectState::Pending;
    failure = PendingError(socket);
    return failure.Failed() ? ConnectState::Failed : ConnectState::Connected;
}

std::size_t Send(Socket& socket, std::span<const std::uint8_t> bytes) {
    ssize_t sent = ::send(Fd(socket), bytes.data(), bytes.size(), MSG_NOSIGNAL);
    if (sent < 0) {
        if (errno == EAGAIN || errno == EWOULDBLOCK || errno == EINTR) return 0;
        ThrowSystem(L"Cannot send.");
    }
    return static_cast<std::size_t>(sent);
}

bool WaitWritable(Socket& socket, std::chrono::milliseconds timeout) { return Poll(socket, POLLOUT, timeout); }

std::optional<std::size_t> Receive(Socket& socket, std::span<std::uint8_t> buffer) {
    ssize_t received = ::recv(Fd(socket), buffer.data(), buffer.size(), 0);
    if (received < 0) {
        if (errno == EAGAIN || errno == EWOULDBLOCK || errno == EINTR) return std::nullopt;
        ThrowSystem(L"Cannot receive.");
    }
    return static_cast<std::size_t>(received);
}

std::vector<NetworkInterface> MulticastInterfaces() {
    ifaddrs* list = nullptr;
    if (::getifaddrs(&list) != 0) ThrowSystem(L"Cannot list the network interfaces.");
    std::unique_ptr<ifaddrs, void (*)(ifaddrs*)> owner(list, &::freeifaddrs);
    std::vector<NetworkInterface> interfaces;
    for (ifaddrs* entry = list; entry; entry = entry->ifa_next) {
        if (!entry->ifa_addr || entry->ifa_addr->sa_family != AF_INET) continue;
        unsigned flags = entry->ifa_flags;
        if (!(flags & IFF_UP) || !(flags & IFF_MULTICAST) || (flags & IFF_LOOPBACK)) continue;
        NetworkInterface found;
        found.name = entry->ifa_name ? entry->ifa_name : "";
        found.address = FromSockaddr(*reinterpret_cast<const sockaddr_in*>(entry->ifa_addr)).address;
        interfaces.push_back(std::move(found));
    }
    return interfaces;
}

}  // namespace LocationDetector::Net
