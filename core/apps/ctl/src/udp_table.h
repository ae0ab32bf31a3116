#pragma once
// Who has which UDP port, from the system's table of sockets.

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace ctl {

/// A line of /proc/net/udp.
struct UdpSocket {
    /// IPv4, host byte order; 0: every address.
    std::uint32_t address = 0;
    int port = 0;
    /// Takes datagrams from one peer only.
    bool connected = false;
    std::string inode;
};

/// Lines that cannot be read are left out.
[[nodiscard]] std::vector<UdpSocket> parse_udp_table(const std::string& table);

/// The table of this network; nothing when it cannot be read. @param root  stands before /proc
[[nodiscard]] std::optional<std::vector<UdpSocket>> read_udp_table(const std::string& root);

/// A process that holds a socket.
struct SocketHolder {
    int process = 0;
    /// As the system cuts it, at 15 characters.
    std::string name;
};

/// Nothing when nobody is seen to hold it, usually because it is somebody else's process.
[[nodiscard]] std::optional<SocketHolder> holder_of(const std::string& inode, const std::string& root);

}  // namespace ctl
