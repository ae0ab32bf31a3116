#pragma once
// Sends Art-Net from a port of its own on the loopback interface, and hears what it is sent. For tests.

#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstring>
#include <ctime>
#include <system_error>
#include <vector>

#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>

#include "artnet/recording_writer.h"
#include "posix/file_descriptor.h"

namespace tests {

/// A complete ArtDmx packet.
inline std::vector<std::uint8_t> dmx_packet(std::uint16_t universe, const std::vector<std::uint8_t>& levels,
                                            std::uint8_t sequence = 0) {
    std::vector<std::uint8_t> bytes;
    append_artdmx(bytes, universe, levels, sequence);
    return bytes;
}

inline std::vector<std::uint8_t> sync_packet() {
    std::vector<std::uint8_t> bytes;
    append_artsync(bytes);
    return bytes;
}

/// Throws std::system_error when there is no socket to be had.
class ArtNetSender {
public:
    static constexpr std::uint32_t kLoopback = 0x7F000001;
    static constexpr std::uint32_t kLoopbackBroadcast = 0x7FFFFFFF;

    /// @param address  host byte order, within 127.0.0.0/8; 0: all
    /// @param port     0: a free one
    explicit ArtNetSender(std::uint32_t address = kLoopback, std::uint16_t port = 0)
        : socket_(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
        const int on = 1;
        setsockopt(socket_.get(), SOL_SOCKET, SO_BROADCAST, &on, sizeof on);
        setsockopt(socket_.get(), SOL_SOCKET, SO_TIMESTAMPNS, &on, sizeof on);
        // The system gives a free port to nobody else only as long as its owner does not permit reuse.
        if (port != 0) {
            setsockopt(socket_.get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
        }
        sockaddr_in own = address_of(address, port);
        socklen_t size = sizeof own;
        if (bind(socket_.get(), reinterpret_cast<sockaddr*>(&own), size) != 0) {
            throw std::system_error(errno, std::generic_category(), "bind");
        }
        setsockopt(socket_.get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
        getsockname(socket_.get(), reinterpret_cast<sockaddr*>(&own), &size);
        port_ = ntohs(own.sin_port);
    }

    [[nodiscard]] std::uint16_t port() const { return port_; }

    /// Sends to a port of the loopback interface; throws what goes wrong.
    void send(std::uint16_t port, const std::vector<std::uint8_t>& bytes,
              std::uint32_t address = kLoopback) const {
        const sockaddr_in to = address_of(address, port);
        if (sendto(socket_.get(), bytes.data(), bytes.size(), 0, reinterpret_cast<const sockaddr*>(&to),
                   sizeof to) != static_cast<ssize_t>(bytes.size())) {
            throw std::system_error(errno, std::generic_category(), "sendto");
        }
    }

    /// The kernel's stamp of the next datagram on the wall clock; 0 when none comes within a minute.
    [[nodiscard]] std::chrono::nanoseconds receive_stamp() const {
        pollfd wait{socket_.get(), POLLIN, 0};
        if (poll(&wait, 1, 60'000) != 1) {
            return {};
        }
        unsigned char bytes[2048];
        alignas(cmsghdr) unsigned char control[CMSG_SPACE(sizeof(timespec))];
        iovec part{bytes, sizeof bytes};
        msghdr message{};
        message.msg_iov = &part;
        message.msg_iovlen = 1;
        message.msg_control = control;
        message.msg_controllen = sizeof control;
        timespec time{};
        if (recvmsg(socket_.get(), &message, 0) >= 0) {
            if (const cmsghdr* const stamp = CMSG_FIRSTHDR(&message); stamp != nullptr) {
                std::memcpy(&time, CMSG_DATA(stamp), sizeof time);
            }
        }
        return std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec);
    }

private:
    static sockaddr_in address_of(std::uint32_t address, std::uint16_t port) {
        sockaddr_in result{};
        result.sin_family = AF_INET;
        result.sin_addr.s_addr = htonl(address);
        result.sin_port = htons(port);
        return result;
    }

    posix::FileDescriptor socket_;
    std::uint16_t port_ = 0;
};

}  // namespace tests
