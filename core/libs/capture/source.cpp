#include "capture/source.h"

#include <array>
#include <cerrno>
#include <system_error>
#include <utility>

#include <linux/sock_diag.h>

#include "capture/receive_buffer.h"

namespace capture {

Source::Source(posix::FileDescriptor socket)
    : socket_(std::move(socket)), reader_(std::make_unique<BatchReader>()) {
    const int on = 1;
    // Without the counter, the socket's own one still tells of drops.
    setsockopt(socket_.get(), SOL_SOCKET, SO_RXQ_OVFL, &on, sizeof on);
    receive_buffer_ = widen_receive_buffer(socket_.get());
    clock_.look();
}

std::size_t Source::receive(const std::function<void(const Datagram&)>& take) {
    clock_.look();
    const int count = reader_->read(socket_.get());
    if (count < 0) {
        // An unreachable peer of an earlier owner of the port, or nothing there: not the source's end.
        if (errno == EAGAIN || errno == EWOULDBLOCK || errno == ECONNREFUSED) {
            return 0;
        }
        throw SourceError("cannot receive on " + place() + ": " + std::generic_category().message(errno));
    }
    for (std::size_t i = 0; i < static_cast<std::size_t>(count); ++i) {
        const BatchReader::Message message = reader_->message(i);
        if (message.drops) {
            note_drops(*message.drops);
        }
        Datagram datagram;
        datagram.time = message.stamp ? clock_.steady(*message.stamp) : clock_.now();
        if (interpret(message, datagram)) {
            take(datagram);
        }
    }
    return static_cast<std::size_t>(count);
}

void Source::note_drops(std::uint32_t counter) noexcept {
    drops_ += counter - static_cast<std::uint32_t>(drops_);
}

std::uint64_t Source::kernel_drops() const noexcept {
    // The attached counter is as old as the last datagram that found room; the socket's own one is current.
    std::array<std::uint32_t, SK_MEMINFO_VARS> memory{};
    socklen_t size = sizeof memory;
    if (getsockopt(socket_.get(), SOL_SOCKET, SO_MEMINFO, memory.data(), &size) != 0 ||
        size <= SK_MEMINFO_DROPS * sizeof(std::uint32_t)) {
        return drops_;
    }
    return drops_ + (memory[SK_MEMINFO_DROPS] - static_cast<std::uint32_t>(drops_));
}

}  // namespace capture
