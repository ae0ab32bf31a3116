// Runs the built demo where something that it needs is missing, or with a wrong command line.

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <gtest/gtest.h>
#include <QTemporaryDir>

#include "support/ending.h"

using tests::Ending;

namespace {

class DemoRefusalTest : public testing::Test {
protected:
    [[nodiscard]] Ending run(std::vector<std::string> words,
                             std::vector<std::string> environment = {}) const {
        words.insert(words.begin(), CUEWRIGHT_DEMO);
        environment.push_back("TMPDIR=" + temporary_.path().toStdString());
        return tests::run_to_end(words, environment);
    }

    /// Whether a demo has left something in its temporary directory.
    [[nodiscard]] bool left_nothing() const {
        return std::filesystem::is_empty(temporary_.path().toStdString());
    }

    QTemporaryDir temporary_;
};

/// A socket on an address. The address permits reuse, as the demo does.
class Occupied {
public:
    /// @param port  0: one that is free on every address, if this is the wildcard address
    explicit Occupied(const char* ip, std::uint16_t port = 0) : socket_(socket(AF_INET, SOCK_DGRAM, 0)) {
        const int on = 1;
        if (port != 0) {
            setsockopt(socket_, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
        }
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = inet_addr(ip);
        address.sin_port = htons(port);
        socklen_t size = sizeof address;
        bound_ = bind(socket_, reinterpret_cast<const sockaddr*>(&address), size) == 0 &&
                 getsockname(socket_, reinterpret_cast<sockaddr*>(&address), &size) == 0;
        // Afterwards, so that the system has given the port to nobody else.
        setsockopt(socket_, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
        number_ = ntohs(address.sin_port);
        port_ = std::to_string(number_);
    }
    ~Occupied() { close(socket_); }
    Occupied(const Occupied&) = delete;
    Occupied& operator=(const Occupied&) = delete;

    [[nodiscard]] bool bound() const { return bound_; }
    [[nodiscard]] std::uint16_t number() const { return number_; }
    [[nodiscard]] const std::string& port() const { return port_; }

private:
    int socket_;
    bool bound_ = false;
    std::uint16_t number_ = 0;
    std::string port_;
};

}  // namespace

TEST_F(DemoRefusalTest, AnOccupiedPortIsNamedWithWhatToDo) {
    for (const char* ip : {"127.0.0.1", "127.0.0.2"}) {
        const Occupied everywhere("0.0.0.0");
        const Occupied occupied(ip, everywhere.number());
        ASSERT_TRUE(everywhere.bound() && occupied.bound());
        const Ending ending = run({"--port", occupied.port()});
        EXPECT_EQ(ending.status, 1);
        EXPECT_NE(ending.error.find("port " + occupied.port() + " on " + ip + " is taken"), std::string::npos)
            << ending.error;
        EXPECT_NE(ending.error.find("use another port: --port"), std::string::npos) << ending.error;
        EXPECT_TRUE(left_nothing());
    }
}

TEST_F(DemoRefusalTest, WithoutABusDaemonTheUserIsToldWhatToInstall) {
    // The wildcard address hinders nobody who permits reuse, and keeps the port from others.
    const Occupied everywhere("0.0.0.0");
    ASSERT_TRUE(everywhere.bound());
    const Ending ending = run({"--port", everywhere.port()}, {"PATH=/nonexistent"});
    EXPECT_EQ(ending.status, 1);
    EXPECT_NE(ending.error.find("apt-get install dbus-daemon"), std::string::npos) << ending.error;
    EXPECT_TRUE(left_nothing());
}

TEST_F(DemoRefusalTest, AMissingProgramIsNamed) {
    const Ending ending = run({"--service", "/nonexistent/cuewright"});
    EXPECT_EQ(ending.status, 1);
    EXPECT_NE(ending.error.find("\"/nonexistent/cuewright\" is not there; build it first"), std::string::npos)
        << ending.error;
}

TEST_F(DemoRefusalTest, ADirectoryWithContentIsNotUsedToKeepTheShow) {
    const std::string directory = temporary_.path().toStdString();
    std::filesystem::create_directory(directory + "/content");
    const Ending ending = run({"--keep", directory});
    EXPECT_EQ(ending.status, 1);
    EXPECT_NE(ending.error.find("is not empty"), std::string::npos) << ending.error;
    EXPECT_TRUE(std::filesystem::exists(directory + "/content"));
}

TEST_F(DemoRefusalTest, AWrongCommandLineEndsWithStatusTwo) {
    EXPECT_EQ(run({"--skip-call", "brightness-33"}).status, 2);
    EXPECT_EQ(run({"--port", "80"}).status, 2);
    EXPECT_EQ(run({"nonsense"}).status, 2);
}

TEST_F(DemoRefusalTest, HelpNamesTheCallsThatCanBeLeftOut) {
    const Ending ending = run({"--help"});
    EXPECT_EQ(ending.status, 0);
    EXPECT_NE(ending.output.find("brightness-50"), std::string::npos) << ending.output;
    EXPECT_NE(run({"--version"}).output.find("cuewright-demo "), std::string::npos);
}
