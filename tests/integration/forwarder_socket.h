#pragma once
// The test's end of the wire: receives what the service hands to the local forwarder.

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "started_program.h"

namespace integration {

/// One received datagram, of 554 bytes if all is well.
struct Frame {
    std::vector<std::uint8_t> bytes;
    /// When the test read it, so never before it was sent.
    std::chrono::steady_clock::time_point arrival;

    [[nodiscard]] std::uint32_t manufacturer() const { return little_endian(0); }
    /// The destination's text up to its first NUL.
    [[nodiscard]] std::string ip() const;
    [[nodiscard]] int port() const { return static_cast<int>(little_endian(20)); }
    [[nodiscard]] int universe() const { return byte(38) | byte(39) << 8; }
    /// The length field of the ArtDmx header.
    [[nodiscard]] int length() const { return byte(40) << 8 | byte(41); }
    [[nodiscard]] int level(int channel) const { return byte(42 + static_cast<std::size_t>(channel)); }
    /// The first `count` channels.
    [[nodiscard]] std::vector<int> levels(int count) const;

private:
    [[nodiscard]] int byte(std::size_t offset) const { return bytes.at(offset); }
    [[nodiscard]] std::uint32_t little_endian(std::size_t offset) const;
};

/**
 * A socket on 127.0.0.1 where the service delivers. Used by the test's thread only.
 */
class ForwarderSocket {
public:
    /// Any free port below 32768: from there on destinations of one port share their frames. It stays taken
    /// until the process ends, so that no other test gets what a service still sends there while it is being
    /// ended.
    ForwarderSocket();
    explicit ForwarderSocket(int port);
    ForwarderSocket(const ForwarderSocket&) = delete;
    ForwarderSocket& operator=(const ForwarderSocket&) = delete;
    ~ForwarderSocket();

    /// False when the port was taken.
    [[nodiscard]] bool bound() const { return port_ != 0; }
    [[nodiscard]] int port() const { return port_; }
    /// An output string of an effect that leads here; the address is only written into the header.
    [[nodiscard]] std::string output(const std::string& universe, const std::string& ip = "192.0.2.1") const;

    /// The next datagram, nothing at the deadline.
    [[nodiscard]] std::optional<Frame> receive(std::chrono::milliseconds deadline = kDeadline);
    /// The next datagram. Without one the test fails, and a frame of zeros is returned.
    [[nodiscard]] Frame next();
    /// The next datagrams, in order.
    [[nodiscard]] std::vector<Frame> next(int count);
    /// Skips datagrams up to one that satisfies `wanted`, which is returned. The test fails without one.
    Frame next_where(const std::function<bool(const Frame&)>& wanted);
    /// All that has arrived already.
    std::vector<Frame> arrived();

private:
    int descriptor_ = -1;
    /// The test has chosen the port, and may want it again.
    bool chosen_ = false;
    int port_ = 0;
};

}  // namespace integration
