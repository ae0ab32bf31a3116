#include "survey_socket.h"

#include <cerrno>
#include <string>
#include <system_error>

#include <linux/filter.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include "artnet/poll.h"
#include "cli/program.h"
#include "posix/ipv4.h"

namespace netsurvey {

namespace {

/// A thousand replies come within a second.
constexpr int kReceiveBuffer = 2 * 1024 * 1024;
constexpr std::uint32_t kUdpHeader = 8;
constexpr std::uint32_t kOpCodeAt = 8;
/// The opcode's two bytes as the filter loads them, high byte first.
constexpr std::uint32_t kReplyOpCode = 0x0021;

[[noreturn]] void fail(const char* what, std::uint16_t port) {
    const int error = errno;
    std::string text = std::string(what) + " for port " + std::to_string(port) + ": " +
                       std::generic_category().message(error);
    if (error == EADDRINUSE) {
        text += "; a program there does not share it (\"ss -ulnp sport = :" + std::to_string(port) +
                "\" names it)";
    }
    throw cli::Failure(text);
}

/// Has the kernel drop all but replies. Without the filter they would only be looked at here.
void pass_replies_only(int socket) {
    std::array<sock_filter, 4> steps{{
        {BPF_LD | BPF_H | BPF_ABS, 0, 0, kUdpHeader + kOpCodeAt},
        {BPF_JMP | BPF_JEQ | BPF_K, 0, 1, kReplyOpCode},
        {BPF_RET | BPF_K, 0, 0, 0xFFFF},
        {BPF_RET | BPF_K, 0, 0, 0},
    }};
    const sock_fprog filter{static_cast<unsigned short>(steps.size()), steps.data()};
    setsockopt(socket, SOL_SOCKET, SO_ATTACH_FILTER, &filter, sizeof filter);
}

}  // namespace

SurveySocket::SurveySocket(std::uint16_t port)
    : socket_(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0)) {
    const int on = 1;
    if (!socket_ || setsockopt(socket_.get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on) != 0 ||
        setsockopt(socket_.get(), SOL_SOCKET, SO_BROADCAST, &on, sizeof on) != 0) {
        fail("cannot set up a socket", port);
    }
    setsockopt(socket_.get(), SOL_SOCKET, SO_RCVBUF, &kReceiveBuffer, sizeof kReceiveBuffer);
    // Before the port is there, so that nothing else ever gets in.
    pass_replies_only(socket_.get());
    sockaddr_in address = posix::ipv4_sockaddr(INADDR_ANY, port);
    socklen_t size = sizeof address;
    if (bind(socket_.get(), reinterpret_cast<const sockaddr*>(&address), size) != 0 ||
        getsockname(socket_.get(), reinterpret_cast<sockaddr*>(&address), &size) != 0) {
        fail("cannot bind the wildcard address", port);
    }
    port_ = ntohs(address.sin_port);
}

int SurveySocket::send_poll(std::uint32_t address) const noexcept {
    const auto poll = artnet::encode_poll();
    const sockaddr_in target = posix::ipv4_sockaddr(address, port_);
    const ssize_t sent = sendto(socket_.get(), poll.data(), poll.size(), MSG_NOSIGNAL,
                                reinterpret_cast<const sockaddr*>(&target), sizeof target);
    return sent < 0 ? errno : 0;
}

std::optional<SurveySocket::Received> SurveySocket::receive() noexcept {
    for (;;) {
        sockaddr_in sender{};
        socklen_t size = sizeof sender;
        const ssize_t received = recvfrom(socket_.get(), buffer_.data(), buffer_.size(), 0,
                                          reinterpret_cast<sockaddr*>(&sender), &size);
        if (received >= 0) {
            return Received{{buffer_.data(), static_cast<std::size_t>(received)},
                            ntohl(sender.sin_addr.s_addr)};
        }
        // A late error of a poll (nobody at that port) is told here, and hides nothing behind it.
        if (errno != EINTR && errno != ECONNREFUSED && errno != EHOSTUNREACH && errno != ENETUNREACH) {
            return std::nullopt;
        }
    }
}

}  // namespace netsurvey
