#include "posix/port_sharing.h"

#include <algorithm>
#include <cstdint>
#include <optional>
#include <utility>

#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/stat.h>

#include "posix/ipv4.h"
#include "posix/udp_table.h"

namespace posix {

namespace {

constexpr int kTries = 3;

/// The table with the given socket in it. One that is read while sockets come and go may lack some; sockets
/// of one port stand together. Empty when there is none to be had.
std::vector<UdpSocket> table_with(const std::string& inode) {
    for (int i = 0; i < kTries; ++i) {
        const auto table = read_udp_table();
        if (table && std::ranges::find(*table, inode, &UdpSocket::inode) != table->end()) {
            return *table;
        }
    }
    return {};
}

}  // namespace

std::vector<std::string> robbed_of_unicast(int descriptor) {
    sockaddr_in own{};
    socklen_t size = sizeof own;
    struct stat status {};
    if (getsockname(descriptor, reinterpret_cast<sockaddr*>(&own), &size) != 0 || own.sin_family != AF_INET ||
        fstat(descriptor, &status) != 0) {
        return {};
    }
    const std::string own_inode = std::to_string(status.st_ino);
    const std::uint32_t own_address = ntohl(own.sin_addr.s_addr);
    const std::string lost = own_address == INADDR_ANY ? "unicast" : "unicast to " + ipv4_text(own_address);
    std::vector<std::string> lines;
    for (const UdpSocket& other : table_with(own_inode)) {
        const bool robbed = other.address == INADDR_ANY || other.address == own_address;
        if (other.port != ntohs(own.sin_port) || other.connected || other.inode == own_inode || !robbed) {
            continue;
        }
        const std::string place = other.address == INADDR_ANY ? "*" : ipv4_text(other.address);
        std::string line = text_of(holder_of(other.inode)) + " shares " + place;
        line += ":" + std::to_string(other.port) + "; ";
        line += lost;
        line += " that came to it comes here now";
        lines.push_back(std::move(line));
    }
    return lines;
}

}  // namespace posix
