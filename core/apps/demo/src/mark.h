#pragma once
// Marks: packets that the demo sends itself, to know when all that was sent before has arrived.

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace demo {

/// Content of a mark.
struct Mark {
    /// Every round of marks has its own number.
    std::uint32_t round = 0;
    /// Index of the destination within the round.
    std::uint32_t destination = 0;

    bool operator==(const Mark&) const = default;
};

/// The forwarding datagram that takes `mark` to `ip` and `port`.
[[nodiscard]] std::vector<std::uint8_t> mark_datagram(const Mark& mark, const std::string& ip,
                                                      std::uint16_t port);

/// The mark in an Art-Net packet; none when it is something else.
[[nodiscard]] std::optional<Mark> read_mark(std::span<const std::uint8_t> packet);

/// Hands marks to whoever listens on 127.0.0.1 at `port`.
class MarkSender {
public:
    /// Throws std::system_error when there is no socket to be had.
    explicit MarkSender(std::uint16_t port);
    ~MarkSender();
    MarkSender(const MarkSender&) = delete;
    MarkSender& operator=(const MarkSender&) = delete;

    /// Never blocks; a mark that finds nobody is lost.
    void send(const Mark& mark, const std::string& ip) const;

private:
    std::uint16_t port_;
    int socket_;
};

}  // namespace demo
