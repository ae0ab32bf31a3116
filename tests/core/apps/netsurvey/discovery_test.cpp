// The real discovery, service, forwarder and simulated nodes on a network of this test's own.
#include <csignal>
#include <fstream>
#include <memory>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDBusReply>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTemporaryDir>

#include "controller.h"
#include "forwarder_socket.h"
#include "ondra/artnet_node_map.h"
#include "posix/file_descriptor.h"
#include "posix/ipv4.h"
#include "service.h"
#include "service_test.h"
#include "session_bus.h"
#include "support/child_program.h"
#include "support/eventually.h"
#include "support/private_network.h"
#include "support/recording.h"
#include "support/show_directory.h"

using namespace integration;
using namespace std::chrono_literals;
using testing::AllOf;
using testing::Each;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using tests::ChildProgram;

namespace {

/// A network with a broadcast address, the discovery's address in it, and two for nodes.
const std::string kObstacle =
    tests::enter_private_network({"link add near type veth peer name far", "addr add 10.77.0.1/24 dev near",
                                  "addr add 10.77.0.2/24 dev near", "addr add 10.77.0.3/24 dev near",
                                  "link set near up", "link set far up"});

constexpr const char* kNode = "10.77.0.2";
constexpr const char* kStaticNode = "10.77.0.3";
constexpr int kUniverse = 5;

/// Hears the discovery's signal and keeps the map that a player would have.
class Listener : public QObject {
    Q_OBJECT

public:
    explicit Listener(const std::string& address) : connection_(address) {
        EXPECT_TRUE(connection_.bus().connect(
            QStringLiteral("com.torvexserver.Netsurvey"), QStringLiteral("/"),
            QStringLiteral("com.torvexserver.Netsurvey.Dump"), QStringLiteral("OnArtnetNodesUpdated"), this,
            SLOT(on_nodes_updated(QString))));
    }

    [[nodiscard]] std::vector<ondra::ArtnetNode> nodes_of(int universe) { return map_[universe]; }
    /// Waits until exactly this node is in the universe; none: an empty text.
    [[nodiscard]] bool wait_for(int universe, const std::string& address) {
        return eventually([&] {
            const std::vector<ondra::ArtnetNode> nodes = nodes_of(universe);
            return address.empty() ? nodes.empty() : nodes.size() == 1 && nodes[0].ip == address;
        });
    }
    /// Calls a method of the discovery's.
    QString call(const char* method) {
        const QDBusReply<QString> reply = connection_.bus().call(QDBusMessage::createMethodCall(
            QStringLiteral("com.torvexserver.Netsurvey"), QStringLiteral("/"),
            QStringLiteral("com.torvexserver.Netsurvey.Dump"), QLatin1String(method)));
        return reply.isValid() ? reply.value() : QStringLiteral("error: ") + reply.error().message();
    }
    [[nodiscard]] bool has_owner(const char* name) {
        return connection_.bus().interface()->isServiceRegistered(QLatin1String(name));
    }
    /// Whether whoever has the name answers a ping.
    [[nodiscard]] bool answers_ping(const char* name) {
        const QDBusMessage ping = QDBusMessage::createMethodCall(QLatin1String(name), QStringLiteral("/"),
                                                                 QStringLiteral("org.freedesktop.DBus.Peer"),
                                                                 QStringLiteral("Ping"));
        return connection_.bus().call(ping, QDBus::Block, 60'000).type() == QDBusMessage::ReplyMessage;
    }

public Q_SLOTS:
    void on_nodes_updated(const QString& message) { ondra::update_artnet_node_map(message, map_); }

private:
    BusConnection connection_;
    ondra::ArtnetNodeMap map_;
};

class DiscoveryTest : public testing::Test {
protected:
    void SetUp() override {
        if (!kObstacle.empty()) {
            GTEST_SKIP() << kObstacle;
        }
        make_application();
        bus_ = std::make_unique<SessionBus>(directory_.path().toStdString());
        ASSERT_TRUE(bus_->running()) << "no bus: is dbus-daemon installed?";
    }

    [[nodiscard]] std::string path(const char* name) const {
        return directory_.path().toStdString() + "/" + name;
    }
    [[nodiscard]] std::vector<std::string> bus_environment() const {
        return {"DBUS_SESSION_BUS_ADDRESS=" + bus_->address()};
    }
    [[nodiscard]] const SessionBus& bus() const { return *bus_; }

    void start_discovery(std::vector<std::string> arguments = {}) {
        // Quick, so that the test is; a node that is slow to answer may go and come back meanwhile.
        arguments.insert(arguments.begin(), {NETSURVEY_PROGRAM, "--interval", "0.1", "--expiry", "1",
                                             "--state", path("state"), "--verbose"});
        discovery_ = std::make_unique<ChildProgram>(arguments, bus_environment());
        ASSERT_TRUE(discovery_->wait_for_error("polling port 6454")) << discovery_->error_output();
    }
    /// Without a chance to do anything about it.
    void kill_discovery() { discovery_.reset(); }
    [[nodiscard]] ChildProgram& discovery() { return *discovery_; }

    void start_node(const std::string& universes = std::to_string(kUniverse)) {
        node_ = std::make_unique<ChildProgram>(std::vector<std::string>{
            NODE_PROGRAM, "--universe", universes, "--name", "front", "--address", kNode, "--json"});
        ASSERT_TRUE(node_->wait_for_error("listening at")) << node_->error_output();
    }
    void stop_node() {
        node_->signal(SIGTERM);
        EXPECT_EQ(node_->wait_exit(), 0);
    }
    /// ArtDmx packets that the node has counted.
    [[nodiscard]] int frames_of_node() {
        node_->signal(SIGUSR1);
        const QList<QByteArray> lines = QByteArray::fromStdString(node_->output()).split('\n');
        int frames = 0;
        for (const QByteArray& line : lines) {
            frames = std::max(frames,
                              QJsonDocument::fromJson(line).object().value(QLatin1String("packets")).toInt());
        }
        return frames;
    }

    /// Shows the list in another run of the program.
    [[nodiscard]] std::string list(const std::vector<std::string>& arguments = {}) const {
        std::vector<std::string> command{NETSURVEY_PROGRAM, "--list"};
        command.insert(command.end(), arguments.begin(), arguments.end());
        ChildProgram program(command, bus_environment());
        EXPECT_EQ(program.wait_exit(), 0) << program.error_output();
        return program.output();
    }
    [[nodiscard]] std::string static_nodes() const {
        std::ofstream(path("static.json")) << R"([{"address": ")" << kStaticNode << R"(", "universes": [)"
                                           << kUniverse << R"(], "name": "rack"}])";
        return path("static.json");
    }

private:
    QTemporaryDir directory_;
    std::unique_ptr<SessionBus> bus_;
    std::unique_ptr<ChildProgram> discovery_;
    std::unique_ptr<ChildProgram> node_;
};

/// With a show that goes to the nodes, and the forwarder, which tells what is sent where.
class PlayingDiscoveryTest : public DiscoveryTest {
protected:
    void SetUp() override {
        DiscoveryTest::SetUp();
        if (IsSkipped() || HasFatalFailure()) {
            return;
        }
        show_
            .recording(
                "1.rec",
                Recording{}.dmx(kUniverse, {7}).frame_delay(5ms).dmx(kUniverse, {8}).fill_to(512).bytes())
            .playlist(ShowPlaylist(1).loop(true).effect(ShowEffect("1.rec")));
        forwarder_ = std::make_unique<ChildProgram>(std::vector<std::string>{
            FORWARDER_PROGRAM, "--tee", "127.0.0.1:" + std::to_string(wire_.port())});
        ASSERT_TRUE(forwarder_->wait_for_error("listening on 127.0.0.1:6454")) << forwarder_->error_output();
    }
    void TearDown() override {
        controller_.reset();
        service_.reset();
    }

    void start_service(const ServiceSettings& extra = {}) {
        ServiceSettings settings = extra;
        settings.environment.push_back(bus_environment().front());
        service_ = std::make_unique<Service>(installation_, settings);
        ASSERT_EQ(service_->program().start_error(), 0);
    }
    void play() {
        ASSERT_TRUE(service_->wait_for_log(
            "info [Repeater::set_playlist_desc_path] Set playlist desc path (path:playlists/playlists.json)"))
            << service_->output();
        controller_ = std::make_unique<Controller>(bus().address());
        ASSERT_TRUE(controller_->play(1));
    }
    void end_service() {
        controller_.reset();
        service_.reset();
        wire_.arrived();
    }

    void expect_frames_to(const char* address) {
        wire_.next_where([&](const Frame& frame) { return frame.ip() == address; });
    }
    /// The nodes of a universe get each frame in turn, so one that is left out of several is left out of all.
    void expect_frames_only_to(const char* address) {
        constexpr int kInARow = 12;
        int in_a_row = 0;
        EXPECT_TRUE(wait_until([&] {
            for (const Frame& frame : wire_.arrived()) {
                in_a_row = frame.ip() == address ? in_a_row + 1 : 0;
            }
            return in_a_row >= kInARow;
        })) << "not only to "
            << address;
    }
    /// Two that get each frame, and so take turns; twice the same one would be a frame lost for the other.
    void expect_frames_to_both() {
        expect_frames_to(kNode);
        expect_frames_to(kStaticNode);
        expect_frames_to(kNode);
    }

private:
    ShowDirectory show_;
    Installation installation_{show_.root().toStdString()};
    ForwarderSocket wire_;
    std::unique_ptr<ChildProgram> forwarder_;
    std::unique_ptr<Service> service_;
    std::unique_ptr<Controller> controller_;
};

}  // namespace

TEST_F(DiscoveryTest, ANodeIsFoundListedAndRemovedWhenItStops) {
    Listener listener(bus().address());
    start_discovery({"--interface", "near"});
    EXPECT_EQ(list(), "no node\n");
    start_node("4-5,300");
    EXPECT_TRUE(listener.wait_for(4, kNode));
    EXPECT_TRUE(listener.wait_for(5, kNode));
    EXPECT_TRUE(listener.wait_for(300, kNode));
    EXPECT_TRUE(eventually([&] {
        return listener.call("list_nodes") ==
               QLatin1String("1:4:10.77.0.2:6454;1:5:10.77.0.2:6454;1:300:10.77.0.2:6454");
    }));
    EXPECT_TRUE(eventually([&] {
        const std::string table = list();
        return table.find("10.77.0.2  6454     1  front  4-5 ") != std::string::npos &&
               table.find("10.77.0.2  6454     2  front  300 ") != std::string::npos;
    })) << list();
    EXPECT_TRUE(eventually([&] {
        const QJsonArray nodes = QJsonDocument::fromJson(QByteArray::fromStdString(list({"--json"}))).array();
        const QJsonObject node = nodes.first().toObject();
        return nodes.size() == 2 && node.value(QLatin1String("address")) == QLatin1String(kNode) &&
               node.value(QLatin1String("long_name")) ==
                   QLatin1String("front, simulated by cuewright-node") &&
               node.value(QLatin1String("universes")).toArray() == QJsonArray{4, 5};
    })) << list({"--json"});

    stop_node();
    EXPECT_TRUE(listener.wait_for(4, ""));
    EXPECT_TRUE(listener.wait_for(300, ""));
    EXPECT_TRUE(eventually([&] { return list() == "no node\n"; }));
    discovery().signal(SIGTERM);
    EXPECT_EQ(discovery().wait_exit(), 0);
}

TEST_F(DiscoveryTest, TheListIsMadeOnTheSpotWhenNoDiscoveryRuns) {
    start_node();
    EXPECT_TRUE(eventually([&] {
        const std::string table = list({"--wait", "0.2", "--interval", "0.1", "--static", static_nodes()});
        return table.find("10.77.0.2  6454     1  front  5 ") != std::string::npos &&
               table.find("10.77.0.3  6454     -  rack   5 ") != std::string::npos;
    }));
}

TEST_F(DiscoveryTest, WhatCannotBeDoneIsSaid) {
    start_discovery();
    ChildProgram second({NETSURVEY_PROGRAM, "--state", path("other")}, bus_environment());
    EXPECT_EQ(second.wait_exit(), 3);
    EXPECT_THAT(second.error_output(), HasSubstr("another discovery has it"));
    discovery().signal(SIGINT);
    EXPECT_EQ(discovery().wait_exit(), 0);

    const posix::FileDescriptor taken(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    const sockaddr_in address = posix::ipv4_sockaddr(INADDR_ANY, 7000);
    ASSERT_EQ(bind(taken.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    ChildProgram without_port({NETSURVEY_PROGRAM, "--state", path("other"), "--port", "7000"},
                              bus_environment());
    EXPECT_EQ(without_port.wait_exit(), 1);
    EXPECT_THAT(without_port.error_output(),
                HasSubstr("cannot bind the wildcard address for port 7000: Address already"));
    ChildProgram without_file({NETSURVEY_PROGRAM, "--static", path("none")}, bus_environment());
    EXPECT_EQ(without_file.wait_exit(), 1);
    EXPECT_THAT(without_file.error_output(), HasSubstr("none: No such file"));
    ChildProgram without_bus({NETSURVEY_PROGRAM}, {"DBUS_SESSION_BUS_ADDRESS=unix:path=" + path("none")});
    EXPECT_EQ(without_bus.wait_exit(), 1);
    EXPECT_THAT(without_bus.error_output(), HasSubstr("no session bus"));
    ChildProgram wrong({NETSURVEY_PROGRAM, "--expiry", "1"});
    EXPECT_EQ(wrong.wait_exit(), 2);
}

TEST_F(PlayingDiscoveryTest, APlayerThatComesLaterKnowsAllNodesAndTheirFramesArrive) {
    Listener listener(bus().address());
    start_node();
    start_discovery({"--static", static_nodes()});
    ASSERT_TRUE(eventually([&] { return listener.nodes_of(kUniverse).size() == 2; }));
    for (int round = 0; round < 2; ++round) {
        start_service();
        play();
        expect_frames_to_both();
        const int before = frames_of_node();
        EXPECT_TRUE(eventually([&] { return frames_of_node() > before; }));
        end_service();
    }
}

TEST_F(PlayingDiscoveryTest, ADiscoveryThatBeginsAnewLeavesNoNodeMissingDoubledOrBehind) {
    start_service();
    play();
    start_node();
    start_discovery({"--static", static_nodes()});
    expect_frames_to_both();
    kill_discovery();
    expect_frames_to_both();
    start_discovery({"--static", static_nodes()});
    expect_frames_to_both();
    // One copy of it, so that one removal is enough.
    stop_node();
    expect_frames_only_to(kStaticNode);
    start_node();
    expect_frames_to_both();
    // Gone while nobody looked.
    kill_discovery();
    stop_node();
    start_discovery({"--static", static_nodes()});
    expect_frames_only_to(kStaticNode);
}

TEST_F(PlayingDiscoveryTest, APlayerThatSubscribesLongAfterItTookItsNameKnowsAllNodes) {
    Listener listener(bus().address());
    start_discovery({"--static", static_nodes()});
    ASSERT_TRUE(listener.wait_for(kUniverse, kStaticNode));
    ServiceSettings settings;
    settings.preload = LATE_SUBSCRIPTION;
    settings.environment = {"SUBSCRIBE_WHEN=" + path("subscribe")};
    start_service(settings);
    ASSERT_TRUE(eventually([&] { return listener.has_owner("com.torvexserver.Cuewright"); }));
    // The bus library's thread answers this; the discovery's own ping, sent before, is answered as well.
    ASSERT_TRUE(listener.answers_ping("com.torvexserver.Cuewright"));
    std::ofstream(path("subscribe")) << "now";
    play();
    expect_frames_to(kStaticNode);
}

#include "discovery_test.moc"
