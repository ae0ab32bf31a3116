#include "ondra/net/udp_socket.h"

#include <array>
#include <cerrno>
#include <cstdint>
#include <cstring>

#include <arpa/inet.h>
#include <fcntl.h>
#include <poll.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <unistd.h>

namespace ondra::net {

namespace {

sockaddr_in socket_address(in_addr address, int port) {
    sockaddr_in result{};
    result.sin_family = AF_INET;
    result.sin_port = htons(static_cast<std::uint16_t>(port));
    result.sin_addr = address;
    return result;
}

/// recvfrom() that starts again when a signal interrupts it.
ssize_t receive(int descriptor, void* data, std::size_t size, int flags, sockaddr_in* sender) {
    for (;;) {
        socklen_t length = sizeof(sockaddr_in);
        const ssize_t result = recvfrom(descriptor, data, size, flags, reinterpret_cast<sockaddr*>(sender),
                                        sender != nullptr ? &length : nullptr);
        if (result != -1 || errno != EINTR) {
            return result;
        }
    }
}

/// The readiness wait for descriptors that do not fit into an fd_set, with select()'s results.
int wait_with_poll(int descriptor, int timeout_ms, bool read) {
    pollfd entry{};
    entry.fd = descriptor;
    entry.events = read ? POLLIN : POLLOUT;
    const int result = poll(&entry, 1, timeout_ms < 0 ? -1 : timeout_ms);
    if (result > 0 && (entry.revents & POLLNVAL) != 0) {
        errno = EBADF;
        return -1;
    }
    return result;
}

}  // namespace

UdpSocket::~UdpSocket() {
    if (descriptor_ != -1) {
        close(descriptor_);
    }
}

bool UdpSocket::initialize() {
    if (initialized_) {
        return true;
    }
    // A descriptor left by a failed attempt is overwritten and stays open, on purpose: set-up is simply tried
    // from the start each time, and only the last descriptor belongs to the object.
    descriptor_ = socket(AF_INET, SOCK_DGRAM, 0);
    if (descriptor_ == -1) {
        return false;
    }
    const int flags = fcntl(descriptor_, F_GETFL, 0);
    if (flags == -1 || fcntl(descriptor_, F_SETFL, flags | O_NONBLOCK) == -1) {
        return false;
    }
    const int on = 1;
    if (setsockopt(descriptor_, SOL_SOCKET, SO_BROADCAST, &on, sizeof on) == -1) {
        return false;
    }
    initialized_ = true;
    return true;
}

bool UdpSocket::bind(const HostAddress& address, int port) {
    if (!initialize() || address.text() != "0.0.0.0") {
        return false;
    }
    const sockaddr_in local = socket_address(in_addr{htonl(INADDR_ANY)}, port);
    return ::bind(descriptor_, reinterpret_cast<const sockaddr*>(&local), sizeof local) == 0;
}

bool UdpSocket::bind(int port) {
    return bind(HostAddress(), port);
}

bool UdpSocket::hasPendingDatagrams() const {
    if (!initialized_) {
        return false;
    }
    char byte = 0;
    sockaddr_in sender{};
    return receive(descriptor_, &byte, sizeof byte, MSG_PEEK, &sender) != -1 || errno == EMSGSIZE;
}

int UdpSocket::pendingDatagramSize() const {
    if (!initialized_) {
        return -1;
    }
    std::array<char, 8192> buffer;
    const ssize_t size = receive(descriptor_, buffer.data(), buffer.size(), MSG_PEEK, nullptr);
    // A full buffer may hide more bytes, so its size is not known.
    return size == static_cast<ssize_t>(buffer.size()) ? -1 : static_cast<int>(size);
}

int UdpSocket::readDatagram(char* data, unsigned size, HostAddress* address, int* port) {
    if (!initialize()) {
        return 0;
    }
    char scratch = 0;
    const bool discard = size == 0;
    sockaddr_in sender{};
    const ssize_t received =
        receive(descriptor_, discard ? &scratch : data, discard ? sizeof scratch : size, 0, &sender);
    if (address != nullptr) {
        std::array<char, INET_ADDRSTRLEN> text{};
        inet_ntop(AF_INET, &sender.sin_addr, text.data(), text.size());
        *address = HostAddress(text.data());
    }
    if (port != nullptr) {
        *port = ntohs(sender.sin_port);
    }
    if (discard) {
        return received == -1 ? -1 : 0;
    }
    return static_cast<int>(received);
}

int UdpSocket::writeDatagram(const char* data, unsigned size, const HostAddress& address, int port) {
    if (!initialize() || !address.ipv4()) {
        return -1;
    }
    const sockaddr_in destination = socket_address(*address.ipv4(), port);
    return static_cast<int>(sendto(descriptor_, data, size, 0,
                                   reinterpret_cast<const sockaddr*>(&destination), sizeof destination));
}

int UdpSocket::select_with_tm(int timeout_ms, bool read) const {
    if (descriptor_ < 0 || descriptor_ >= FD_SETSIZE) {
        return wait_with_poll(descriptor_, timeout_ms, read);
    }
    fd_set set;
    FD_ZERO(&set);
    FD_SET(descriptor_, &set);
    timeval timeout{};
    timeout.tv_sec = timeout_ms / 1000;
    timeout.tv_usec = suseconds_t{timeout_ms % 1000} * 1000;
    return select(descriptor_ + 1, read ? &set : nullptr, read ? nullptr : &set, nullptr,
                  timeout_ms < 0 ? nullptr : &timeout);
}

bool UdpSocket::waitForReadyRead(int timeout_ms) {
    return initialize() && select_with_tm(timeout_ms, true) > 0;
}

}  // namespace ondra::net
