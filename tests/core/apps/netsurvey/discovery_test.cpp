// The real discovery, service, forwarder and simulated nodes on a network of this test's own.
#include <csignal>
#include <memory>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include "controller.h"
#include "discovery_rig.h"
#include "forwarder_socket.h"
#include "service.h"
#include "service_test.h"
#include "support/child_program.h"
#include "support/eventually.h"
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
