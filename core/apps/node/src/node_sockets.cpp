#include "node_sockets.h"

#include <cerrno>
#include <climits>
#include <cstring>
#include <ctime>
#include <memory>
#include <string>
#include <system_error>

#include <ifaddrs.h>
#include <linux/sock_diag.h>
#include <net/if.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include "cli/program.h"
#include "posix/ipv4.h"

namespace node {

namespace {

/// Datagrams taken from one socket before the others and the signals get their turn.
constexpr int kAtOnce = 256;

[[noreturn]] void fail(std::uint32_t address, std::uint16_t port) {
    const int error = errno;
    throw cli::Failure("cannot listen at " + posix::ipv4_text(address) + ":" + std::to_string(port) + ": " +
                       std::generic_category().message(error));
}

bool switch_on(int socket, int level, int option) {
    const int on = 1;
    return setsockopt(socket, level, option, &on, sizeof on) == 0;
}

posix::FileDescriptor open_socket(std::uint32_t address, std::uint16_t port) {
    posix::FileDescriptor descriptor(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (!descriptor || !switch_on(descriptor.get(), SOL_SOCKET, SO_REUSEADDR) ||
        !switch_on(descriptor.get(), SOL_SOCKET, SO_TIMESTAMPNS) ||
        !switch_on(descriptor.get(), IPPROTO_IP, IP_PKTINFO)) {
        fail(address, port);
    }
    // Cut to what the system allows.
    const int room = INT_MAX / 2;
    setsockopt(descriptor.get(), SOL_SOCKET, SO_RCVBUF, &room, sizeof room);
    const sockaddr_in own = posix::ipv4_sockaddr(address, port);
    if (bind(descriptor.get(), reinterpret_cast<const sockaddr*>(&own), sizeof own) != 0) {
        fail(address, port);
    }
    return descriptor;
}

/// The broadcast address of the interface that has this address; 0 where there is none.
std::uint32_t broadcast_of(std::uint32_t address) {
    ifaddrs* list = nullptr;
    if (getifaddrs(&list) != 0) {
        return 0;
    }
    const std::unique_ptr<ifaddrs, decltype(&freeifaddrs)> owner(list, &freeifaddrs);
    const auto number = [](const sockaddr* text) {
        sockaddr_in inet{};
        std::memcpy(&inet, text, sizeof inet);
        return ntohl(inet.sin_addr.s_addr);
    };
    for (const ifaddrs* interface = list; interface != nullptr; interface = interface->ifa_next) {
        if (interface->ifa_addr != nullptr && interface->ifa_addr->sa_family == AF_INET &&
            interface->ifa_netmask != nullptr && (interface->ifa_flags & IFF_BROADCAST) != 0 &&
            number(interface->ifa_addr) == address) {
            const std::uint32_t broadcast = address | ~number(interface->ifa_netmask);
            return broadcast == address ? 0 : broadcast;
        }
    }
    return 0;
}

Arrival now() {
    timespec time{};
    clock_gettime(CLOCK_REALTIME, &time);
    return std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec);
}

/// Takes time stamp and own address from what the kernel attached.
void read_attachments(msghdr& message, Datagram& datagram) {
    for (cmsghdr* part = CMSG_FIRSTHDR(&message); part != nullptr; part = CMSG_NXTHDR(&message, part)) {
        if (part->cmsg_level == SOL_SOCKET && part->cmsg_type == SO_TIMESTAMPNS) {
            timespec time{};
            std::memcpy(&time, CMSG_DATA(part), sizeof time);
            datagram.arrival = std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec);
        } else if (part->cmsg_level == IPPROTO_IP && part->cmsg_type == IP_PKTINFO) {
            in_pktinfo info{};
            std::memcpy(&info, CMSG_DATA(part), sizeof info);
            datagram.own_address = ntohl(info.ipi_spec_dst.s_addr);
        }
    }
}

}  // namespace

NodeSockets::NodeSockets(std::optional<std::uint32_t> address, std::uint16_t port) : address_(address) {
    sockets_.push_back(open_socket(address.value_or(INADDR_ANY), port));
    if (address) {
        if (const std::uint32_t broadcast = broadcast_of(*address); broadcast != 0) {
            sockets_.push_back(open_socket(broadcast, port));
            sockets_.push_back(open_socket(INADDR_BROADCAST, port));
        }
    }
}

std::vector<int> NodeSockets::descriptors() const {
    std::vector<int> result;
    for (const posix::FileDescriptor& socket : sockets_) {
        result.push_back(socket.get());
    }
    return result;
}

bool NodeSockets::receive(const std::function<void(const Datagram&)>& take) {
    bool any = false;
    for (const posix::FileDescriptor& socket : sockets_) {
        for (int i = 0; i < kAtOnce && receive_one(socket.get(), take); ++i) {
            any = true;
        }
    }
    return any;
}

bool NodeSockets::receive_one(int descriptor, const std::function<void(const Datagram&)>& take) {
    sockaddr_in sender{};
    iovec part{buffer_.data(), buffer_.size()};
    alignas(cmsghdr) std::array<char, 256> attachments{};
    msghdr message{};
    message.msg_name = &sender;
    message.msg_namelen = sizeof sender;
    message.msg_iov = &part;
    message.msg_iovlen = 1;
    message.msg_control = attachments.data();
    message.msg_controllen = attachments.size();
    const ssize_t size = recvmsg(descriptor, &message, 0);
    if (size < 0) {
        // A late error of an answer hides nothing behind it.
        return errno == EINTR || errno == ECONNREFUSED || errno == EHOSTUNREACH;
    }
    Datagram datagram{.bytes = {buffer_.data(), static_cast<std::size_t>(size)},
                      .sender_address = ntohl(sender.sin_addr.s_addr),
                      .sender_port = ntohs(sender.sin_port)};
    read_attachments(message, datagram);
    if (datagram.arrival == Arrival{0}) {
        datagram.arrival = now();
    }
    datagram.own_address = address_.value_or(datagram.own_address);
    take(datagram);
    return true;
}

bool NodeSockets::send(std::span<const std::uint8_t> bytes, std::uint32_t address, std::uint16_t port) const {
    const sockaddr_in target = posix::ipv4_sockaddr(address, port);
    return sendto(sockets_.front().get(), bytes.data(), bytes.size(), MSG_NOSIGNAL,
                  reinterpret_cast<const sockaddr*>(&target),
                  sizeof target) == static_cast<ssize_t>(bytes.size());
}

std::uint64_t NodeSockets::kernel_drops() const {
    std::uint64_t drops = 0;
    for (const posix::FileDescriptor& socket : sockets_) {
        std::array<std::uint32_t, SK_MEMINFO_VARS> memory{};
        socklen_t size = sizeof memory;
        if (getsockopt(socket.get(), SOL_SOCKET, SO_MEMINFO, memory.data(), &size) == 0) {
            drops += memory[SK_MEMINFO_DROPS];
        }
    }
    return drops;
}

}  // namespace node
