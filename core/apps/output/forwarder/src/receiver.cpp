#include "receiver.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <system_error>
#include <vector>

#include <poll.h>
#include <pthread.h>
#include <sys/eventfd.h>
#include <sys/socket.h>

namespace forwarder {

namespace {

/// Datagrams read by one system call.
constexpr std::size_t kBatch = 64;
/// Batches read from one socket before the others get their turn.
constexpr int kBatchesPerTurn = 32;
/// Turns of each socket after the stop: 16,384 datagrams, more than most receive buffers hold.
constexpr int kLastTurns = 8;

/// Room for the kernel's drop counter.
struct alignas(cmsghdr) Control {
    std::array<unsigned char, CMSG_SPACE(sizeof(std::uint32_t))> bytes;
};

}  // namespace

/// Arguments of recvmmsg, and where datagrams go for which the ring has no room. Receive thread only.
struct Receiver::Batch {
    std::array<mmsghdr, kBatch> messages{};
    std::array<iovec, kBatch> parts{};
    std::array<Control, kBatch> controls{};
    std::array<Slot, kBatch> spare;

    void aim_at(std::span<Slot> slots) {
        for (std::size_t i = 0; i < slots.size(); ++i) {
            parts[i] = {slots[i].data.data(), slots[i].data.size()};
            messages[i].msg_hdr = {};
            messages[i].msg_hdr.msg_iov = &parts[i];
            messages[i].msg_hdr.msg_iovlen = 1;
            messages[i].msg_hdr.msg_control = controls[i].bytes.data();
            messages[i].msg_hdr.msg_controllen = controls[i].bytes.size();
        }
    }
};

Receiver::Receiver(std::span<const std::unique_ptr<ReceiveSocket>> sockets, DatagramRing& ring)
    : sockets_(sockets), ring_(ring), stop_event_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
    if (!stop_event_) {
        throw std::system_error(errno, std::generic_category(), "eventfd");
    }
    thread_ = std::thread(&Receiver::run, this);
    pthread_setname_np(thread_.native_handle(), "receive");
}

Receiver::~Receiver() {
    stop();
}

void Receiver::stop() {
    if (thread_.joinable()) {
        eventfd_write(stop_event_.get(), 1);
        thread_.join();
    }
}

bool Receiver::drain_batch(ReceiveSocket& socket, Batch& batch) {
    const std::span<Slot> free = ring_.writable(kBatch);
    // With a full ring the socket is still drained: the loss is counted here instead of by the kernel, and
    // the newest frames find their way in as soon as there is room.
    const std::span<Slot> slots = free.empty() ? std::span<Slot>(batch.spare) : free;
    batch.aim_at(slots);
    const int result = recvmmsg(socket.descriptor(), batch.messages.data(),
                                static_cast<unsigned>(slots.size()), MSG_DONTWAIT, nullptr);
    if (result <= 0) {
        return false;
    }
    const auto count = static_cast<std::size_t>(result);
    const auto now = std::chrono::steady_clock::now();
    for (std::size_t i = 0; i < count; ++i) {
        slots[i].size = batch.messages[i].msg_len;
        slots[i].received = now;
        socket.note_drops(batch.messages[i].msg_hdr);
    }
    socket.note_received(count);
    if (free.empty()) {
        ring_drops_.fetch_add(count, std::memory_order_relaxed);
    } else {
        ring_.publish(count);
    }
    // A batch that is not full has emptied the socket; asking again would cost a system call each time.
    return count == slots.size();
}

void Receiver::drain(ReceiveSocket& socket, Batch& batch) {
    for (int turn = 0; turn < kBatchesPerTurn; ++turn) {
        if (!drain_batch(socket, batch)) {
            return;
        }
    }
}

void Receiver::run() {
    const auto batch = std::make_unique<Batch>();
    std::vector<pollfd> waits;
    waits.reserve(sockets_.size() + 1);
    for (const auto& socket : sockets_) {
        waits.push_back({socket->descriptor(), POLLIN, 0});
    }
    waits.push_back({stop_event_.get(), POLLIN, 0});

    while (waits.back().revents == 0) {
        if (poll(waits.data(), waits.size(), -1) < 0) {
            continue;
        }
        for (std::size_t i = 0; i < sockets_.size(); ++i) {
            if (waits[i].revents != 0) {
                drain(*sockets_[i], *batch);
            }
        }
    }
    // What arrived before the stop is still taken in; bounded, since a sender may go on for ever.
    for (int turn = 0; turn < kLastTurns; ++turn) {
        for (const auto& socket : sockets_) {
            drain(*socket, *batch);
        }
    }
    ring_.close();
}

}  // namespace forwarder
