#pragma once
// A bound UDP socket on 127.0.0.1 with the largest receive buffer the system allows.

#include <atomic>
#include <cstdint>
#include <optional>
#include <string>

#include <sys/socket.h>
#include <sys/types.h>

#include "posix/file_descriptor.h"

namespace forwarder {

/// True when `table`, the text of /proc/net/udp, lists a socket bound to exactly 127.0.0.1 and `port` whose
/// inode is not `own`. Several lines about one socket, as a table has that changes while it is read, do no
/// harm.
[[nodiscard]] bool is_bound_on_loopback(const std::string& table, std::uint16_t port, ino_t own);

/// What to do about a receive buffer of `bytes` (as the kernel reports it); empty when a burst of 2,000 fits.
[[nodiscard]] std::string receive_buffer_advice(int bytes);

/**
 * One listening socket. The send thread reads from it and notes the kernel's drops; any thread may ask for
 * them.
 */
class ReceiveSocket {
public:
    /// Why a socket could not be opened.
    struct Failure {
        bool port_in_use = false;
        std::string message;
    };

    ReceiveSocket() = default;
    ReceiveSocket(const ReceiveSocket&) = delete;
    ReceiveSocket& operator=(const ReceiveSocket&) = delete;

    /// Creates, configures and binds; nothing on success. Called once, before any thread uses the socket.
    [[nodiscard]] std::optional<Failure> open(std::uint16_t port);

    [[nodiscard]] int descriptor() const noexcept { return socket_.get(); }
    [[nodiscard]] std::uint16_t port() const noexcept { return port_; }
    /// Bytes as the kernel counts them, its own overhead per datagram included.
    [[nodiscard]] int receive_buffer() const noexcept { return receive_buffer_; }

    /// Shuts the socket for what arrives from now on; what it holds can still be read. The kernel counts the
    /// refused as dropped. Send thread.
    void refuse_more() noexcept;
    /// Takes in the drop counter that the kernel attaches to a received message, if it did. Send thread.
    void note_drops(msghdr& message) noexcept;
    void note_received(std::uint64_t count) noexcept {
        received_.fetch_add(count, std::memory_order_relaxed);
    }

    /// Datagrams read from the socket. Any thread.
    [[nodiscard]] std::uint64_t received() const noexcept {
        return received_.load(std::memory_order_relaxed);
    }
    /// Datagrams that the kernel threw away since the socket was opened. Any thread.
    [[nodiscard]] std::uint64_t kernel_drops() const noexcept;

private:
    posix::FileDescriptor socket_;
    std::uint16_t port_ = 0;
    int receive_buffer_ = 0;
    /// Written by the send thread, read by any.
    std::atomic<std::uint64_t> received_{0};
    /// Its low 32 bits are the kernel's last known counter. Written by the send thread, read by any.
    std::atomic<std::uint64_t> drops_{0};
};

}  // namespace forwarder
