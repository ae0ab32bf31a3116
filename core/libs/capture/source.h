#pragma once
// Where datagrams are captured.

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <stdexcept>
#include <string>

#include "capture/batch_reader.h"
#include "capture/endpoint.h"
#include "capture/stamp_clock.h"
#include "posix/file_descriptor.h"

namespace capture {

/// A source cannot be opened, or has failed. The text is for the user.
class SourceError : public std::runtime_error {
public:
    /// @param reason  the system's error number; 0: none
    explicit SourceError(const std::string& text, int reason = 0)
        : std::runtime_error(text), reason_(reason) {}

    [[nodiscard]] int reason() const noexcept { return reason_; }

private:
    int reason_;
};

/// One captured UDP datagram, valid until the next one is read.
struct Datagram {
    /// When the kernel received it, on the clock of Source::now().
    std::chrono::nanoseconds time{0};
    Endpoint sender;
    std::span<const unsigned char> bytes;
    /// Address of this machine at which it came in, of a broadcast the interface's, host byte order; 0 where
    /// it was only watched.
    std::uint32_t own_address = 0;
};

/**
 * A socket that datagrams are captured from, in batches, with the kernel's time stamps and drop counter. One
 * thread.
 */
class Source {
public:
    virtual ~Source() = default;
    Source(const Source&) = delete;
    Source& operator=(const Source&) = delete;

    /// Hands every datagram of the next batch to `take`; returns how many the batch held, 0 when nothing is
    /// there. Does not wait. Throws SourceError when the socket has failed, such as with its interface.
    std::size_t receive(const std::function<void(const Datagram&)>& take);

    /// Readable when there is something; for poll().
    [[nodiscard]] int descriptor() const noexcept { return socket_.get(); }
    /// Datagrams that the kernel threw away for want of room since the source was opened.
    [[nodiscard]] std::uint64_t kernel_drops() const noexcept;
    /// Bytes as the kernel counts them.
    [[nodiscard]] int receive_buffer() const noexcept { return receive_buffer_; }
    /// This moment on the clock of the datagrams' times.
    [[nodiscard]] std::chrono::nanoseconds now() const noexcept { return clock_.now(); }
    /// Where it listens, for people: "0.0.0.0:6454".
    [[nodiscard]] virtual std::string place() const = 0;

protected:
    /// Asks for time stamps and drop counters, and for room. Throws SourceError.
    explicit Source(posix::FileDescriptor socket);

    /// What a message read from the socket says; false when that is nothing for the user.
    [[nodiscard]] virtual bool interpret(const BatchReader::Message& message, Datagram& datagram) const = 0;

private:
    void note_drops(std::uint32_t counter) noexcept;

    posix::FileDescriptor socket_;
    int receive_buffer_ = 0;
    /// The kernel's 32-bit counter, kept on beyond its end.
    std::uint64_t drops_ = 0;
    StampClock clock_;
    std::unique_ptr<BatchReader> reader_;
};

/// A UDP socket that listens on one port.
struct UdpPlace {
    /// Local address to bind, host byte order; 0: all, and broadcasts with them.
    std::uint32_t address = 0;
    /// 0: a free one.
    std::uint16_t port = 6454;
    /// Name of the only interface to listen on; empty: all.
    std::string interface = {};
};

/**
 * Listens beside other programs that permit address reuse. Of those, every one gets the broadcasts, but a
 * unicast datagram goes to one only: the one with the most specific address, of equals the last to bind.
 * Throws SourceError.
 */
[[nodiscard]] std::unique_ptr<Source> open_udp(const UdpPlace& place);

/**
 * Watches the UDP datagrams to one port that pass an interface, in or out, whoever they belong to; needs the
 * right to open packet sockets. On the loopback interface each is seen once. Throws SourceError.
 */
[[nodiscard]] std::unique_ptr<Source> open_packet_socket(const std::string& interface, std::uint16_t port);

}  // namespace capture
