#pragma once
// A network, a bus, the discovery and a simulated node, for tests of the whole discovery.

#include <algorithm>
#include <csignal>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDBusReply>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTemporaryDir>

#include "ondra/artnet_node_map.h"
#include "service_test.h"
#include "session_bus.h"
#include "support/child_program.h"
#include "support/eventually.h"

/// Why there is no network of this program's own, with 10.77.0.1 for the discovery, two addresses for nodes
/// and a broadcast address; empty when there is one.
[[nodiscard]] const std::string& network_obstacle();

inline constexpr const char* kNode = "10.77.0.2";
inline constexpr const char* kStaticNode = "10.77.0.3";
inline constexpr int kUniverse = 5;

/// Keeps the map that a player would have.
class HeardNodes : public QObject {
    Q_OBJECT

public:
    ondra::ArtnetNodeMap map;

public Q_SLOTS:
    void on_nodes_updated(const QString& message) { ondra::update_artnet_node_map(message, map); }
};

/// Hears the discovery's signal and calls its methods.
class Listener {
public:
    explicit Listener(const std::string& address) : connection_(address) {
        EXPECT_TRUE(connection_.bus().connect(
            QStringLiteral("com.torvexserver.Netsurvey"), QStringLiteral("/"),
            QStringLiteral("com.torvexserver.Netsurvey.Dump"), QStringLiteral("OnArtnetNodesUpdated"),
            &heard_, SLOT(on_nodes_updated(QString))));
    }

    [[nodiscard]] std::vector<ondra::ArtnetNode> nodes_of(int universe) { return heard_.map[universe]; }
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

private:
    integration::BusConnection connection_;
    /// Goes before the connection, whose thread looks at the receivers that are left when it closes.
    HeardNodes heard_;
};

class DiscoveryTest : public testing::Test {
protected:
    void SetUp() override {
        if (!network_obstacle().empty()) {
            GTEST_SKIP() << network_obstacle();
        }
        integration::make_application();
        bus_ = std::make_unique<integration::SessionBus>(directory_.path().toStdString());
        ASSERT_TRUE(bus_->running()) << "no bus: is dbus-daemon installed?";
    }

    [[nodiscard]] std::string path(const char* name) const {
        return directory_.path().toStdString() + "/" + name;
    }
    [[nodiscard]] std::vector<std::string> bus_environment() const {
        return {"DBUS_SESSION_BUS_ADDRESS=" + bus_->address()};
    }
    [[nodiscard]] const integration::SessionBus& bus() const { return *bus_; }

    void start_discovery(std::vector<std::string> arguments = {}) {
        // Quick, so that the test is; a node that is slow to answer may go and come back meanwhile.
        arguments.insert(arguments.begin(), {NETSURVEY_PROGRAM, "--interval", "0.1", "--expiry", "1",
                                             "--state", path("state"), "--verbose"});
        discovery_ = std::make_unique<tests::ChildProgram>(arguments, bus_environment());
        ASSERT_TRUE(discovery_->wait_for_error("polling port 6454")) << discovery_->error_output();
    }
    /// Without a chance to do anything about it.
    void kill_discovery() { discovery_.reset(); }
    [[nodiscard]] tests::ChildProgram& discovery() { return *discovery_; }

    void start_node(const std::string& universes = std::to_string(kUniverse)) {
        node_ = std::make_unique<tests::ChildProgram>(std::vector<std::string>{
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
        tests::ChildProgram program(command, bus_environment());
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
    std::unique_ptr<integration::SessionBus> bus_;
    std::unique_ptr<tests::ChildProgram> discovery_;
    std::unique_ptr<tests::ChildProgram> node_;
};
