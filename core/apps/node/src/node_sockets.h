#pragma once
// The sockets of a node: one to be spoken to, and where that hears no broadcasts, others for these.

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <vector>

#include "capture/source.h"

namespace node {

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
    /// Hands over what has come, as come in at the node's address if it has one. @return whether something
    /// had
    bool receive(const std::function<void(const capture::Datagram&)>& take);
    /// Sends from the node's address. False when the system refuses.
    bool send(std::span<const std::uint8_t> bytes, std::uint32_t address, std::uint16_t port) const;
    /// Datagrams that the kernel threw away because nobody fetched them in time.
    [[nodiscard]] std::uint64_t kernel_drops() const;

private:
    std::optional<std::uint32_t> address_;
    /// The first is the one to send from.
    std::vector<std::unique_ptr<capture::Source>> sources_;
};

}  // namespace node
