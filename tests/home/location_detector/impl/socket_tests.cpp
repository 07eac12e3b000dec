// The socket layer over loopback only: a datagram round trip and a refused connection.
#include "home/location_detector/impl/socket.h"

#include <gtest/gtest.h>

namespace {

using namespace LocationDetector;
using namespace std::chrono_literals;

const Ipv4Address kLoopback{127, 0, 0, 1};

std::optional<Net::Datagram> Await(Net::Socket& socket, std::span<std::uint8_t> buffer) {
    const Net::Socket* sockets[] = {&socket};
    for (int i = 0; i < 50; ++i) {
        if (!Net::WaitReadable(sockets, 100ms).empty()) return Net::ReceiveFrom(socket, buffer);
    }
    return std::nullopt;
}

TEST(SocketTest, DatagramsTravelOverLoopbackBothWays) {
    Net::SocketLayer layer;
    ASSERT_TRUE(layer.Started()) << layer.StartError().ToString();
    // The server side needs a known port; any free one of the dynamic range will do.
    Net::Socket server = Net::OpenUdp();
    std::uint16_t port = 0;
    for (std::uint16_t candidate = 49731; candidate < 49831 && port == 0; ++candidate) {
        if (Common::CatchErrors([&] { Net::Bind(server, {kLoopback, candidate}); }).Succeeded()) port = candidate;
    }
    ASSERT_NE(port, 0);
    Net::Socket client = Net::OpenUdp();
    Net::Bind(client, {kLoopback, 0});

    std::uint8_t buffer[4];
    EXPECT_FALSE(Net::ReceiveFrom(client, buffer)) << "nothing is waiting yet";
    const std::uint8_t question[] = {'p', 'i', 'n', 'g', '!', '!'};
    Net::SendTo(client, question, {kLoopback, port});
    std::optional<Net::Datagram> received = Await(server, buffer);
    ASSERT_TRUE(received);
    EXPECT_EQ(received->size, 4u) << "a datagram is cut to the buffer";
    EXPECT_EQ(FormatIpv4(received->from.address), "127.0.0.1");
    EXPECT_NE(received->from.port, 0);

    const std::uint8_t answer[] = {'p', 'o', 'n', 'g'};
    Net::SendTo(server, answer, received->from);
    std::optional<Net::Datagram> back = Await(client, buffer);
    ASSERT_TRUE(back);
    EXPECT_EQ(back->from.port, port);
    EXPECT_EQ(std::string(buffer, buffer + back->size), "pong");
}

TEST(SocketTest, AConnectionToAClosedPortFails) {
    Net::SocketLayer layer;
    // Nothing serves TCP port 1 (tcpmux) on a test machine.
    Net::Socket socket = Net::OpenTcp();
    Common::Error failure;
    Net::ConnectState state = Net::StartConnect(socket, {kLoopback, 1}, failure);
    auto deadline = std::chrono::steady_clock::now() + 5s;
    while (state == Net::ConnectState::Pending && std::chrono::steady_clock::now() < deadline)
        state = Net::WaitConnected(socket, 100ms, failure);
    EXPECT_EQ(state, Net::ConnectState::Failed);
    EXPECT_TRUE(failure.Failed());
}

}  // namespace
