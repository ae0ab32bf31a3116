// Plain UDP: what arrives for this host at one port.

#include <cerrno>
#include <cstring>
#include <system_error>
#include <utility>

#include "capture/source.h"

namespace capture {

namespace {

std::string error_text() {
    return std::generic_category().message(errno);
}

void permit_reuse(int socket) {
    const int on = 1;
    if (setsockopt(socket, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on) != 0) {
        throw SourceError("cannot permit address reuse: " + error_text());
    }
}

[[noreturn]] void refuse_bind(const UdpPlace& place) {
    const std::string where = endpoint_text({place.address, place.port});
    switch (errno) {
        case EADDRINUSE:
            throw SourceError(where +
                              " is held by a program that lets nobody beside it; end that program "
                              "(\"ss -ulnp sport = :" +
                              std::to_string(place.port) + "\" names it) or watch with --packet-socket");
        case EACCES:
            throw SourceError(where + ": ports below 1024 need privileges; run as root or choose another");
        case EADDRNOTAVAIL:
            throw SourceError(where + " is no address of this machine");
        default:
            throw SourceError("cannot bind " + where + ": " + error_text());
    }
}

posix::FileDescriptor open_bound(const UdpPlace& place) {
    posix::FileDescriptor descriptor(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (!descriptor) {
        throw SourceError("cannot create a socket: " + error_text());
    }
    if (!place.interface.empty() &&
        setsockopt(descriptor.get(), SOL_SOCKET, SO_BINDTODEVICE, place.interface.data(),
                   static_cast<socklen_t>(place.interface.size())) != 0) {
        throw SourceError("cannot listen on interface " + place.interface + ": " + error_text() +
                          " (\"ip link\" lists the interfaces)");
    }
    // Of a free port the system makes sure only for who does not permit reuse, so that comes afterwards
    // there.
    if (place.port != 0) {
        permit_reuse(descriptor.get());
    }
    const sockaddr_in address = to_sockaddr({place.address, place.port});
    if (bind(descriptor.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        refuse_bind(place);
    }
    permit_reuse(descriptor.get());
    return descriptor;
}

class UdpSource final : public Source {
public:
    UdpSource(posix::FileDescriptor socket, std::string place)
        : Source(std::move(socket)), place_(std::move(place)) {}

    [[nodiscard]] std::string place() const override { return place_; }

protected:
    [[nodiscard]] bool interpret(const BatchReader::Message& message, Datagram& datagram) const override {
        sockaddr_in sender{};
        std::memcpy(&sender, &message.sender, sizeof sender);
        datagram.sender = from_sockaddr(sender);
        datagram.bytes = message.bytes;
        return true;
    }

private:
    std::string place_;
};

}  // namespace

std::unique_ptr<Source> open_udp(const UdpPlace& place) {
    posix::FileDescriptor descriptor = open_bound(place);
    sockaddr_in bound{};
    socklen_t size = sizeof bound;
    getsockname(descriptor.get(), reinterpret_cast<sockaddr*>(&bound), &size);
    std::string name = endpoint_text(from_sockaddr(bound));
    if (!place.interface.empty()) {
        name += " of " + place.interface;
    }
    return std::make_unique<UdpSource>(std::move(descriptor), std::move(name));
}

}  // namespace capture
