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

bool is_forwarder(const posix::SocketHolder& holder) {
    return holder.name.starts_with(kForwarderName);
}

Finding no_table(const char* check) {
    return {check, Verdict::Unknown, "the system's table of UDP sockets cannot be read", ""};
}

void append(std::string& text, const char* separator, const std::string& more) {
    text += (text.empty() ? "" : separator) + more;
}

/// What the check of the ports has found so far.
struct PortFindings {
    std::string problems;
    std::string advice;
    std::string listeners;
};

/// Unicast goes to one only of those who have a port on all addresses.
void look_for_sharing(const std::vector<UdpSocket>& sockets, const std::string& root, PortFindings& found) {
    std::set<int> processes;
    std::size_t count = 0;
    std::string holders;
    for (const UdpSocket& socket : sockets) {
        if (!listens(socket, INADDR_ANY, kArtNetPort)) {
            continue;
        }
        const std::optional<posix::SocketHolder> holder = posix::holder_of(socket.inode, root);
        if (!holder || processes.insert(holder->process).second) {
            append(holders, " and ", posix::text_of(holder));
            ++count;
        }
    }
    if (count > 1) {
        append(found.problems, "; ",
               "*:6454 is shared by " + holders +
                   ": unicast, such as the replies of nodes, reaches only the one that began last");
        append(found.advice, "; ",
               "end the one that is not needed, or have it bind the address of its interface (a recorder or "
               "monitor can watch with --packet-socket), and start cuewright-netsurvey again");
    }
}

/// The port of Art-Net is the forwarder's own check.
void look_for_listeners(const std::vector<UdpSocket>& sockets, const std::string& root,
                        const std::set<int>& ports, PortFindings& found) {
    std::string missing;
    std::string options;
    for (const int port : ports) {
        if (port == kArtNetPort) {
            continue;
        }
        const UdpSocket* const listener = find_listener(sockets, INADDR_LOOPBACK, port);
        if (listener == nullptr) {
            append(missing, ", ", std::to_string(port));
            options += " --port " + std::to_string(port);
            continue;
        }
        const std::optional<posix::SocketHolder> holder = posix::holder_of(listener->inode, root);
        const std::string text = posix::text_of(holder);
        if (holder && !is_forwarder(*holder)) {
            append(found.problems, "; ", text + " has 127.0.0.1:" + std::to_string(port));
            append(found.advice, "; ", "end " + holder->name + ", then start cuewright-forwarder again");
        }
        append(found.listeners, ", ", std::to_string(port) + " " + text);
    }
    if (!missing.empty()) {
        append(found.problems, "; ",
               "outputs of the data directory go to ports where nobody listens on 127.0.0.1: " + missing);
        append(found.advice, "; ",
               "the service hands each packet to the port of its destination: run cuewright-forwarder --port "
               "6454" +
                   options);
    }
}

/// A limit of the system's.
struct Limit {
    std::string name;
    std::optional<long> value;
    /// What it is, or that it cannot be read.
    std::string text;
};

Limit read_limit(const std::string& root, const std::string& name) {
    const std::string path = "/proc/sys/net/core/" + name;
    std::ifstream file(root + path);
    long value = 0;
    if (!(file >> value)) {
        return {"net.core." + name, std::nullopt, path + " cannot be read"};
    }
    return {"net.core." + name, value, "net.core." + name + " is " + std::to_string(value)};
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
    if (holder && !is_forwarder(*holder)) {
        return {"forwarder", Verdict::Problem, posix::text_of(holder) + " has 127.0.0.1:6454",
                "end that program, then " + start};
    }
    return {"forwarder", Verdict::Good, posix::text_of(holder) + " listens on 127.0.0.1:6454", ""};
}

Finding check_ports(const std::string& root, const std::optional<std::set<int>>& ports) {
    const std::optional<std::vector<UdpSocket>> sockets = posix::read_udp_table(root);
    if (!sockets) {
        return no_table("ports");
    }
    PortFindings found;
    look_for_sharing(*sockets, root, found);
    if (ports) {
        look_for_listeners(*sockets, root, *ports, found);
    }
    if (!found.problems.empty()) {
        return {"ports", Verdict::Problem, found.problems, found.advice};
    }
    if (!ports) {
        return {"ports", Verdict::Unknown, "not to be found out without the data directory", ""};
    }
    if (ports->empty()) {
        return {"ports", Verdict::Good, "no output names a port", ""};
    }
    return {
        "ports", Verdict::Good,
        "every port of the outputs has a listener" + (found.listeners.empty() ? "" : ": " + found.listeners),
        ""};
}

Finding check_buffers(const std::string& root) {
    const Limit receive = read_limit(root, "rmem_max");
    const Limit send = read_limit(root, "wmem_max");
    std::string problems;
    std::string settings;
    const auto complain = [&](const Limit& limit, const std::string& consequence) {
        if (!limit.value || *limit.value >= kNeededLimit) {
            return;
        }
        append(problems, "; ",
               limit.text + ": a buffer of that size holds " +
                   std::to_string(2 * *limit.value / kDatagramCharge) + " datagrams, a burst has up to " +
                   std::to_string(kBurst) + ", " + consequence);
        append(settings, " ", limit.name + "=" + std::to_string(kRecommendedLimit));
    };
    complain(receive, "and what finds no room on its way to the forwarder is lost");
    complain(send, "and the forwarder waits for the network then");
    if (!problems.empty()) {
        return {"buffers", Verdict::Problem, problems,
                "as root, run \"sysctl -w " + settings +
                    "\", put the same into a file of /etc/sysctl.d, and start the forwarder again (one that "
                    "runs as root takes the buffers that it needs in any case)"};
    }
    for (const Limit& limit : {receive, send}) {
        if (!limit.value) {
            return {"buffers", Verdict::Unknown, limit.text, ""};
        }
    }
    return {"buffers", Verdict::Good, receive.text + ", " + send.text, ""};
}

}  // namespace ctl
