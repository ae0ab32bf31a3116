// A packet socket: what passes an interface, also when the port belongs to another program.

#include <array>
#include <cerrno>
#include <cstring>
#include <system_error>
#include <utility>

#include <arpa/inet.h>
#include <linux/filter.h>
#include <linux/if_ether.h>
#include <net/if.h>
#include <sys/ioctl.h>

#include "capture/ip_packet.h"
#include "capture/kernel_stamps.h"
#include "capture/source.h"

namespace capture {

namespace {

std::string error_text() {
    return std::generic_category().message(errno);
}

/// Lets UDP to `port` through, looking at the packet from its IPv4 header on. The others cost no copy.
bool attach_filter(int socket, std::uint16_t port) {
    std::array<sock_filter, 9> program{{
        {BPF_LD | BPF_B | BPF_ABS, 0, 0, 9},             // protocol
        {BPF_JMP | BPF_JEQ | BPF_K, 0, 5, IPPROTO_UDP},  // another: refuse
        {BPF_LD | BPF_H | BPF_ABS, 0, 0, 6},             // fragment offset
        {BPF_JMP | BPF_JSET | BPF_K, 3, 0, 0x1FFF},      // the ports are in the first fragment: refuse others
        {BPF_LDX | BPF_B | BPF_MSH, 0, 0, 0},            // length of the header
        {BPF_LD | BPF_H | BPF_IND, 0, 0, 2},             // destination port
        {BPF_JMP | BPF_JEQ | BPF_K, 1, 0, port},         // ours: take
        {BPF_RET | BPF_K, 0, 0, 0},                      // refuse
        {BPF_RET | BPF_K, 0, 0, 0xFFFFFFFF},             // take
    }};
    const sock_fprog filter{program.size(), program.data()};
    return setsockopt(socket, SOL_SOCKET, SO_ATTACH_FILTER, &filter, sizeof filter) == 0;
}

bool is_loopback(int socket, const std::string& interface) {
    ifreq request{};
    interface.copy(request.ifr_name, sizeof request.ifr_name - 1);
    return ioctl(socket, SIOCGIFFLAGS, &request) == 0 &&
           (static_cast<unsigned>(request.ifr_flags) & IFF_LOOPBACK) != 0;
}

class PacketSocketSource final : public Source {
public:
    PacketSocketSource(posix::FileDescriptor socket, bool loopback, std::string place)
        : Source(std::move(socket)), loopback_(loopback), place_(std::move(place)) {}

    [[nodiscard]] std::string place() const override { return place_; }

protected:
    [[nodiscard]] bool interpret(const BatchReader::Message& message, Datagram& datagram) const override {
        sockaddr_ll link{};
        std::memcpy(&link, &message.sender, sizeof link);
        // What goes out on loopback comes in as well, and is the same packet.
        if (loopback_ && link.sll_pkttype == PACKET_OUTGOING) {
            return false;
        }
        const std::optional<UdpInPacket> udp = udp_in(message.bytes);
        if (!udp) {
            return false;
        }
        datagram.sender = udp->sender;
        datagram.bytes = udp->payload;
        return true;
    }

private:
    bool loopback_;
    std::string place_;
};

}  // namespace

std::unique_ptr<Source> open_packet_socket(const std::string& interface, std::uint16_t port) {
    // Deaf until it is bound, so that nothing passes before the filter is there.
    posix::FileDescriptor descriptor(socket(AF_PACKET, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (!descriptor) {
        if (errno == EPERM || errno == EACCES) {
            throw SourceError(
                "a packet socket needs privileges: run as root, or give the program the right "
                "once with \"setcap cap_net_raw+ep PROGRAM\"");
        }
        throw SourceError("cannot create a packet socket: " + error_text());
    }
    const unsigned index = if_nametoindex(interface.c_str());
    if (index == 0) {
        throw SourceError("cannot watch interface " + interface + ": " + error_text() +
                          " (\"ip link\" lists the interfaces)");
    }
    if (!begin_stamps(descriptor.get())) {
        throw SourceError("the system gives no receive time stamps: " + error_text());
    }
    if (!attach_filter(descriptor.get(), port)) {
        throw SourceError("cannot attach a filter: " + error_text());
    }
    sockaddr_ll address{};
    address.sll_family = AF_PACKET;
    address.sll_protocol = htons(ETH_P_IP);
    address.sll_ifindex = static_cast<int>(index);
    if (bind(descriptor.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        throw SourceError("cannot watch interface " + interface + ": " + error_text());
    }
    const bool loopback = is_loopback(descriptor.get(), interface);
    return std::make_unique<PacketSocketSource>(std::move(descriptor), loopback,
                                                interface + " port " + std::to_string(port));
}

}  // namespace capture
