// The demonstration's receiver: whose port it is, and what arrives.
#include "packet_receiver.h"

#include <cerrno>
#include <deque>
#include <system_error>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "support/before_bind.h"

namespace {

constexpr const char* kIp = "127.0.0.2";

/// A socket that shares its address with whoever shares it, too.
class Rival {
public:
    Rival() = default;
    ~Rival() { close(socket_); }
    Rival(const Rival&) = delete;
    Rival& operator=(const Rival&) = delete;

    /// @param port  0: one that nobody has. Returns the port; 0 when the system refuses.
    std::uint16_t bind_to(const char* ip, std::uint16_t port) const {
        if (port != 0) {
            permit_reuse();
        }
        sockaddr_in address = address_of(ip, port);
        socklen_t size = sizeof address;
        if (bind(socket_, reinterpret_cast<const sockaddr*>(&address), size) != 0 ||
            getsockname(socket_, reinterpret_cast<sockaddr*>(&address), &size) != 0) {
            return 0;
        }
        permit_reuse();
        return ntohs(address.sin_port);
    }
    void connect_to(const char* ip, std::uint16_t port) const {
        const sockaddr_in address = address_of(ip, port);
        ASSERT_EQ(connect(socket_, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    }
    void send_byte(const char* ip, std::uint16_t port) const {
        const sockaddr_in address = address_of(ip, port);
        EXPECT_EQ(sendto(socket_, "x", 1, 0, reinterpret_cast<const sockaddr*>(&address), sizeof address), 1);
    }

private:
    void permit_reuse() const {
        const int on = 1;
        setsockopt(socket_, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    }
    static sockaddr_in address_of(const char* ip, std::uint16_t port) {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(port);
        address.sin_addr.s_addr = inet_addr(ip);
        return address;
    }

    int socket_ = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
};

/// The error of making a receiver; 0 when it was made.
int error_of_receiver(std::uint16_t port) {
    try {
        const demo::PacketReceiver receiver(kIp, port);
        return 0;
    } catch (const std::system_error& error) {
        return error.code().value();
    }
}

/// A port that is held on the wildcard address, so that the system gives it to nobody else.
std::uint16_t free_port() {
    static std::deque<Rival> holders;
    return holders.emplace_back().bind_to("0.0.0.0", 0);
}

TEST(PacketReceiverTest, FreePortIsTakenAndGivenBack) {
    const std::uint16_t port = free_port();
    EXPECT_EQ(error_of_receiver(port), 0);
    EXPECT_EQ(error_of_receiver(port), 0);
}

TEST(PacketReceiverTest, PortOfAnotherSocketIsRefusedAlthoughItSharesItsAddress) {
    const std::uint16_t port = free_port();
    const Rival rival;
    ASSERT_EQ(rival.bind_to(kIp, port), port);
    EXPECT_EQ(error_of_receiver(port), EADDRINUSE);
}

TEST(PacketReceiverTest, SocketThatIsBoundBetweenTheLookAndTheBindKeepsThePort) {
    const std::uint16_t port = free_port();
    const Rival rival;
    tests::before_bind = [&] { EXPECT_EQ(rival.bind_to(kIp, port), port); };
    EXPECT_EQ(error_of_receiver(port), EADDRINUSE);
}

TEST(PacketReceiverTest, WildcardAddressAndSocketsConnectedToThePortAreNoObstacle) {
    const std::uint16_t port = free_port();
    const Rival peer;
    peer.connect_to(kIp, port);
    EXPECT_EQ(error_of_receiver(port), 0);
}

TEST(PacketReceiverTest, WhatArrivesIsAnnouncedAndTaken) {
    const std::uint16_t port = free_port();
    demo::PacketReceiver receiver(kIp, port);
    Rival().send_byte(kIp, port);
    pollfd wait{receiver.descriptor(), POLLIN, 0};
    ASSERT_EQ(poll(&wait, 1, 60'000), 1);
    const auto packets = receiver.take();
    ASSERT_EQ(packets.size(), 1U);
    EXPECT_EQ(packets[0].bytes, (std::vector<std::uint8_t>{'x'}));
    EXPECT_GT(packets[0].time, 0);
    EXPECT_TRUE(receiver.take().empty());
}

}  // namespace
