#pragma once
// A UDP socket for tests, and builders of what is sent through it.

#include <array>
#include <cerrno>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <deque>
#include <optional>
#include <string_view>
#include <system_error>
#include <vector>

#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>

#include "artnet/forwarding_datagram.h"
#include "endpoint.h"
#include "posix/file_descriptor.h"

namespace tests {

using Bytes = std::vector<unsigned char>;

/// A 530-byte ArtDmx packet; all 512 channels at `level`, `mark` in its sequence field.
inline Bytes artdmx(unsigned universe, unsigned char level = 0, unsigned char mark = 0) {
    Bytes packet(artnet::kForwardedPacketSize, level);
    const std::array<unsigned char, 18> header{'A',
                                               'r',
                                               't',
                                               '-',
                                               'N',
                                               'e',
                                               't',
                                               0,
                                               0x00,
                                               0x50,
                                               0,
                                               14,
                                               mark,
                                               0,
                                               static_cast<unsigned char>(universe),
                                               static_cast<unsigned char>(universe >> 8),
                                               2,
                                               0};
    std::memcpy(packet.data(), header.data(), header.size());
    return packet;
}

/// The forwarding datagram of a packet.
inline Bytes datagram(std::string_view ip, int port, const Bytes& packet = artdmx(0)) {
    std::array<unsigned char, artnet::kForwardingHeaderSize> header{};
    artnet::write_forwarding_header(header, 0x7FF0, ip, port);
    Bytes bytes(header.begin(), header.end());
    bytes.insert(bytes.end(), packet.begin(), packet.end());
    return bytes;
}

/// Bound socket that receives with a deadline. Throws std::system_error when it cannot be made.
class UdpPeer {
public:
    static constexpr std::chrono::milliseconds kDeadline = std::chrono::seconds(60);

    /// @param port  0: a free one
    explicit UdpPeer(std::string_view ip = "127.0.0.1", std::uint16_t port = 0, bool reuse = false)
        : socket_(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
        if (reuse) {
            permit_reuse();
        }
        // Room for large bursts; the kernel cuts the wish to its limit.
        const int room = 64 * 1024 * 1024;
        setsockopt(socket_.get(), SOL_SOCKET, SO_RCVBUF, &room, sizeof room);
        setsockopt(socket_.get(), SOL_SOCKET, SO_RCVBUFFORCE, &room, sizeof room);
        sockaddr_in address = forwarder::to_sockaddr({forwarder::parse_address(ip).value(), port});
        socklen_t size = sizeof address;
        if (bind(socket_.get(), reinterpret_cast<sockaddr*>(&address), size) != 0) {
            throw std::system_error(errno, std::generic_category(), "bind");
        }
        getsockname(socket_.get(), reinterpret_cast<sockaddr*>(&address), &size);
        port_ = ntohs(address.sin_port);
    }

    /// From now on others that permit it, too, may bind this address; nobody is given the port by the system.
    void permit_reuse() const {
        const int on = 1;
        setsockopt(socket_.get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    }

    /// From now on it receives from one port of 127.0.0.1 only; to all others nobody is there.
    void hear_only(std::uint16_t port) const {
        const sockaddr_in address = forwarder::to_sockaddr({forwarder::kLoopbackAddress, port});
        if (connect(socket_.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
            throw std::system_error(errno, std::generic_category(), "connect");
        }
    }

    [[nodiscard]] std::uint16_t port() const { return port_; }
    [[nodiscard]] int descriptor() const { return socket_.get(); }

    /// Sends to 127.0.0.1; true when the system took it.
    bool send(std::uint16_t port, const Bytes& bytes) const {
        const sockaddr_in address = forwarder::to_sockaddr({forwarder::kLoopbackAddress, port});
        return sendto(socket_.get(), bytes.data(), bytes.size(), 0,
                      reinterpret_cast<const sockaddr*>(&address),
                      sizeof address) == static_cast<ssize_t>(bytes.size());
    }

    /// The next datagram; nothing when none comes before the deadline.
    [[nodiscard]] std::optional<Bytes> receive(std::chrono::milliseconds deadline = kDeadline) const {
        pollfd wait{socket_.get(), POLLIN, 0};
        if (poll(&wait, 1, static_cast<int>(deadline.count())) != 1) {
            return std::nullopt;
        }
        Bytes bytes(2048);
        const ssize_t size = recv(socket_.get(), bytes.data(), bytes.size(), 0);
        bytes.resize(size < 0 ? 0 : static_cast<std::size_t>(size));
        return bytes;
    }

    /// True when something is there already.
    [[nodiscard]] bool pending() const {
        pollfd wait{socket_.get(), POLLIN, 0};
        return poll(&wait, 1, 0) == 1;
    }

private:
    posix::FileDescriptor socket_;
    std::uint16_t port_ = 0;
};

/**
 * A port that is free on every address, kept so until the process ends.
 *
 * It is held on the wildcard address, so that the system gives it to nobody else meanwhile. Whoever permits
 * reuse, as the forwarder does, binds it all the same, and gets what is sent to its address.
 */
inline std::uint16_t free_port() {
    static std::deque<UdpPeer> holders;
    holders.emplace_back("0.0.0.0").permit_reuse();
    return holders.back().port();
}

/// A port of 127.0.0.1 where datagrams are refused, until somebody who permits reuse binds it. Kept like the
/// others: by a socket that hears nobody.
inline std::uint16_t refusing_port() {
    static std::deque<UdpPeer> holders;
    holders.emplace_back().permit_reuse();
    holders.back().hear_only(holders.back().port());
    return holders.back().port();
}

}  // namespace tests
