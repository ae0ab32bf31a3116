#include "log_queue.h"

#include <cerrno>
#include <system_error>
#include <utility>

#include <sys/eventfd.h>

#include "text.h"

namespace forwarder {

LogQueue::LogQueue() : event_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
    if (!event_) {
        throw std::system_error(errno, std::generic_category(), "eventfd");
    }
}

void LogQueue::push(std::string line) {
    const std::scoped_lock guard(mutex_);
    if (lines_.size() >= kMostLines) {
        ++dropped_;
        return;
    }
    lines_.push_back(std::move(line));
    eventfd_write(event_.get(), 1);
}

std::vector<std::string> LogQueue::take() {
    const std::scoped_lock guard(mutex_);
    eventfd_t ignored = 0;
    eventfd_read(event_.get(), &ignored);
    if (dropped_ > 0) {
        lines_.push_back(
            text("%llu lines dropped", static_cast<unsigned long long>(std::exchange(dropped_, 0))));
    }
    return std::exchange(lines_, {});
}

}  // namespace forwarder
