#include <algorithm>
#include <fstream>

#include <netinet/in.h>

#include "checks.h"
#include "posix/udp_table.h"

namespace ctl {

namespace {

using posix::UdpSocket;

constexpr int kArtNetPort = 6454;
/// What the system leaves of the forwarder's name at least.
constexpr const char* kForwarderName = "cuewright-forwa";

// What the kernel charges for one waiting datagram, and how many a burst has; it grants twice of what is
// asked.
constexpr long kDatagramCharge = 1280;
constexpr long kBurst = 2000;
constexpr long kNeededLimit = kDatagramCharge * kBurst / 2;
constexpr long kRecommendedLimit = 4L * 1024 * 1024;

bool listens(const UdpSocket& socket, std::uint32_t address, int port) {
    return socket.address == address && socket.port == port && !socket.connected;
}

const UdpSocket* find_listener(const std::vector<UdpSocket>& sockets, std::uint32_t address, int port) {
    const auto found = std::find_if(sockets.begin(), sockets.end(),
                                    [&](const UdpSocket& socket) { return listens(socket, address, port); });
    return found == sockets.end() ? nullptr : &*found;
}

Finding no_table(const char* check) {
    return {check, Verdict::Unknown, "the system's table of UDP sockets cannot be read", ""};
}

}  // namespace

Finding check_forwarder(const std::string& root) {
    const std::optional<std::vector<UdpSocket>> sockets = posix::read_udp_table(root);
    if (!sockets) {
        return no_table("forwarder");
    }
    const std::string start = "start cuewright-forwarder; without it nothing reaches the network";
    const UdpSocket* const listener = find_listener(*sockets, INADDR_LOOPBACK, kArtNetPort);
    if (listener == nullptr) {
        const UdpSocket* const other = find_listener(*sockets, INADDR_ANY, kArtNetPort);
        return {"forwarder", Verdict::Problem,
                other == nullptr
                    ? "nobody listens on 127.0.0.1:6454"
                    : "nobody listens on 127.0.0.1:6454 itself; what the service sends goes to " +
                          posix::text_of(posix::holder_of(other->inode, root)) +
                          ", which has port 6454 on all addresses",
                start};
    }
    const std::optional<posix::SocketHolder> holder = posix::holder_of(listener->inode, root);
    if (holder && !holder->name.starts_with(kForwarderName)) {
        return {"forwarder", Verdict::Problem, posix::text_of(holder) + " has 127.0.0.1:6454",
                "end that program, then " + start};
    }
    return {"forwarder", Verdict::Good, posix::text_of(holder) + " listens on 127.0.0.1:6454", ""};
}

Finding check_ports(const std::string& root, const std::optional<std::set<int>>& ports) {
    if (!ports) {
        return {"ports", Verdict::Unknown, "not to be found out without the data directory", ""};
    }
    const std::optional<std::vector<UdpSocket>> sockets = posix::read_udp_table(root);
    if (!sockets) {
        return no_table("ports");
    }
    std::string missing;
    std::string options;
    for (const int port : *ports) {
        // The port of Art-Net is the forwarder's own check.
        if (port != kArtNetPort && find_listener(*sockets, INADDR_LOOPBACK, port) == nullptr) {
            missing += (missing.empty() ? "" : ", ") + std::to_string(port);
            options += " --port " + std::to_string(port);
        }
    }
    if (!missing.empty()) {
        return {"ports", Verdict::Problem,
                "outputs of the data directory go to ports where nobody listens on 127.0.0.1: " + missing,
                "the service hands each packet to the port of its destination: run cuewright-forwarder "
                "--port 6454" +
                    options};
    }
    return {"ports", Verdict::Good,
            ports->empty() ? "no output names a port" : "every port of the outputs has a listener", ""};
}

Finding check_buffers(const std::string& root) {
    const std::string path = "/proc/sys/net/core/rmem_max";
    std::ifstream file(root + path);
    long limit = 0;
    if (!(file >> limit)) {
        return {"buffers", Verdict::Unknown, path + " cannot be read", ""};
    }
    const std::string text = "net.core.rmem_max is " + std::to_string(limit);
    if (limit < kNeededLimit) {
        return {"buffers", Verdict::Problem,
                text + ": a receive buffer of that size holds " +
                    std::to_string(2 * limit / kDatagramCharge) + " datagrams, a burst has up to " +
                    std::to_string(kBurst),
                "as root, run \"sysctl -w net.core.rmem_max=" + std::to_string(kRecommendedLimit) +
                    "\", put the same into a file of /etc/sysctl.d, and start the forwarder again (one that "
                    "runs as root takes the buffer that it needs in any case)"};
    }
    return {"buffers", Verdict::Good, text, ""};
}

}  // namespace ctl
