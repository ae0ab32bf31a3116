#pragma once
// The sockets of a node: one to be spoken to, and where that hears no broadcasts, others for these.

#include <array>
#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <vector>

#include "posix/file_descriptor.h"
#include "universe_statistics.h"

namespace node {

/// A datagram that has come; the bytes are valid during the call only.
struct Datagram {
    std::span<const std::uint8_t> bytes;
    Arrival arrival{0};
    /// Host byte order, as the address below.
    std::uint32_t sender_address = 0;
    std::uint16_t sender_port = 0;
    /// Address of this machine at which it came in; of a broadcast: the interface's.
    std::uint32_t own_address = 0;
};

/**
 * Bound with address reuse, so that several nodes with addresses of their own can run on one machine, each of
 * which hears the broadcasts, too.
 */
class NodeSockets {
public:
    /// @param address  of the node, host byte order; nothing: any of this machine's
    /// Throws cli::Failure when it cannot be had.
    NodeSockets(std::optional<std::uint32_t> address, std::uint16_t port);

    /// To be waited for.
    [[nodiscard]] std::vector<int> descriptors() const;
    /// Hands over what has come. @return whether something had
    bool receive(const std::function<void(const Datagram&)>& take);
    /// Sends from the node's address. False when the system refuses.
    bool send(std::span<const std::uint8_t> bytes, std::uint32_t address, std::uint16_t port) const;
    /// Datagrams that the kernel threw away because nobody fetched them in time.
    [[nodiscard]] std::uint64_t kernel_drops() const;

private:
    bool receive_one(int descriptor, const std::function<void(const Datagram&)>& take);

    std::optional<std::uint32_t> address_;
    /// The first is the one to send from.
    std::vector<posix::FileDescriptor> sockets_;
    std::array<std::uint8_t, 2048> buffer_{};
};

}  // namespace node
