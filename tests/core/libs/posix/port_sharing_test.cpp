// Who has which UDP port, and who is left without unicast.
#include "posix/port_sharing.h"

#include <array>
#include <filesystem>
#include <fstream>
#include <string>

#include <sys/socket.h>
#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "posix/file_descriptor.h"
#include "posix/ipv4.h"
#include "posix/udp_table.h"

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

/// A bound UDP socket that permits others beside it.
class Socket {
public:
    Socket(std::uint32_t address, std::uint16_t port)
        : descriptor_(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
        const int on = 1;
        setsockopt(descriptor_.get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
        sockaddr_in place = posix::ipv4_sockaddr(address, port);
        socklen_t size = sizeof place;
        EXPECT_EQ(bind(descriptor_.get(), reinterpret_cast<const sockaddr*>(&place), size), 0);
        EXPECT_EQ(getsockname(descriptor_.get(), reinterpret_cast<sockaddr*>(&place), &size), 0);
        port_ = ntohs(place.sin_port);
    }

    [[nodiscard]] std::uint16_t port() const { return port_; }
    [[nodiscard]] std::vector<std::string> robbed() const {
        return posix::robbed_of_unicast(descriptor_.get());
    }

private:
    posix::FileDescriptor descriptor_;
    std::uint16_t port_ = 0;
};

/// What is said of a socket of this process.
std::string line(const std::string& place, std::uint16_t port, const std::string& what = "unicast") {
    return "port_sharing_test (process " + std::to_string(getpid()) + ") shares " + place + ":" +
           std::to_string(port) + "; " + what + " that came to it comes here now";
}

}  // namespace

TEST(UdpTableTest, LinesThatAreNoSocketsAreLeftOut) {
    const std::vector<posix::UdpSocket> sockets = posix::parse_udp_table(
        "heading\n\n 1: zz:1936 0 07\n 2: 0100007F:1936 00000000:0000 07 a b c d e 55 2\n");
    ASSERT_EQ(sockets.size(), 1U);
    EXPECT_EQ(sockets[0].address, 0x7F000001U);
    EXPECT_EQ(sockets[0].port, 6454);
    EXPECT_EQ(sockets[0].inode, "55");
    EXPECT_FALSE(sockets[0].connected);
}

TEST(UdpTableTest, ANameThatTheSystemHasCutIsTakenFromTheProgramsFile) {
    const std::filesystem::path root = testing::TempDir() + "udp_table_test." + std::to_string(getpid());
    const auto process = [&](int id, const std::string& name, const std::string& file) {
        const std::filesystem::path directory = root / "proc" / std::to_string(id);
        std::filesystem::create_directories(directory / "fd");
        std::ofstream(directory / "comm") << name << "\n";
        std::filesystem::create_symlink("socket:[" + std::to_string(id) + "]", directory / "fd/3");
        if (!file.empty()) {
            std::filesystem::create_symlink(file, directory / "exe");
        }
        return posix::text_of(posix::holder_of(std::to_string(id), root));
    };
    EXPECT_EQ(process(7, "cuewright-netsu", "/usr/bin/cuewright-netsurvey"),
              "cuewright-netsurvey (process 7)");
    EXPECT_EQ(process(8, "cuewright-netsu", "/usr/bin/cuewright-netsurvey (deleted)"),
              "cuewright-netsurvey (process 8)");
    EXPECT_EQ(process(9, "cuewright-netsu", ""), "cuewright-netsu (process 9)");
    EXPECT_EQ(process(10, "artnet.py", "/usr/bin/python3"), "artnet.py (process 10)");
    EXPECT_EQ(posix::text_of(posix::holder_of("11", root)), "a process that this user may not look into");
    std::filesystem::remove_all(root);
}

TEST(PortSharingTest, WhoHasTheSamePlaceOrAllAddressesIsRobbed) {
    const Socket everywhere(INADDR_ANY, 0);
    EXPECT_THAT(everywhere.robbed(), IsEmpty());
    const Socket loopback(INADDR_LOOPBACK, everywhere.port());
    EXPECT_THAT(loopback.robbed(), ElementsAre(line("*", everywhere.port(), "unicast to 127.0.0.1")));
    // What is more specific keeps its own.
    EXPECT_THAT(Socket(INADDR_ANY, everywhere.port()).robbed(), ElementsAre(line("*", everywhere.port())));
    EXPECT_THAT(Socket(INADDR_LOOPBACK, everywhere.port()).robbed(),
                testing::UnorderedElementsAre(line("*", everywhere.port(), "unicast to 127.0.0.1"),
                                              line("127.0.0.1", everywhere.port(), "unicast to 127.0.0.1")));
    EXPECT_THAT(Socket(INADDR_LOOPBACK + 1, 0).robbed(), IsEmpty());
}

TEST(PortSharingTest, WhatIsNoSocketOfThisFamilyRobsNobody) {
    std::array<int, 2> ends{};
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0, ends.data()), 0);
    const posix::FileDescriptor one(ends[0]);
    const posix::FileDescriptor other(ends[1]);
    EXPECT_THAT(posix::robbed_of_unicast(one.get()), IsEmpty());
    EXPECT_THAT(posix::robbed_of_unicast(-1), IsEmpty());
}
