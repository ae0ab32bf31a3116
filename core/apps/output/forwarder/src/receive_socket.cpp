#include "receive_socket.h"

#include <array>
#include <cerrno>
#include <climits>
#include <cstring>
#include <fstream>
#include <iterator>
#include <sstream>
#include <system_error>

#include <linux/sock_diag.h>
#include <netinet/in.h>
#include <sys/stat.h>

#include "endpoint.h"
#include "socket_filter.h"
#include "text.h"

namespace forwarder {

namespace {

/// What is asked for where the caller may exceed the system's limit: about 26,000 datagrams.
constexpr int kForcedReceiveBuffer = 16 * 1024 * 1024;
/// What the kernel charges for one waiting datagram of 554 bytes.
constexpr int kChargePerDatagram = 1280;
constexpr int kBurst = 2000;
constexpr int kBurstBytes = kBurst * kChargePerDatagram;
/// The value to recommend; the kernel grants twice of it.
constexpr int kRecommendedLimit = 4 * 1024 * 1024;

/// Place of a socket's inode in its line of /proc/net/udp.
constexpr std::size_t kInodeWord = 9;

bool set_option(int socket, int option, int value) {
    return setsockopt(socket, SOL_SOCKET, option, &value, sizeof value) == 0;
}

int receive_buffer_of(int socket) {
    int bytes = 0;
    socklen_t size = sizeof bytes;
    return getsockopt(socket, SOL_SOCKET, SO_RCVBUF, &bytes, &size) == 0 ? bytes : 0;
}

/// Widens the receive buffer as far as allowed; returns what there is then.
int widen_receive_buffer(int socket) {
    // An absurd wish is cut to the system's limit; privileged processes may go past the limit.
    set_option(socket, SO_RCVBUF, INT_MAX / 2);
    const int allowed = receive_buffer_of(socket);
    if (allowed < 2 * kForcedReceiveBuffer) {
        set_option(socket, SO_RCVBUFFORCE, kForcedReceiveBuffer);
    }
    return receive_buffer_of(socket);
}

ReceiveSocket::Failure port_in_use(std::uint16_t port) {
    return {true, text("port %u on 127.0.0.1 is in use by another program; end that program "
                       "(\"ss -ulnp sport = :%u\" names it) or choose another port with --port",
                       unsigned{port}, unsigned{port})};
}

ReceiveSocket::Failure taken_at_once(std::uint16_t port) {
    return {true,
            text("port %u on 127.0.0.1 was taken by another program at the same moment, which may have given "
                 "it up for the same reason; see with \"ss -ulnp sport = :%u\" whether it is there, and "
                 "start this one again if not",
                 unsigned{port}, unsigned{port})};
}

ReceiveSocket::Failure refused(const char* step, std::uint16_t port) {
    const int error = errno;
    return {false, text("cannot %s for port %u: %s", step, unsigned{port},
                        std::generic_category().message(error).c_str())};
}

ino_t inode_of(int socket) {
    struct stat status {};
    return fstat(socket, &status) == 0 ? status.st_ino : 0;
}

std::string udp_table() {
    std::ifstream file("/proc/net/udp");
    return {std::istreambuf_iterator<char>(file), {}};
}

}  // namespace

bool is_bound_on_loopback(const std::string& table, std::uint16_t port, ino_t own) {
    // The address is the raw 32-bit value in hexadecimal, the port a plain number; the peer's is all zero.
    const std::string local = text("%08X:%04X", htonl(kLoopbackAddress), unsigned{port});
    std::istringstream lines(table);
    for (std::string line; std::getline(lines, line);) {
        std::istringstream words(line);
        std::array<std::string, kInodeWord + 1> word;
        for (std::string& each : word) {
            words >> each;
        }
        if (word[1] == local && word[2] == "00000000:0000" && word[kInodeWord] != std::to_string(own)) {
            return true;
        }
    }
    return false;
}

std::string receive_buffer_advice(int bytes) {
    if (bytes >= kBurstBytes) {
        return {};
    }
    return text(
        "the receive buffer holds about %d datagrams, a burst of %d needs more; "
        "run \"sysctl -w net.core.rmem_max=%d\" as root and start again",
        bytes / kChargePerDatagram, kBurst, kRecommendedLimit);
}

std::optional<ReceiveSocket::Failure> ReceiveSocket::open(std::uint16_t port) {
    port_ = port;
    socket_ = posix::FileDescriptor(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (!socket_) {
        return refused("create a socket", port);
    }
    receive_buffer_ = widen_receive_buffer(socket_.get());
    set_option(socket_.get(), SO_RXQ_OVFL, 1);

    const ino_t own = inode_of(socket_.get());
    // Address reuse lets another program bind the wildcard address on this port. It would also let a second
    // forwarder bind the very same address and silently take over the datagrams, so that is looked up, first
    // and once more with the address bound: of two that begin at once, the later one to bind finds the other.
    if (is_bound_on_loopback(udp_table(), port, own)) {
        return port_in_use(port);
    }
    if (!set_option(socket_.get(), SO_REUSEADDR, 1)) {
        return refused("permit address reuse", port);
    }
    const sockaddr_in address = to_sockaddr({kLoopbackAddress, port});
    if (bind(socket_.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        return errno == EADDRINUSE ? port_in_use(port) : refused("bind 127.0.0.1", port);
    }
    if (is_bound_on_loopback(udp_table(), port, own)) {
        // Given back at once, so that it takes none of the other's datagrams any more.
        socket_ = posix::FileDescriptor();
        return taken_at_once(port);
    }
    return std::nullopt;
}

void ReceiveSocket::refuse_more() noexcept {
    // Shutting down or closing it would take what it holds, too; a filter looks at newcomers only. Without
    // one the socket stays open, and its reader's deadline is what ends the reading.
    refuse_datagrams(socket_.get());
}

void ReceiveSocket::note_drops(msghdr& message) noexcept {
    for (cmsghdr* part = CMSG_FIRSTHDR(&message); part != nullptr; part = CMSG_NXTHDR(&message, part)) {
        if (part->cmsg_level == SOL_SOCKET && part->cmsg_type == SO_RXQ_OVFL) {
            std::uint32_t counter = 0;
            std::memcpy(&counter, CMSG_DATA(part), sizeof counter);
            const std::uint64_t known = drops_.load(std::memory_order_relaxed);
            // The kernel's counter has 32 bits and wraps.
            const std::uint32_t more = counter - static_cast<std::uint32_t>(known);
            drops_.store(known + more, std::memory_order_relaxed);
        }
    }
}

std::uint64_t ReceiveSocket::kernel_drops() const noexcept {
    // The attached counter is as old as the last datagram that found room; the socket's own one is current.
    const std::uint64_t known = drops_.load(std::memory_order_relaxed);
    std::array<std::uint32_t, SK_MEMINFO_VARS> memory{};
    socklen_t size = sizeof memory;
    if (getsockopt(socket_.get(), SOL_SOCKET, SO_MEMINFO, memory.data(), &size) != 0 ||
        size <= SK_MEMINFO_DROPS * sizeof(std::uint32_t)) {
        return known;
    }
    const std::uint32_t more = memory[SK_MEMINFO_DROPS] - static_cast<std::uint32_t>(known);
    return known + more;
}

}  // namespace forwarder
