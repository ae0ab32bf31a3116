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
/// Batches counted at most per socket when the time for the end is over: more than any buffer holds.
constexpr int kMostBatchesLeft = 4096;

/// Room for the kernel's drop counter.
struct alignas(cmsghdr) Control {
    std::array<unsigned char, CMSG_SPACE(sizeof(std::uint32_t))> bytes;
};

}  // namespace

/// Arguments of recvmmsg. Receive thread only.
struct Receiver::Batch {
    std::array<mmsghdr, kBatch> messages{};
    std::array<iovec, kBatch> parts{};
    std::array<Control, kBatch> controls{};

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

Receiver::Receiver(std::span<const std::unique_ptr<ReceiveSocket>> sockets, DatagramRing& ring,
                   std::chrono::milliseconds longest_end)
    : sockets_(sockets),
      ring_(ring),
      longest_end_(longest_end),
      stop_event_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
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

Receiver::Found Receiver::drain_batch(ReceiveSocket& socket, Batch& batch) {
    const std::span<Slot> slots = ring_.writable(kBatch);
    if (slots.empty()) {
        return Found::RingFull;
    }
    batch.aim_at(slots);
    const int result = recvmmsg(socket.descriptor(), batch.messages.data(),
                                static_cast<unsigned>(slots.size()), MSG_DONTWAIT, nullptr);
    if (result <= 0) {
        return Found::Nothing;
    }
    const auto count = static_cast<std::size_t>(result);
    const auto now = Clock::now();
    for (std::size_t i = 0; i < count; ++i) {
        slots[i].size = batch.messages[i].msg_len;
        slots[i].received = now;
        socket.note_drops(batch.messages[i].msg_hdr);
    }
    socket.note_received(count);
    ring_.publish(count);
    // A batch that is not full has emptied the socket; asking again would cost a system call each time.
    return count == slots.size() ? Found::More : Found::Nothing;
}

Receiver::Found Receiver::drain(ReceiveSocket& socket, Batch& batch) {
    Found found = Found::More;
    for (int turn = 0; turn < kBatchesPerTurn && found == Found::More; ++turn) {
        found = drain_batch(socket, batch);
    }
    return found;
}

void Receiver::run() {
    const auto batch = std::make_unique<Batch>();
    // Either the first two or all but the first are waited for.
    std::vector<pollfd> waits{{ring_.room_descriptor(), POLLIN, 0}, {stop_event_.get(), POLLIN, 0}};
    for (const auto& socket : sockets_) {
        waits.push_back({socket->descriptor(), POLLIN, 0});
    }
    const pollfd& stop = waits[1];
    bool ring_full = false;
    // Whose turn it is: the room that a busy sender makes is used up by the first with much to read.
    std::size_t first = 0;
    while (stop.revents == 0) {
        const bool no_room = ring_full && ring_.await_room();
        const auto waited_for = no_room ? std::span(waits).first(2) : std::span(waits).subspan(1);
        if (poll(waited_for.data(), waited_for.size(), -1) < 0) {
            continue;
        }
        ring_full = false;
        const std::size_t begin = first;
        for (std::size_t turn = 0; turn < sockets_.size(); ++turn) {
            const std::size_t i = (begin + turn) % sockets_.size();
            // After a wait for room the sockets were not looked at; they held something before it.
            if (!no_room && waits[i + 2].revents == 0) {
                continue;
            }
            const std::uint64_t before = sockets_[i]->received();
            if (drain(*sockets_[i], *batch) == Found::RingFull && !ring_full) {
                ring_full = true;
                // The one that took the last room has had its turn; one that found none keeps it.
                first = sockets_[i]->received() != before ? (i + 1) % sockets_.size() : i;
            }
        }
    }
    drain_to_the_end(*batch);
    ring_.close();
}

void Receiver::drain_to_the_end(Batch& batch) {
    // First all sockets are shut: what is in them then is what had arrived, and an end is in sight.
    for (const auto& socket : sockets_) {
        socket->refuse_more();
    }
    const auto deadline = Clock::now() + longest_end_;
    for (const auto& socket : sockets_) {
        for (Found found = Found::More; found != Found::Nothing;) {
            const bool in_time = found == Found::RingFull ? wait_for_room(deadline) : Clock::now() < deadline;
            if (!in_time) {
                count_left_behind(*socket, batch);
                break;
            }
            found = drain_batch(*socket, batch);
        }
    }
}

bool Receiver::wait_for_room(Clock::time_point until) {
    while (ring_.await_room()) {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(until - Clock::now());
        if (left.count() <= 0) {
            return false;
        }
        pollfd room{ring_.room_descriptor(), POLLIN, 0};
        poll(&room, 1, static_cast<int>(left.count()));
    }
    return true;
}

void Receiver::count_left_behind(ReceiveSocket& socket, Batch& batch) {
    const auto spare = std::make_unique<std::array<Slot, kBatch>>();
    for (int turn = 0; turn < kMostBatchesLeft; ++turn) {
        batch.aim_at(*spare);
        const int result =
            recvmmsg(socket.descriptor(), batch.messages.data(), kBatch, MSG_DONTWAIT, nullptr);
        if (result <= 0) {
            return;
        }
        left_behind_.fetch_add(static_cast<std::uint64_t>(result), std::memory_order_relaxed);
    }
}

}  // namespace forwarder
