#include "support/fake_udp_socket.h"

#include <cerrno>
#include <mutex>
#include <utility>

#include "ondra/net/udp_socket.h"

namespace {

constexpr std::size_t kAddressOffset = 4;
constexpr std::size_t kPacketOffset = 24;
constexpr std::size_t kFirstChannel = kPacketOffset + 18;

struct Memory {
    std::mutex mutex;
    FakeUdpSocket::Verdict verdict;
    std::vector<SentDatagram> sent;
    std::size_t attempts = 0;
    int destroyed = 0;
};

Memory& memory() {
    static Memory instance;
    return instance;
}

}  // namespace

std::string SentDatagram::destination() const {
    const auto byte = [this](std::size_t offset) { return int{bytes.at(offset)}; };
    const int destination_port = byte(20) | byte(21) << 8 | byte(22) << 16 | byte(23) << 24;
    return std::string(reinterpret_cast<const char*>(&bytes.at(kAddressOffset))) + ":" +
           std::to_string(destination_port);
}

int SentDatagram::universe() const {
    return bytes.at(kPacketOffset + 14) | bytes.at(kPacketOffset + 15) << 8;
}

int SentDatagram::length() const {
    return bytes.at(kPacketOffset + 16) << 8 | bytes.at(kPacketOffset + 17);
}

int SentDatagram::channel(int number) const {
    return bytes.at(kFirstChannel + static_cast<std::size_t>(number));
}

void FakeUdpSocket::reset() {
    const std::lock_guard guard{memory().mutex};
    memory().verdict = nullptr;
    memory().sent.clear();
    memory().attempts = 0;
    memory().destroyed = 0;
}

void FakeUdpSocket::set_verdict(Verdict verdict) {
    const std::lock_guard guard{memory().mutex};
    memory().verdict = std::move(verdict);
}

std::vector<SentDatagram> FakeUdpSocket::sent() {
    const std::lock_guard guard{memory().mutex};
    return memory().sent;
}

std::size_t FakeUdpSocket::sent_count() {
    const std::lock_guard guard{memory().mutex};
    return memory().sent.size();
}

std::size_t FakeUdpSocket::attempts() {
    const std::lock_guard guard{memory().mutex};
    return memory().attempts;
}

int FakeUdpSocket::destroyed() {
    const std::lock_guard guard{memory().mutex};
    return memory().destroyed;
}

// The members of ondra::net::UdpSocket that the engine links; with them defined here, the archive's own
// source stays out.
namespace ondra::net {

UdpSocket::~UdpSocket() {
    const std::lock_guard guard{memory().mutex};
    ++memory().destroyed;
}

int UdpSocket::writeDatagram(const char* data, unsigned size, const HostAddress& address, int port) {
    const auto* const first = reinterpret_cast<const unsigned char*>(data);
    SentDatagram datagram{{}, address.text(), port, {first, first + size}};
    const std::lock_guard guard{memory().mutex};
    ++memory().attempts;
    const int error = memory().verdict ? memory().verdict(datagram) : 0;
    if (error != 0) {
        errno = error;
        return -1;
    }
    datagram.time = Clock::now();
    memory().sent.push_back(std::move(datagram));
    return static_cast<int>(size);
}

}  // namespace ondra::net
