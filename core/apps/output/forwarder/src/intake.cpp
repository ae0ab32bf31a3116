#include "intake.h"

#include <algorithm>
#include <array>
#include <cassert>
#include <cerrno>
#include <ctime>
#include <optional>
#include <system_error>

#include <sys/eventfd.h>
#include <sys/socket.h>

namespace forwarder {

namespace {

/// Datagrams read by one system call.
constexpr std::size_t kBatch = 64;
/// Batches read from each socket between two batches that are sent.
constexpr int kBatchesPerTurn = 4;
/// Batches counted at most per socket when the time for the end is over: more than any buffer holds.
constexpr int kMostBatchesLeft = 4096;

/// Room for the kernel's drop counter.
struct alignas(cmsghdr) Control {
    std::array<unsigned char, CMSG_SPACE(sizeof(std::uint32_t))> bytes;
};

}  // namespace

/// Arguments of recvmmsg.
struct Intake::Batch {
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

    /// Reads what is there, without waiting; the number read, nothing after an error: there may be more.
    std::optional<std::size_t> read(const ReceiveSocket& socket, std::span<Slot> slots) {
        aim_at(slots);
        const int result = recvmmsg(socket.descriptor(), messages.data(), static_cast<unsigned>(slots.size()),
                                    MSG_DONTWAIT, nullptr);
        if (result < 0 && errno != EAGAIN) {
            return std::nullopt;
        }
        return static_cast<std::size_t>(std::max(result, 0));
    }
};

Intake::Intake(std::span<const std::unique_ptr<ReceiveSocket>> sockets, std::size_t capacity,
               std::chrono::milliseconds longest_end)
    : sockets_(sockets),
      slots_(capacity),
      longest_end_(longest_end),
      batch_(std::make_unique<Batch>()),
      stop_event_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
    assert(capacity > 0);
    if (!stop_event_) {
        throw std::system_error(errno, std::generic_category(), "eventfd");
    }
    waits_.push_back({stop_event_.get(), POLLIN, 0});
    for (const auto& socket : sockets_) {
        waits_.push_back({socket->descriptor(), POLLIN, 0});
    }
}

Intake::~Intake() = default;

void Intake::stop() noexcept {
    stop_wanted_.store(true, std::memory_order_relaxed);
    eventfd_write(stop_event_.get(), 1);
}

std::span<Slot> Intake::wait(std::size_t limit, Clock::time_point until) {
    if (!ended_) {
        if (released_ == filled_ && !stop_wanted_.load(std::memory_order_relaxed)) {
            await_datagram(until);
        } else {
            mark_all();
        }
        receive();
    }
    const std::size_t begin = static_cast<std::size_t>(released_ % slots_.size());
    const std::size_t count =
        std::min({limit, static_cast<std::size_t>(filled_ - released_), slots_.size() - begin});
    return {slots_.data() + begin, count};
}

void Intake::take_in() {
    if (!ended_) {
        mark_all();
        receive();
    }
}

void Intake::mark_all() noexcept {
    for (pollfd& wait : waits_) {
        wait.revents = POLLIN;
    }
}

void Intake::release(std::size_t count) noexcept {
    released_ += count;
}

void Intake::await_datagram(Clock::time_point until) {
    timespec left{};
    if (until != Clock::time_point::max()) {
        const auto time = std::max(until - Clock::now(), Clock::duration::zero());
        const auto seconds = std::chrono::floor<std::chrono::seconds>(time);
        left = {static_cast<std::time_t>(seconds.count()),
                static_cast<long>(std::chrono::nanoseconds(time - seconds).count())};
    }
    if (ppoll(waits_.data(), waits_.size(), until == Clock::time_point::max() ? nullptr : &left, nullptr) <=
        0) {
        for (pollfd& wait : waits_) {
            wait.revents = 0;
        }
    }
}

void Intake::receive() {
    if (stop_wanted_.load(std::memory_order_relaxed) && deadline_ == Clock::time_point::max()) {
        // What is in the sockets from here on is what had arrived, and an end is in sight.
        for (const auto& socket : sockets_) {
            socket->refuse_more();
        }
        deadline_ = Clock::now() + longest_end_;
        mark_all();
    }
    bool all_empty = true;
    for (std::size_t turn = 0; turn < sockets_.size(); ++turn) {
        const std::size_t i = (first_ + turn) % sockets_.size();
        if (waits_[i + 1].revents != 0 && !drain(*sockets_[i])) {
            all_empty = false;
        }
    }
    first_ = (first_ + 1) % sockets_.size();
    if (deadline_ == Clock::time_point::max()) {
        return;
    }
    ended_ = all_empty;
    if (!ended_ && Clock::now() >= deadline_) {
        for (const auto& socket : sockets_) {
            count_left_behind(*socket);
        }
        ended_ = true;
    }
}

bool Intake::drain(ReceiveSocket& socket) {
    for (int turn = 0; turn < kBatchesPerTurn; ++turn) {
        const std::span<Slot> slots = writable(kBatch);
        if (slots.empty()) {
            return false;
        }
        const std::optional<std::size_t> count = batch_->read(socket, slots);
        if (!count) {
            return false;
        }
        const auto now = Clock::now();
        for (std::size_t i = 0; i < *count; ++i) {
            slots[i].size = batch_->messages[i].msg_len;
            slots[i].received = now;
            socket.note_drops(batch_->messages[i].msg_hdr);
        }
        socket.note_received(*count);
        filled_ += *count;
        if (*count < slots.size()) {
            // Asking once more would cost a system call each time.
            return true;
        }
    }
    return false;
}

std::span<Slot> Intake::writable(std::size_t limit) noexcept {
    const std::size_t begin = static_cast<std::size_t>(filled_ % slots_.size());
    const std::size_t room = slots_.size() - static_cast<std::size_t>(filled_ - released_);
    return {slots_.data() + begin, std::min({limit, room, slots_.size() - begin})};
}

void Intake::count_left_behind(ReceiveSocket& socket) {
    const auto spare = std::make_unique<std::array<Slot, kBatch>>();
    for (int turn = 0; turn < kMostBatchesLeft; ++turn) {
        const std::size_t count = batch_->read(socket, *spare).value_or(0);
        if (count == 0) {
            return;
        }
        left_behind_.fetch_add(count, std::memory_order_relaxed);
    }
}

}  // namespace forwarder
