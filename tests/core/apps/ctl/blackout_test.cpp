// The blackout, through the real forwarder to receivers.

#include <filesystem>
#include <map>
#include <optional>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include "ctl_test.h"
#include "posix/file_descriptor.h"
#include "support/eventually.h"

using namespace integration;
using namespace std::chrono_literals;
using testing::HasSubstr;
using testing::Not;

namespace {

constexpr int kArtNetPort = 6454;
constexpr int kOtherPort = 7001;
constexpr std::size_t kPacketSize = 530;
constexpr std::size_t kHeaderSize = 18;
constexpr std::uintmax_t kEndless = std::uintmax_t{1} << 38;

/// A device of the network: keeps the last packet of each universe.
class Receiver {
public:
    Receiver(const char* ip, int port) : socket_(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(static_cast<std::uint16_t>(port));
        inet_pton(AF_INET, ip, &address.sin_addr);
        EXPECT_EQ(bind(socket_.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    }

    /// Waits until this level of channel 0 was the last one of the universe.
    bool shows(int universe, int level) {
        return eventually([&] {
            take_in();
            const auto found = last_.find(universe);
            return found != last_.end() && found->second[kHeaderSize] == level;
        });
    }
    /// The last packet of a universe.
    const std::vector<std::uint8_t>& last(int universe) { return last_[universe]; }
    [[nodiscard]] std::size_t universes() const { return last_.size(); }

private:
    void take_in() {
        std::vector<std::uint8_t> packet(kPacketSize + 1);
        for (pollfd wait{socket_.get(), POLLIN, 0}; poll(&wait, 1, 0) == 1;) {
            const ssize_t size = recv(socket_.get(), packet.data(), packet.size(), 0);
            ASSERT_EQ(size, static_cast<ssize_t>(kPacketSize));
            last_[packet[14] | packet[15] << 8] = {packet.begin(), packet.begin() + size};
        }
    }

    posix::FileDescriptor socket_;
    std::map<int, std::vector<std::uint8_t>> last_;
};

class BlackoutTest : public CtlTest {
protected:
    void SetUp() override {
        if (!network_missing().empty()) {
            GTEST_SKIP() << "needs a network of its own: " << network_missing();
        }
        // Universe 3 has no output: it goes to the nodes, or to the broadcast address.
        show()
            .recording(
                "1.rec",
                Recording{}.dmx(1, {200, 201, 202}).dmx(2, {210}).dmx(3, {220}).frame_delay(2ms).bytes())
            .playlist(ShowPlaylist(1).effect(
                ShowEffect("1.rec").output("1:192.0.2.1:6454").output("2:192.0.2.1:7001")));
    }
    /// Starts the forwarder, which keeps all packets on this machine.
    void start_forwarder() {
        forwarder_.emplace(std::vector<std::string>{
            CTL_FORWARDER, "--port", "6454", "--port", "7001", "--rewrite", "192.0.2.1/32=127.0.0.2",
            "--rewrite", "192.0.2.9/32=127.0.0.3", "--rewrite", "192.0.2.255/32=127.0.0.4"});
        ASSERT_TRUE(forwarder_->wait_for_error("listening on 127.0.0.1:7001,")) << forwarder_->error_output();
    }

    Receiver desk_{"127.0.0.2", kArtNetPort};
    Receiver other_port_{"127.0.0.2", kOtherPort};
    Receiver node_{"127.0.0.3", kArtNetPort};
    Receiver broadcast_{"127.0.0.4", kArtNetPort};
    std::optional<tests::ChildProgram> forwarder_;
};

constexpr const char* kNodes = "1:3:192.0.2.9:6454;1:77:192.0.2.9:6454";

}  // namespace

TEST_F(BlackoutTest, EverythingIsStoppedAndDarkWhereverOutputCanHaveGone) {
    start();
    start_forwarder();
    FakeDiscovery discovery(bus().address(), QString::fromLatin1(kNodes));
    ASSERT_TRUE(controller().play(1));
    ASSERT_TRUE(desk_.shows(1, 200));
    ASSERT_TRUE(other_port_.shows(2, 210));

    EXPECT_EQ(ctl_well({"blackout"}), "dark: 3 universes, 6 frames, each sent 4 times\n");
    EXPECT_TRUE(desk_.shows(1, 0));
    EXPECT_TRUE(other_port_.shows(2, 0));
    EXPECT_TRUE(node_.shows(3, 0));
    for (const int universe : {1, 2, 3}) {
        EXPECT_TRUE(broadcast_.shows(universe, 0));
    }
    // All 512 channels.
    const std::vector<std::uint8_t>& packet = desk_.last(1);
    EXPECT_EQ(packet[16] << 8 | packet[17], 512);
    EXPECT_EQ(std::vector<std::uint8_t>(packet.begin() + kHeaderSize, packet.end()),
              std::vector<std::uint8_t>(512, 0));
    // A node's universe that the show does not light is somebody else's.
    EXPECT_EQ(node_.universes(), 1U);
    // Stopped, not only dark.
    EXPECT_FALSE(controller().pause(1));
}

TEST_F(BlackoutTest, ADryRunListsTheFramesAndLeavesThePlaylistPlaying) {
    start();
    start_forwarder();
    FakeDiscovery discovery(bus().address(), QString::fromLatin1(kNodes));
    ASSERT_TRUE(controller().play(1));
    EXPECT_EQ(ctl_well({"blackout", "--dry-run"}),
              "UNIVERSE  DESTINATION            BECAUSE OF\n"
              "       1  192.0.2.1:6454         playlist 1\n"
              "       1  192.0.2.255:6454       broadcast\n"
              "       2  192.0.2.1:7001         playlist 1\n"
              "       2  192.0.2.255:6454       broadcast\n"
              "       3  192.0.2.255:6454       broadcast\n"
              "       3  192.0.2.9:6454         node\n");
    const QJsonObject report =
        QJsonDocument::fromJson(QByteArray::fromStdString(ctl_well(
                                    {"blackout", "--dry-run", "--json", "--broadcast", "10.1.255.255"})))
            .object();
    EXPECT_TRUE(report.value(QLatin1String("dry_run")).toBool());
    const QJsonArray frames = report.value(QLatin1String("frames")).toArray();
    ASSERT_EQ(frames.size(), 6);
    EXPECT_EQ(frames[0].toObject().value(QLatin1String("address")).toString(),
              QStringLiteral("10.1.255.255"));
    EXPECT_EQ(report.value(QLatin1String("datagrams_sent")).toInt(-1), 0);
    EXPECT_EQ(broadcast_.universes(), 0U);
    EXPECT_TRUE(desk_.shows(1, 200));
    EXPECT_TRUE(controller().pause(1));
}

TEST_F(BlackoutTest, WithoutAForwarderItFailsAndNamesThePorts) {
    start();
    const Ending ending = ctl({"blackout"});
    EXPECT_EQ(ending.status, 1);
    EXPECT_EQ(ending.output, "");
    EXPECT_THAT(ending.error,
                HasSubstr("127.0.0.1:6454: nobody listens there: is cuewright-forwarder running"));
    EXPECT_THAT(ending.error, HasSubstr("127.0.0.1:7001: nobody listens there"));
    EXPECT_THAT(ending.error, HasSubstr("no nodes: com.torvexserver.Netsurvey is not on the bus"));
}

TEST_F(BlackoutTest, WithoutTheServiceTheNamedDirectoryIsMadeDarkAllTheSame) {
    start();
    start_forwarder();
    ASSERT_TRUE(controller().play(1));
    ASSERT_TRUE(desk_.shows(1, 200));
    const SessionBus empty(installation().path());
    ASSERT_TRUE(empty.running());
    end();
    const std::string address = "--address=" + empty.address();
    Ending ending = ctl({address, "blackout"});
    EXPECT_EQ(ending.status, 3);
    EXPECT_THAT(ending.error, HasSubstr("name it with --data"));
    ending = ctl({address, "blackout", "--data", show().root().toStdString()});
    EXPECT_EQ(ending.status, 0);
    EXPECT_THAT(ending.error, HasSubstr("com.torvexserver.Cuewright is not on the bus"));
    EXPECT_TRUE(desk_.shows(1, 0));
    EXPECT_TRUE(broadcast_.shows(3, 0));
}

TEST_F(BlackoutTest, WhatIsKnownIsDarkWhileARecordingIsStillRead) {
    // All hole behind its only packet, so that reading it takes minutes.
    show()
        .recording("long.rec", Recording{}.dmx(4, {230}).bytes())
        .playlist(ShowPlaylist(2).effect(ShowEffect("long.rec").output("5:192.0.2.1:6454")));
    std::filesystem::resize_file(show().path("long.rec"), kEndless);
    start();
    start_forwarder();
    ASSERT_TRUE(controller().play(1));
    ASSERT_TRUE(desk_.shows(1, 200));
    tests::ChildProgram blackout(command({"blackout"}), environment());
    EXPECT_TRUE(desk_.shows(1, 0));
    EXPECT_TRUE(desk_.shows(5, 0));
    EXPECT_TRUE(other_port_.shows(2, 0));
    EXPECT_TRUE(broadcast_.shows(3, 0));
    EXPECT_TRUE(broadcast_.shows(4, 0));
    EXPECT_FALSE(blackout.wait_exit(0ms)) << blackout.error_output();
}

TEST_F(BlackoutTest, ABusThatCannotBeReachedIsAFailureAndTheFramesAreSent) {
    start();
    start_forwarder();
    ASSERT_TRUE(controller().play(1));
    ASSERT_TRUE(desk_.shows(1, 200));
    end();
    const Ending ending =
        ctl({"--address=unix:path=/nowhere/bus", "blackout", "--data", show().root().toStdString()});
    EXPECT_EQ(ending.status, 3);
    EXPECT_THAT(ending.error, HasSubstr("cannot connect to the session bus at unix:path=/nowhere/bus"));
    EXPECT_EQ(ending.output, "dark: 3 universes, 5 frames, each sent 4 times\n");
    EXPECT_TRUE(desk_.shows(1, 0));
    EXPECT_TRUE(broadcast_.shows(3, 0));
}

TEST_F(BlackoutTest, AServiceThatHangsIsToldAndTheFramesAreSent) {
    start();
    start_forwarder();
    halt_service();
    const Ending ending = ctl({"--call-timeout", "0.2", "blackout", "--data", show().root().toStdString()});
    EXPECT_EQ(ending.status, 4);
    EXPECT_THAT(ending.error, HasSubstr("has not answered stop within 0.2 s"));
    EXPECT_TRUE(desk_.shows(1, 0));
    resume_service();
}
