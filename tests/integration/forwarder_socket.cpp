#include "forwarder_socket.h"

#include <array>

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace integration {

namespace {

constexpr std::size_t kDatagramSize = 554;
constexpr int kReceiveBuffer = 8 * 1024 * 1024;
constexpr int kFirstPort = 20000;
constexpr int kPorts = 10000;

bool bind_to(int descriptor, int port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<std::uint16_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return bind(descriptor, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
}

int open_socket() {
    const int descriptor = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    // As large as the system allows, and larger where the test may do that.
    setsockopt(descriptor, SOL_SOCKET, SO_RCVBUF, &kReceiveBuffer, sizeof kReceiveBuffer);
    setsockopt(descriptor, SOL_SOCKET, SO_RCVBUFFORCE, &kReceiveBuffer, sizeof kReceiveBuffer);
    return descriptor;
}

}  // namespace

std::string Frame::ip() const {
    std::string text(bytes.begin() + 4, bytes.begin() + 20);
    return text.substr(0, text.find('\0'));
}

std::vector<int> Frame::levels(int count) const {
    std::vector<int> result;
    for (int channel = 0; channel < count; ++channel) {
        result.push_back(level(channel));
    }
    return result;
}

std::uint32_t Frame::little_endian(std::size_t offset) const {
    return static_cast<std::uint32_t>(byte(offset)) | static_cast<std::uint32_t>(byte(offset + 1)) << 8 |
           static_cast<std::uint32_t>(byte(offset + 2)) << 16 |
           static_cast<std::uint32_t>(byte(offset + 3)) << 24;
}

ForwarderSocket::ForwarderSocket() : descriptor_(open_socket()) {
    for (int i = 0; i < kPorts && port_ == 0; ++i) {
        const int port = kFirstPort + (getpid() * 16 + i) % kPorts;
        if (bind_to(descriptor_, port)) {
            port_ = port;
        }
    }
}

ForwarderSocket::ForwarderSocket(int port) : descriptor_(open_socket()), chosen_(true) {
    port_ = bind_to(descriptor_, port) ? port : 0;
}

ForwarderSocket::~ForwarderSocket() {
    if (chosen_) {
        close(descriptor_);
    }
}

std::string ForwarderSocket::output(const std::string& universe, const std::string& ip) const {
    return universe + ":" + ip + ":" + std::to_string(port_);
}

std::optional<Frame> ForwarderSocket::receive(std::chrono::milliseconds deadline) {
    pollfd wait{descriptor_, POLLIN, 0};
    if (poll(&wait, 1, static_cast<int>(deadline.count())) < 1) {
        return std::nullopt;
    }
    // One more than expected, to see what is too long.
    std::array<std::uint8_t, kDatagramSize + 1> buffer;
    const ssize_t size = recv(descriptor_, buffer.data(), buffer.size(), 0);
    if (size < 0) {
        return std::nullopt;
    }
    EXPECT_EQ(size, static_cast<ssize_t>(kDatagramSize));
    Frame frame{{buffer.begin(), buffer.begin() + size}, std::chrono::steady_clock::now()};
    frame.bytes.resize(kDatagramSize);
    return frame;
}

Frame ForwarderSocket::next() {
    std::optional<Frame> frame = receive();
    if (!frame) {
        ADD_FAILURE() << "no datagram at port " << port_;
        return {std::vector<std::uint8_t>(kDatagramSize), std::chrono::steady_clock::now()};
    }
    return *frame;
}

std::vector<Frame> ForwarderSocket::next(int count) {
    std::vector<Frame> frames;
    for (int i = 0; i < count; ++i) {
        std::optional<Frame> frame = receive();
        if (!frame) {
            ADD_FAILURE() << "no datagram " << i << " of " << count << " at port " << port_;
            break;
        }
        frames.push_back(*frame);
    }
    // Callers index without looking.
    frames.resize(static_cast<std::size_t>(count),
                  Frame{std::vector<std::uint8_t>(kDatagramSize), std::chrono::steady_clock::now()});
    return frames;
}

Frame ForwarderSocket::next_where(const std::function<bool(const Frame&)>& wanted) {
    const auto end = std::chrono::steady_clock::now() + kDeadline;
    while (std::chrono::steady_clock::now() < end) {
        std::optional<Frame> frame = receive();
        if (frame && wanted(*frame)) {
            return *frame;
        }
    }
    ADD_FAILURE() << "not the wanted datagram at port " << port_;
    return {std::vector<std::uint8_t>(kDatagramSize), std::chrono::steady_clock::now()};
}

std::vector<Frame> ForwarderSocket::arrived() {
    std::vector<Frame> frames;
    while (std::optional<Frame> frame = receive(std::chrono::milliseconds(0))) {
        frames.push_back(*frame);
    }
    return frames;
}

}  // namespace integration
