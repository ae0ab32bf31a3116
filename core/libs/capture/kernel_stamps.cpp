#include "capture/kernel_stamps.h"

#include <chrono>
#include <cstring>
#include <ctime>
#include <thread>

#include <netinet/in.h>
#include <sys/socket.h>

#include "posix/file_descriptor.h"

namespace capture {

namespace {

constexpr std::chrono::seconds kPatience{2};

bool earlier(const timespec& a, const timespec& b) {
    return a.tv_sec < b.tv_sec || (a.tv_sec == b.tv_sec && a.tv_nsec < b.tv_nsec);
}

/// A socket whose datagrams go to itself; none where there is no loopback interface.
posix::FileDescriptor open_own_peer() noexcept {
    posix::FileDescriptor own(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    const int on = 1;
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    auto* const generic = reinterpret_cast<sockaddr*>(&address);
    if (!own || setsockopt(own.get(), SOL_SOCKET, SO_TIMESTAMPNS, &on, sizeof on) != 0 ||
        bind(own.get(), generic, size) != 0 || getsockname(own.get(), generic, &size) != 0 ||
        connect(own.get(), generic, size) != 0) {
        return {};
    }
    return own;
}

/// Receives a datagram; true when its stamp is from before `arrived`.
bool is_stamped_before(int own, const timespec& arrived) noexcept {
    char byte = 0;
    alignas(cmsghdr) char control[CMSG_SPACE(sizeof(timespec))];
    iovec part{&byte, 1};
    msghdr message{};
    message.msg_iov = &part;
    message.msg_iovlen = 1;
    message.msg_control = control;
    message.msg_controllen = sizeof control;
    if (recvmsg(own, &message, 0) != 1) {
        return false;
    }
    timespec stamp = arrived;
    if (const cmsghdr* const found = CMSG_FIRSTHDR(&message);
        found != nullptr && found->cmsg_level == SOL_SOCKET && found->cmsg_type == SO_TIMESTAMPNS) {
        std::memcpy(&stamp, CMSG_DATA(found), sizeof stamp);
    }
    return earlier(stamp, arrived);
}

/// Returns once the kernel stamps datagrams on their arrival, or when that cannot be seen.
void await_kernel_stamps() noexcept {
    const posix::FileDescriptor own = open_own_peer();
    if (!own) {
        return;
    }
    const auto end = std::chrono::steady_clock::now() + kPatience;
    // A loopback interface that is down refuses.
    while (std::chrono::steady_clock::now() < end && send(own.get(), "", 1, 0) == 1) {
        // What was sent on loopback has arrived when the call returns.
        timespec arrived{};
        clock_gettime(CLOCK_REALTIME, &arrived);
        if (is_stamped_before(own.get(), arrived)) {
            return;
        }
        std::this_thread::sleep_for(std::chrono::microseconds(100));
    }
}

}  // namespace

bool begin_stamps(int descriptor) noexcept {
    const int on = 1;
    if (setsockopt(descriptor, SOL_SOCKET, SO_TIMESTAMPNS, &on, sizeof on) != 0) {
        return false;
    }
    await_kernel_stamps();
    return true;
}

}  // namespace capture
