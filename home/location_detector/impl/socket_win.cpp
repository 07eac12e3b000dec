// Sockets over Winsock 2.2 and the IP helper's adapter list.
#include "home/location_detector/impl/socket.h"

#include "core/common/windows_api.h"

#include <winsock2.h>
#include <ws2tcpip.h>
#include <iphlpapi.h>

#include <cstring>

#include "core/common/strings.h"

namespace LocationDetector::Net {
namespace {

[[noreturn]] void ThrowSystem(const wchar_t* what, int code = WSAGetLastError()) {
    throw Common::ErrorException(Common::Error::Make(Common::Codes::kUnexpected, what,
                                                     Common::Error::AddWindowsError(static_cast<std::uint32_t>(code))));
}

SOCKET Handle(const Socket& socket) { return static_cast<SOCKET>(socket.Native()); }

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

Socket Open(int type, int protocol) {
    SOCKET handle = ::socket(AF_INET, type, protocol);
    if (handle == INVALID_SOCKET) ThrowSystem(L"Cannot create a socket.");
    Socket socket(static_cast<std::intptr_t>(handle));
    u_long nonBlocking = 1;
    if (::ioctlsocket(handle, FIONBIO, &nonBlocking) != 0) ThrowSystem(L"Cannot make a socket non-blocking.");
    return socket;
}

timeval ToTimeval(std::chrono::milliseconds timeout) {
    timeval value{};
    value.tv_sec = static_cast<long>(timeout.count() / 1000);
    value.tv_usec = static_cast<long>(timeout.count() % 1000 * 1000);
    return value;
}

bool WouldBlock(int code) { return code == WSAEWOULDBLOCK || code == WSAEINPROGRESS || code == WSAEINTR; }

Common::Error ConnectFailure(int code) {
    return Common::Error::Make(Common::Codes::kUnexpected, L"Cannot connect.",
                               Common::Error::AddWindowsError(static_cast<std::uint32_t>(code)));
}

}  // namespace

SocketLayer::SocketLayer() {
    WSADATA data{};
    int code = ::WSAStartup(MAKEWORD(2, 2), &data);
    if (code != 0) {
        error_ = Common::Error::Make(Common::Codes::kUnexpected, L"Cannot start Winsock 2.2.",
                                     Common::Error::AddWindowsError(static_cast<std::uint32_t>(code)));
    }
}

SocketLayer::~SocketLayer() {
    if (Started()) ::WSACleanup();
}

void Socket::Close() noexcept {
    if (native_ != -1) ::closesocket(static_cast<SOCKET>(native_));
    native_ = -1;
}

Socket OpenUdp() { return Open(SOCK_DGRAM, IPPROTO_UDP); }
Socket OpenTcp() { return Open(SOCK_STREAM, IPPROTO_TCP); }

void Bind(Socket& socket, const Endpoint& endpoint) {
    sockaddr_in address = ToSockaddr(endpoint);
    if (::bind(Handle(socket), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0)
        ThrowSystem(L"Cannot bind a socket.");
}

void SetMulticastInterface(Socket& socket, const Ipv4Address& address) {
    in_addr value{};
    std::memcpy(&value, address.data(), 4);
    if (::setsockopt(Handle(socket), IPPROTO_IP, IP_MULTICAST_IF, reinterpret_cast<const char*>(&value),
                     sizeof value) != 0)
        ThrowSystem(L"Cannot choose the multicast interface.");
}

void SetMulticastTtl(Socket& socket, int ttl) {
    DWORD value = static_cast<DWORD>(ttl);
    if (::setsockopt(Handle(socket), IPPROTO_IP, IP_MULTICAST_TTL, reinterpret_cast<const char*>(&value),
                     sizeof value) != 0)
        ThrowSystem(L"Cannot set the multicast hop limit.");
}

void SendTo(Socket& socket, std::span<const std::uint8_t> bytes, const Endpoint& to) {
    sockaddr_in address = ToSockaddr(to);
    if (::sendto(Handle(socket), reinterpret_cast<const char*>(bytes.data()), static_cast<int>(bytes.size()), 0,
                 reinterpret_cast<const sockaddr*>(&address), sizeof address) == SOCKET_ERROR)
        ThrowSystem(L"Cannot send a datagram.");
}

std::optional<Datagram> ReceiveFrom(Socket& socket, std::span<std::uint8_t> buffer) {
    sockaddr_in from{};
    int size = sizeof from;
    int received = ::recvfrom(Handle(socket), reinterpret_cast<char*>(buffer.data()), static_cast<int>(buffer.size()),
                              0, reinterpret_cast<sockaddr*>(&from), &size);
    if (received == SOCKET_ERROR) {
        int code = WSAGetLastError();
        // A datagram larger than the buffer is cut, as on POSIX; an ICMP "port unreachable" for an
        // earlier datagram of ours is no reason to stop listening.
        if (code == WSAEMSGSIZE) return Datagram{buffer.size(), FromSockaddr(from)};
        if (WouldBlock(code) || code == WSAECONNRESET) return std::nullopt;
        ThrowSystem(L"Cannot receive a datagram.", code);
    }
    return Datagram{static_cast<std::size_t>(received), FromSockaddr(from)};
}

std::vector<std::size_t> WaitReadable(std::span<const Socket* const> sockets, std::chrono::milliseconds timeout) {
    std::vector<std::size_t> ready;
    // select() is limited to FD_SETSIZE (64) sockets; the detectors open one per interface.
    fd_set readable;
    FD_ZERO(&readable);
    for (const Socket* socket : sockets) {
        if (readable.fd_count < FD_SETSIZE) FD_SET(Handle(*socket), &readable);
    }
    if (readable.fd_count == 0) {
        ::Sleep(static_cast<DWORD>(timeout.count()));
        return ready;
    }
    timeval wait = ToTimeval(timeout);
    int count = ::select(0, &readable, nullptr, nullptr, &wait);
    if (count == SOCKET_ERROR) ThrowSystem(L"Cannot wait for a socket.");
    for (std::size_t i = 0; i < sockets.size(); ++i) {
        if (FD_ISSET(Handle(*sockets[i]), &readable)) ready.push_back(i);
    }
    return ready;
}

ConnectState StartConnect(Socket& socket, const Endpoint& to, Common::Error& failure) {
    sockaddr_in address = ToSockaddr(to);
    if (::connect(Handle(socket), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0)
        return ConnectState::Connected;
    int code = WSAGetLastError();
    if (WouldBlock(code)) return ConnectState::Pending;
    failure = ConnectFailure(code);
    return ConnectState::Failed;
}

ConnectState WaitConnected(Socket& socket, std::chrono::milliseconds timeout, Common::Error& failure) {
    // Winsock reports a failed connection attempt in the exception set, not the write set.
    fd_set writable, failed;
    FD_ZERO(&writable);
    FD_ZERO(&failed);
    FD_SET(Handle(socket), &writable);
    FD_SET(Handle(socket), &failed);
    timeval wait = ToTimeval(timeout);
    int count = ::select(0, nullptr, &writable, &failed, &wait);
    if (count == SOCKET_ERROR) ThrowSystem(L"Cannot wait for a socket.");
    if (count == 0) return ConnectState::Pending;
    if (FD_ISSET(Handle(socket), &failed)) {
        int code = 0;
        int size = sizeof code;
        ::getsockopt(Handle(socket), SOL_SOCKET, SO_ERROR, reinterpret_cast<char*>(&code), &size);
        failure = ConnectFailure(code == 0 ? WSAECONNREFUSED : code);
        return ConnectState::Failed;
    }
    return ConnectState::Connected;
}

std::size_t Send(Socket& socket, std::span<const std::uint8_t> bytes) {
    int sent = ::send(Handle(socket), reinterpret_cast<const char*>(bytes.data()), static_cast<int>(bytes.size()), 0);
    if (sent == SOCKET_ERROR) {
        int code = WSAGetLastError();
        if (WouldBlock(code)) return 0;
        ThrowSystem(L"Cannot send.", code);
    }
    return static_cast<std::size_t>(sent);
}

bool WaitWritable(Socket& socket, std::chrono::milliseconds timeout) {
    fd_set writable;
    FD_ZERO(&writable);
    FD_SET(Handle(socket), &writable);
    timeval wait = ToTimeval(timeout);
    int count = ::select(0, nullptr, &writable, nullptr, &wait);
    if (count == SOCKET_ERROR) ThrowSystem(L"Cannot wait for a socket.");
    return count > 0;
}

std::optional<std::size_t> Receive(Socket& socket, std::span<std::uint8_t> buffer) {
    int received = ::recv(Handle(socket), reinterpret_cast<char*>(buffer.data()), static_cast<int>(buffer.size()), 0);
    if (received == SOCKET_ERROR) {
        int code = WSAGetLastError();
        if (WouldBlock(code)) return std::nullopt;
        ThrowSystem(L"Cannot receive.", code);
    }
    return static_cast<std::size_t>(received);
}

std::vector<NetworkInterface> MulticastInterfaces() {
    const ULONG flags = GAA_FLAG_SKIP_ANYCAST | GAA_FLAG_SKIP_MULTICAST | GAA_FLAG_SKIP_DNS_SERVER;
    ULONG size = 16 * 1024;
    std::vector<std::uint8_t> buffer;
    ULONG result = ERROR_BUFFER_OVERFLOW;
    // The list may grow between the two calls; a few attempts settle it.
    for (int attempt = 0; attempt < 4 && result == ERROR_BUFFER_OVERFLOW; ++attempt) {
        buffer.resize(size);
        result = ::GetAdaptersAddresses(AF_INET, flags, nullptr,
                                        reinterpret_cast<IP_ADAPTER_ADDRESSES*>(buffer.data()), &size);
    }
    std::vector<NetworkInterface> interfaces;
    if (result == ERROR_NO_DATA) return interfaces;
    if (result != NO_ERROR) {
        throw Common::ErrorException(Common::Error::Make(Common::Codes::kUnexpected,
                                                         L"Cannot list the network interfaces.",
                                                         Common::Error::AddWindowsError(result)));
    }
    for (auto* adapter = reinterpret_cast<IP_ADAPTER_ADDRESSES*>(buffer.data()); adapter; adapter = adapter->Next) {
        if (adapter->OperStatus != IfOperStatusUp || adapter->IfType == IF_TYPE_SOFTWARE_LOOPBACK ||
            (adapter->Flags & IP_ADAPTER_NO_MULTICAST))
            continue;
        for (auto* unicast = adapter->FirstUnicastAddress; unicast; unicast = unicast->Next) {
            const SOCKADDR* address = unicast->Address.lpSockaddr;
            if (!address || address->sa_family != AF_INET) continue;
            NetworkInterface found;
            found.name = Common::WideToUtf8(adapter->FriendlyName ? adapter->FriendlyName : L"");
            found.address = FromSockaddr(*reinterpret_cast<const sockaddr_in*>(address)).address;
            interfaces.push_back(std::move(found));
        }
    }
    return interfaces;
}

}  // namespace LocationDetector::Net
