#include "capture/receive_buffer.h"

#include <climits>

#include <sys/socket.h>

namespace capture {

namespace {

/// Asked for where the caller may exceed the system's limit: three seconds of 100 universes.
constexpr int kForced = 16 * 1024 * 1024;
/// What the kernel charges for one waiting ArtDmx datagram.
constexpr int kChargePerDatagram = 1280;
constexpr int kBurst = 2000;
/// The value to recommend; the kernel grants twice of it.
constexpr int kRecommendedLimit = 4 * 1024 * 1024;

int buffer_of(int socket) noexcept {
    int bytes = 0;
    socklen_t size = sizeof bytes;
    return getsockopt(socket, SOL_SOCKET, SO_RCVBUF, &bytes, &size) == 0 ? bytes : 0;
}

}  // namespace

int widen_receive_buffer(int socket) noexcept {
    // Privileged programs may go past the system's limit; for others an absurd wish is cut to it.
    const int forced = kForced;
    const int wish = INT_MAX / 2;
    setsockopt(socket, SOL_SOCKET, SO_RCVBUFFORCE, &forced, sizeof forced);
    const int granted = buffer_of(socket);
    setsockopt(socket, SOL_SOCKET, SO_RCVBUF, &wish, sizeof wish);
    if (buffer_of(socket) < granted) {
        setsockopt(socket, SOL_SOCKET, SO_RCVBUFFORCE, &forced, sizeof forced);
    }
    return buffer_of(socket);
}

int datagrams_in(int bytes) noexcept {
    return bytes / kChargePerDatagram;
}

std::string receive_buffer_advice(int bytes) {
    if (datagrams_in(bytes) >= kBurst) {
        return {};
    }
    return "the receive buffer holds about " + std::to_string(datagrams_in(bytes)) +
           " datagrams, a burst of " + std::to_string(kBurst) +
           " needs more; run \"sysctl -w net.core.rmem_max=" + std::to_string(kRecommendedLimit) +
           "\" as root and start again";
}

}  // namespace capture
