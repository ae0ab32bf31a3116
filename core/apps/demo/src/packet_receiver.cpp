#include "packet_receiver.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <fstream>
#include <sstream>
#include <system_error>
#include <utility>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <pthread.h>
#include <sys/eventfd.h>
#include <sys/stat.h>
#include <unistd.h>

#include "artnet/forwarding_datagram.h"

namespace demo {

namespace {

constexpr std::size_t kBatch = 64;
/// Some seconds of the show; the kernel grants what its limit allows.
constexpr int kReceiveBuffer = 8 * 1024 * 1024;
/// Longer than a forwarding datagram, so that one too long shows.
constexpr std::size_t kDatagramRoom = 1024;

[[noreturn]] void fail(const char* what) {
    throw std::system_error(errno, std::generic_category(), what);
}

sockaddr_in to_sockaddr(const std::string& ip, std::uint16_t port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = inet_addr(ip.c_str());
    return address;
}

std::int64_t receive_time(const msghdr& message) {
    timespec time{};
    // The macros want a pointer to a plain msghdr and change nothing.
    auto* const header = const_cast<msghdr*>(&message);
    for (cmsghdr* part = CMSG_FIRSTHDR(header); part != nullptr; part = CMSG_NXTHDR(header, part)) {
        if (part->cmsg_level == SOL_SOCKET && part->cmsg_type == SCM_TIMESTAMPNS) {
            std::memcpy(&time, CMSG_DATA(part), sizeof time);
        }
    }
    return std::int64_t{time.tv_sec} * 1'000'000'000 + time.tv_nsec;
}

std::string source_text(const msghdr& message) {
    sockaddr_in source{};
    std::memcpy(&source, message.msg_name, sizeof source);
    return std::to_string(ntohl(source.sin_addr.s_addr)) + ":" + std::to_string(ntohs(source.sin_port));
}

/// Room for one batch of datagrams, used again and again.
struct Batch {
    Batch() {
        for (std::size_t i = 0; i < kBatch; ++i) {
            vectors[i] = {data[i].data(), data[i].size()};
        }
    }

    void prepare() {
        for (std::size_t i = 0; i < kBatch; ++i) {
            messages[i] = {};
            messages[i].msg_hdr.msg_name = &sources[i];
            messages[i].msg_hdr.msg_namelen = sizeof sources[i];
            messages[i].msg_hdr.msg_iov = &vectors[i];
            messages[i].msg_hdr.msg_iovlen = 1;
            messages[i].msg_hdr.msg_control = controls[i].bytes.data();
            messages[i].msg_hdr.msg_controllen = controls[i].bytes.size();
        }
    }

    struct alignas(cmsghdr) Control {
        std::array<unsigned char, 128> bytes;
    };

    std::array<std::array<std::uint8_t, kDatagramRoom>, kBatch> data{};
    std::array<iovec, kBatch> vectors{};
    std::array<sockaddr_in, kBatch> sources{};
    std::array<Control, kBatch> controls{};
    std::array<mmsghdr, kBatch> messages{};
};

}  // namespace

namespace {

/// Place of a socket's inode in its line of /proc/net/udp.
constexpr std::size_t kInodeWord = 9;

/// True when a socket other than `own` (-1: none) is bound to exactly this address. Connected ones do not
/// count.
bool is_bound(const std::string& ip, std::uint16_t port, int own) {
    struct stat status {};
    const ino_t own_inode = own != -1 && fstat(own, &status) == 0 ? status.st_ino : 0;
    // The table has the address as its raw 32-bit value and the port as a plain number.
    std::array<char, 16> local{};
    std::snprintf(local.data(), local.size(), "%08X:%04X", inet_addr(ip.c_str()), unsigned{port});
    std::ifstream table("/proc/net/udp");
    for (std::string line; std::getline(table, line);) {
        std::istringstream words(line);
        std::array<std::string, kInodeWord + 1> word;
        for (std::string& each : word) {
            words >> each;
        }
        if (word[1] == local.data() && word[2] == "00000000:0000" &&
            word[kInodeWord] != std::to_string(own_inode)) {
            return true;
        }
    }
    return false;
}

}  // namespace

void check_port_is_free(const std::string& ip, std::uint16_t port) {
    if (is_bound(ip, port, -1)) {
        errno = EADDRINUSE;
        fail("bind");
    }
}

PacketReceiver::PacketReceiver(const std::string& ip, std::uint16_t port) {
    check_port_is_free(ip, port);
    socket_ = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    stop_ = eventfd(0, EFD_CLOEXEC);
    ready_ = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    const int on = 1;
    const sockaddr_in address = to_sockaddr(ip, port);
    setsockopt(socket_, SOL_SOCKET, SO_RCVBUF, &kReceiveBuffer, sizeof kReceiveBuffer);
    // Reuse, so that an Art-Net program on the wildcard address does not stand in the way.
    setsockopt(socket_, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    if (socket_ == -1 || stop_ == -1 || ready_ == -1 ||
        setsockopt(socket_, SOL_SOCKET, SO_TIMESTAMPNS, &on, sizeof on) != 0 ||
        bind(socket_, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        const int error = errno;
        close_all();
        errno = error;
        fail("bind");
    }
    // Once more with the address bound: of two that begin at once, the later one to bind finds the other.
    if (is_bound(ip, port, socket_)) {
        close_all();
        errno = EADDRINUSE;
        fail("bind");
    }
    thread_ = std::thread(&PacketReceiver::receive, this);
    pthread_setname_np(thread_.native_handle(), "receive");
}

PacketReceiver::~PacketReceiver() {
    const std::uint64_t one = 1;
    [[maybe_unused]] const ssize_t written = write(stop_, &one, sizeof one);
    thread_.join();
    close_all();
}

std::vector<ReceivedPacket> PacketReceiver::take() {
    std::uint64_t count = 0;
    // Before the packets: one that comes in between is announced again.
    [[maybe_unused]] const ssize_t got = read(ready_, &count, sizeof count);
    const std::lock_guard guard{mutex_};
    return std::exchange(packets_, {});
}

void PacketReceiver::receive() {
    std::array<pollfd, 2> waits{{{socket_, POLLIN, 0}, {stop_, POLLIN, 0}}};
    while (waits[1].revents == 0) {
        poll(waits.data(), waits.size(), -1);
        take_batch();
    }
}

void PacketReceiver::take_batch() {
    thread_local Batch batch;
    batch.prepare();
    const int count = recvmmsg(socket_, batch.messages.data(), kBatch, MSG_DONTWAIT, nullptr);
    if (count <= 0) {
        return;
    }
    {
        const std::lock_guard guard{mutex_};
        for (std::size_t i = 0; i < static_cast<std::size_t>(count); ++i) {
            add(batch.data[i].data(), batch.messages[i].msg_len, batch.messages[i].msg_hdr);
        }
    }
    const std::uint64_t one = 1;
    [[maybe_unused]] const ssize_t written = write(ready_, &one, sizeof one);
}

void PacketReceiver::add(const std::uint8_t* bytes, std::size_t size, const msghdr& message) {
    ReceivedPacket& packet = packets_.emplace_back();
    packet.time = receive_time(message);
    if (size == artnet::kForwardingDatagramSize) {
        std::copy_n(bytes, packet.header.size(), packet.header.begin());
        // Address and port: all that the header says about the destination.
        packet.line.assign(packet.header.begin() + 4, packet.header.end());
        bytes += packet.header.size();
        size -= packet.header.size();
    } else {
        packet.line = source_text(message);
    }
    packet.bytes.assign(bytes, bytes + size);
}

void PacketReceiver::close_all() noexcept {
    for (const int descriptor : {socket_, stop_, ready_}) {
        if (descriptor != -1) {
            close(descriptor);
        }
    }
}

}  // namespace demo
