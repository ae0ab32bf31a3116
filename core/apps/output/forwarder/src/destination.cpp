#include "destination.h"

#include <cassert>
#include <cerrno>
#include <utility>

#include <netinet/in.h>

#include "socket_filter.h"

namespace forwarder {

namespace {

/// Room for a burst of 2,000 packets on a slow interface. The kernel cuts it to its limit, and its default
/// limit still exceeds what it lets wait for one unresolved address.
constexpr int kSendBuffer = 4 * 1024 * 1024;
/// Room for error reports; a send that fails empties it.
constexpr int kReceiveBuffer = 64 * 1024;
/// Tries of one packet while the errors may be about earlier ones.
constexpr int kMostTries = 4;
/// The same where they may be about other addresses: when the kernel gives up one that does not answer, it
/// reports each packet that waited for it, about 170 at most, and they may come in one by one.
constexpr int kMostTriesShared = 256;

void set_option(int socket, int level, int option, int value) {
    // Each option only improves things, so a refusal changes nothing that could be acted on.
    setsockopt(socket, level, option, &value, sizeof value);
}

}  // namespace

SendVerdict verdict_of(int error) noexcept {
    switch (error) {
        case EINTR:
        case ECONNREFUSED:  // the host is there, only its program is not: sending on costs nothing
            return SendVerdict::Again;
        case EAGAIN:
        case ENOBUFS:
            return SendVerdict::Full;
        default:
            return SendVerdict::BackOff;
    }
}

void Destination::assign(const Endpoint& target, const Endpoint& sent_to) {
    target_ = target;
    sent_to_ = sent_to;
    address_ = to_sockaddr(sent_to);
}

void Destination::retarget(const Endpoint& sent_to) {
    assign(sent_to, sent_to);
    backoff_.succeeded();
    shared_ = true;
}

bool Destination::open() noexcept {
    if (socket_) {
        return true;
    }
    socket_ = posix::FileDescriptor(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (!socket_) {
        return false;
    }
    set_option(socket_.get(), SOL_SOCKET, SO_BROADCAST, 1);
    set_option(socket_.get(), SOL_SOCKET, SO_SNDBUF, kSendBuffer);
    set_option(socket_.get(), SOL_SOCKET, SO_SNDBUFFORCE, kSendBuffer);
    set_option(socket_.get(), SOL_SOCKET, SO_RCVBUF, kReceiveBuffer);
    set_option(socket_.get(), IPPROTO_IP, IP_RECVERR, 1);
    // Nobody reads what nodes answer to this port. Left to wait, it would take the room of the error reports,
    // and a late error could no longer be charged to the address that it is about.
    refuse_datagrams(socket_.get());
    if (dscp_ != 0) {
        // The byte that was the type of service: the class in its upper six bits.
        set_option(socket_.get(), IPPROTO_IP, IP_TOS, static_cast<int>(dscp_ << 2));
    }
    return true;
}

std::size_t Destination::send(std::span<const iovec> packets, Backoff::Clock::time_point now) {
    assert(packets.size() <= kMostPackets);
    if (!backoff_.ready(now)) {
        count_unsent(packets.size());
        return packets.size();
    }
    if (!open()) {
        count_error(errno, sent_to_);
        count_unsent(packets.size());
        backoff_.failed(now);
        return packets.size();
    }
    std::array<mmsghdr, kMostPackets> messages;
    for (std::size_t i = 0; i < packets.size(); ++i) {
        messages[i] = {};
        messages[i].msg_hdr.msg_name = &address_;
        messages[i].msg_hdr.msg_namelen = sizeof address_;
        messages[i].msg_hdr.msg_iov = const_cast<iovec*>(&packets[i]);
        messages[i].msg_hdr.msg_iovlen = 1;
    }
    std::size_t done = 0;
    int tries = 1;
    while (done < packets.size()) {
        const int result = sendmmsg(socket_.get(), messages.data() + done,
                                    static_cast<unsigned>(packets.size() - done), MSG_DONTWAIT);
        if (result > 0) {
            std::uint64_t bytes = 0;
            const std::size_t end = done + static_cast<std::size_t>(result);
            for (; done < end; ++done) {
                bytes += packets[done].iov_len;
            }
            packets_.fetch_add(static_cast<std::uint64_t>(result), std::memory_order_relaxed);
            bytes_.fetch_add(bytes, std::memory_order_relaxed);
            backoff_.succeeded();
            tries = 1;
            continue;
        }
        const int error = errno;
        const SendVerdict verdict = verdict_of(error);
        if (verdict == SendVerdict::Full) {
            waits_.fetch_add(1, std::memory_order_relaxed);
            return done;
        }
        const std::optional<Endpoint> report = read_error_reports();
        count_error(error, report.value_or(sent_to_));
        // A report about an earlier packet is gone once it has been read, so that the next try is a true one.
        // On a socket of its own that packet went the same way, so only what needs no pause is tried again;
        // on a shared one it went anywhere, and reports about still others may come in between.
        const bool of_another = shared_ && report;
        if (tries < (of_another ? kMostTriesShared : verdict == SendVerdict::Again ? kMostTries : 1)) {
            ++tries;
            continue;
        }
        if (verdict == SendVerdict::BackOff) {
            count_unsent(packets.size() - done);
            backoff_.failed(now);
            return packets.size();
        }
        count_unsent(1);
        ++done;
        tries = 1;
    }
    return done;
}

void Destination::give_up(std::size_t packets, Backoff::Clock::time_point now) noexcept {
    count_error(EAGAIN, sent_to_);
    count_unsent(packets);
    backoff_.failed(now);
}

Destination::Error Destination::take_error() noexcept {
    return std::exchange(fresh_error_, {});
}

Destination::Counters Destination::counters() const noexcept {
    return {packets_.load(std::memory_order_relaxed),   bytes_.load(std::memory_order_relaxed),
            errors_.load(std::memory_order_relaxed),    unsent_.load(std::memory_order_relaxed),
            waits_.load(std::memory_order_relaxed),     rejected_.load(std::memory_order_relaxed),
            last_error_.load(std::memory_order_relaxed)};
}

void Destination::count_error(int error, const Endpoint& about) noexcept {
    fresh_error_ = {error, about};
    last_error_.store(error, std::memory_order_relaxed);
    errors_.fetch_add(1, std::memory_order_relaxed);
}

void Destination::count_unsent(std::size_t packets) noexcept {
    unsent_.fetch_add(packets, std::memory_order_relaxed);
}

std::optional<Endpoint> Destination::read_error_reports() noexcept {
    // Reports wait in a queue that is charged to the socket; unread, they would fill it once and for all. The
    // address that comes with one is where the packet was sent to.
    std::optional<Endpoint> about;
    sockaddr_in address{};
    socklen_t size = sizeof address;
    std::array<unsigned char, 1> ignored{};
    while (recvfrom(socket_.get(), ignored.data(), ignored.size(), MSG_ERRQUEUE | MSG_DONTWAIT,
                    reinterpret_cast<sockaddr*>(&address), &size) >= 0) {
        if (size == sizeof address && address.sin_family == AF_INET) {
            about = {ntohl(address.sin_addr.s_addr), ntohs(address.sin_port)};
        }
        size = sizeof address;
    }
    return about;
}

}  // namespace forwarder
