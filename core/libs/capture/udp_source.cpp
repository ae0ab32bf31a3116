// Plain UDP: what arrives for this host at one port.

#include <cerrno>
#include <cstring>
#include <system_error>
#include <utility>

#include "capture/kernel_stamps.h"
#include "capture/source.h"

namespace capture {

namespace {

/// Throws what could not be done, with what the system says and `hint` behind it.
[[noreturn]] void fail(const std::string& what, const char* hint = "") {
    const int reason = errno;
    throw SourceError(what + ": " + std::generic_category().message(reason) + hint, reason);
}

void permit_reuse(int socket) {
    const int on = 1;
    if (setsockopt(socket, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on) != 0) {
        fail("cannot permit address reuse");
    }
}

[[noreturn]] void refuse_bind(const UdpPlace& place) {
    const int reason = errno;
    const std::string where = endpoint_text({place.address, place.port});
    switch (reason) {
        case EADDRINUSE:
            throw SourceError(where +
                                  " is held by a program that lets nobody beside it; end that program "
                                  "(\"ss -ulnp sport = :" +
                                  std::to_string(place.port) + "\" names it) or watch with --packet-socket",
                              reason);
        case EACCES:
            throw SourceError(where + ": ports below 1024 need privileges; run as root or choose another",
                              reason);
        case EADDRNOTAVAIL:
            throw SourceError(where + " is no address of this machine", reason);
        default:
            errno = reason;
            fail("cannot bind " + where);
    }
}

posix::FileDescriptor open_bound(const UdpPlace& place) {
    posix::FileDescriptor descriptor(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (!descriptor) {
        fail("cannot create a socket");
    }
    if (!begin_stamps(descriptor.get())) {
        fail("the system gives no receive time stamps");
    }
    if (!place.interface.empty() &&
        setsockopt(descriptor.get(), SOL_SOCKET, SO_BINDTODEVICE, place.interface.data(),
                   static_cast<socklen_t>(place.interface.size())) != 0) {
        fail("cannot listen on interface " + place.interface, " (\"ip link\" lists the interfaces)");
    }
    const int on = 1;
    if (setsockopt(descriptor.get(), IPPROTO_IP, IP_PKTINFO, &on, sizeof on) != 0) {
        fail("the system does not tell at which address a datagram comes in");
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
        datagram.own_address = message.own_address.value_or(0);
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
