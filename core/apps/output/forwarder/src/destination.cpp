#include "destination.h"

#include <cassert>
#include <cerrno>
#include <utility>

#include <netinet/in.h>

namespace forwarder {

namespace {

/// Room for a burst of 2,000 packets on a slow interface. The kernel cuts it to its limit, and its default
/// limit still exceeds what it lets wait for one unresolved address.
constexpr int kSendBuffer = 4 * 1024 * 1024;
/// Only error reports are ever read from these sockets; whatever else is sent to them is dropped early.
constexpr int kReceiveBuffer = 16 * 1024;

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
}

bool Destination::open() noexcept {
    if (socket_) {
        return true;
    }
    socket_ = FileDescriptor(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (!socket_) {
        return false;
    }
    set_option(socket_.get(), SOL_SOCKET, SO_BROADCAST, 1);
    set_option(socket_.get(), SOL_SOCKET, SO_SNDBUF, kSendBuffer);
    set_option(socket_.get(), SOL_SOCKET, SO_SNDBUFFORCE, kSendBuffer);
    set_option(socket_.get(), SOL_SOCKET, SO_RCVBUF, kReceiveBuffer);
    set_option(socket_.get(), IPPROTO_IP, IP_RECVERR, 1);
    return true;
}

std::size_t Destination::send(std::span<const iovec> packets, Backoff::Clock::time_point now) {
    assert(packets.size() <= kMostPackets);
    if (!backoff_.ready(now)) {
        count_unsent(packets.size());
        return packets.size();
    }
    if (!open()) {
        count_error(errno);
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
    bool tried_again = false;
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
            tried_again = false;
            continue;
        }
        const int error = errno;
        const SendVerdict verdict = verdict_of(error);
        if (verdict == SendVerdict::Full) {
            waits_.fetch_add(1, std::memory_order_relaxed);
            return done;
        }
        count_error(error);
        discard_error_reports();
        if (verdict == SendVerdict::BackOff) {
            count_unsent(packets.size() - done);
            backoff_.failed(now);
            return packets.size();
        }
        // A report about an earlier packet is gone once it has been read, so the second try is a true one.
        if (std::exchange(tried_again, true)) {
            count_unsent(1);
            ++done;
            tried_again = false;
        }
    }
    return done;
}

void Destination::give_up(std::size_t packets, Backoff::Clock::time_point now) noexcept {
    count_error(EAGAIN);
    count_unsent(packets);
    backoff_.failed(now);
}

int Destination::take_error() noexcept {
    return std::exchange(fresh_error_, 0);
}

Destination::Counters Destination::counters() const noexcept {
    return {packets_.load(std::memory_order_relaxed), bytes_.load(std::memory_order_relaxed),
            errors_.load(std::memory_order_relaxed),  unsent_.load(std::memory_order_relaxed),
            waits_.load(std::memory_order_relaxed),   last_error_.load(std::memory_order_relaxed)};
}

void Destination::count_error(int error) noexcept {
    fresh_error_ = error;
    last_error_.store(error, std::memory_order_relaxed);
    errors_.fetch_add(1, std::memory_order_relaxed);
}

void Destination::count_unsent(std::size_t packets) noexcept {
    unsent_.fetch_add(packets, std::memory_order_relaxed);
}

void Destination::discard_error_reports() noexcept {
    // Reports wait in a queue that is charged to the socket; unread, they would fill it once and for all.
    std::array<unsigned char, 1> ignored{};
    while (recv(socket_.get(), ignored.data(), ignored.size(), MSG_ERRQUEUE | MSG_DONTWAIT) >= 0) {
    }
}

}  // namespace forwarder
