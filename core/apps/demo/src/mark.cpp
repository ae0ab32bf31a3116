#include "mark.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <system_error>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include "artnet/forwarding_datagram.h"

namespace demo {

namespace {

/// Art-Net 4's diagnostics packet: nothing that a recording holds.
constexpr std::array<std::uint8_t, 10> kFront{'A', 'r', 't', '-', 'N', 'e', 't', 0, 0x00, 0x23};
constexpr std::array<std::uint8_t, 4> kSignature{'m', 'a', 'r', 'k'};
constexpr std::size_t kSignatureAt = kFront.size();
constexpr std::size_t kNumbersAt = kSignatureAt + kSignature.size();

}  // namespace

std::vector<std::uint8_t> mark_datagram(const Mark& mark, const std::string& ip, std::uint16_t port) {
    std::vector<std::uint8_t> datagram(artnet::kForwardingDatagramSize);
    const std::span all(datagram);
    artnet::write_forwarding_header(all.first<artnet::kForwardingHeaderSize>(), 0, ip, port);
    const auto packet = all.subspan<artnet::kForwardingHeaderSize>();
    std::ranges::copy(kFront, packet.begin());
    std::ranges::copy(kSignature, packet.begin() + kSignatureAt);
    std::memcpy(packet.data() + kNumbersAt, &mark.round, sizeof mark.round);
    std::memcpy(packet.data() + kNumbersAt + sizeof mark.round, &mark.destination, sizeof mark.destination);
    return datagram;
}

std::optional<Mark> read_mark(std::span<const std::uint8_t> packet) {
    Mark mark;
    if (packet.size() < kNumbersAt + 2 * sizeof mark.round ||
        !std::ranges::equal(packet.first(kFront.size()), kFront) ||
        !std::ranges::equal(packet.subspan(kSignatureAt, kSignature.size()), kSignature)) {
        return std::nullopt;
    }
    std::memcpy(&mark.round, packet.data() + kNumbersAt, sizeof mark.round);
    std::memcpy(&mark.destination, packet.data() + kNumbersAt + sizeof mark.round, sizeof mark.destination);
    return mark;
}

MarkSender::MarkSender(std::uint16_t port)
    : port_(port), socket_(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0)) {
    if (socket_ == -1) {
        throw std::system_error(errno, std::generic_category(), "cannot create a socket");
    }
}

MarkSender::~MarkSender() {
    close(socket_);
}

void MarkSender::send(const Mark& mark, const std::string& ip) const {
    const std::vector<std::uint8_t> datagram = mark_datagram(mark, ip, port_);
    sockaddr_in to{};
    to.sin_family = AF_INET;
    to.sin_port = htons(port_);
    to.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    // Lost marks are noticed where they are waited for.
    sendto(socket_, datagram.data(), datagram.size(), 0, reinterpret_cast<const sockaddr*>(&to), sizeof to);
}

}  // namespace demo
