#pragma once
// The socket that asks nodes and hears their replies.

#include <array>
#include <cstdint>
#include <optional>
#include <span>

#include "posix/file_descriptor.h"

namespace netsurvey {

/**
 * A UDP socket on the wildcard address, which it shares with other Art-Net programs.
 *
 * Replies come as broadcasts or to the address that the poll came from, always to the Art-Net port, so no
 * other port and no narrower address would do. The kernel passes on nothing but replies: on a network full of
 * ArtDmx nobody is woken.
 */
class SurveySocket {
public:
    /// @param port  6454; 0 for any, which only a test can use. Throws cli::Failure when it cannot be had.
    explicit SurveySocket(std::uint16_t port);

    [[nodiscard]] int descriptor() const noexcept { return socket_.get(); }
    [[nodiscard]] std::uint16_t port() const noexcept { return port_; }

    /// Sends an ArtPoll to its own port of that address, host byte order; 0, or the number of the error.
    [[nodiscard]] int send_poll(std::uint32_t address) const noexcept;

    /// A datagram that has come; its bytes are valid until the next call.
    struct Received {
        std::span<const std::uint8_t> bytes;
        /// Host byte order.
        std::uint32_t sender = 0;
    };
    /// Nothing when none is left.
    [[nodiscard]] std::optional<Received> receive() noexcept;

private:
    posix::FileDescriptor socket_;
    std::uint16_t port_ = 0;
    std::array<std::uint8_t, 1024> buffer_{};
};

}  // namespace netsurvey
