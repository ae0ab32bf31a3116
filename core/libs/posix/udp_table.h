#pragma once
// Who has which UDP port, from the system's table of sockets.

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace posix {

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
[[nodiscard]] std::optional<std::vector<UdpSocket>> read_udp_table(const std::string& root = "");

/// A process that holds a socket.
struct SocketHolder {
    int process = 0;
    /// Cut at 15 characters where this user may not see more.
    std::string name;
};

/// Nothing when nobody is seen to hold it, usually because it is somebody else's process.
[[nodiscard]] std::optional<SocketHolder> holder_of(const std::string& inode, const std::string& root = "");

/// "NAME (process ID)", or that it is not to be seen.
[[nodiscard]] std::string text_of(const std::optional<SocketHolder>& holder);

}  // namespace posix
