// The discovery service goes, comes back, talks nonsense, or talks too much.

#include <memory>
#include <random>

#include <gmock/gmock.h>

#include "faults_test.h"

using namespace integration;
using namespace std::chrono_literals;
using testing::Contains;
using testing::Each;
using testing::HasSubstr;
using testing::Not;

namespace {

class FaultsDiscoveryTest : public FaultsTest {
protected:
    /// Playlist 1 goes to the nodes of universe 5.
    void start_with_nodes() {
        add_playlist(1, true, Recording{}.dmx(5, {7}).frame_delay(10ms).dmx(5, {8}).fill_to(512), {});
        start_with_beat();
        discovery_ = std::make_unique<Discovery>(bus().address());
        EXPECT_TRUE(controller().play(1));
    }
    /// A record that adds or removes a node of universe 5 at the test's socket.
    [[nodiscard]] std::string record(bool present, const std::string& ip) const {
        return record(present, ip, wire_.port());
    }
    [[nodiscard]] static std::string record(bool present, const std::string& ip, int port) {
        return std::string(present ? "1" : "0") + ":5:" + ip + ":" + std::to_string(port);
    }
    /// Waits for a frame to the node. The frames before it are skipped.
    void expect_frame_to(const std::string& ip) {
        wire_.next_where([&ip](const Frame& frame) { return frame.ip() == ip; });
    }
    /// The destinations of the frames that come while the beat brings some.
    [[nodiscard]] std::vector<std::string> destinations_now() {
        wire_.arrived();
        expect_beat_goes_on();
        std::vector<std::string> result;
        for (const Frame& frame : wire_.arrived()) {
            result.push_back(frame.ip());
        }
        return result;
    }
    Discovery& discovery() { return *discovery_; }
    void end_discovery() { discovery_.reset(); }
    void restart_discovery() { discovery_ = std::make_unique<Discovery>(bus().address()); }

    ForwarderSocket wire_;

private:
    std::unique_ptr<Discovery> discovery_;
};

}  // namespace

TEST_F(FaultsDiscoveryTest, ItsNodesStayWhenItGoesAndItIsHeardAgainWhenItComesBack) {
    start_with_nodes();
    discovery().announce(record(true, "10.0.0.1"));
    expect_frame_to("10.0.0.1");
    end_discovery();
    EXPECT_THAT(destinations_now(), testing::AllOf(Not(testing::IsEmpty()), Each("10.0.0.1")));

    restart_discovery();
    discovery().announce(record(true, "10.0.0.1") + ";" + record(true, "10.0.0.2"));
    expect_frame_to("10.0.0.2");
    // Told of twice, listed twice, and still one frame each: the two nodes alternate.
    std::vector<std::string> destinations = destinations_now();
    ASSERT_GE(destinations.size(), 4U);
    for (std::size_t i = 1; i < destinations.size(); ++i) {
        EXPECT_NE(destinations[i], destinations[i - 1]);
    }
    discovery().announce(record(false, "10.0.0.1") + ";" + record(true, "10.0.0.3"));
    expect_frame_to("10.0.0.3");
    EXPECT_THAT(destinations_now(), Contains("10.0.0.1"));
    discovery().announce(record(false, "10.0.0.1") + ";" + record(true, "10.0.0.4"));
    expect_frame_to("10.0.0.4");
    EXPECT_THAT(destinations_now(), Not(Contains("10.0.0.1")));
    EXPECT_EQ(trouble(), Lines{});
}

TEST_F(FaultsDiscoveryTest, GarbageLeavesTheNodesAsTheyWere) {
    start_with_nodes();
    discovery().announce(record(true, "10.0.0.1"));
    expect_frame_to("10.0.0.1");
    std::mt19937 random(1);
    const std::string alphabet = ":::;;;012346789.- \t\n%ns\\\"{}x";
    for (int message = 0; message < 500; ++message) {
        std::string text;
        for (std::size_t left = random() % 200; left > 0; --left) {
            text += alphabet[random() % alphabet.size()];
        }
        // Without a 5: nonsense with four fields does count, and universe 5 is being looked at.
        discovery().announce("x" + text + ":5:5:5:5:5");
    }
    std::string megabyte(1'000'000, ':');
    discovery().announce(megabyte);
    discovery().announce("1:5:10.0.0.2:" + std::to_string(wire_.port()) + ":too:many;nonsense;" +
                         record(true, "10.0.0.3"));
    expect_frame_to("10.0.0.3");
    EXPECT_THAT(destinations_now(), Not(Contains("10.0.0.2")));
    EXPECT_THAT(destinations_now(), Contains("10.0.0.1"));
    EXPECT_EQ(trouble(), Lines{});
}

TEST_F(FaultsDiscoveryTest, SomethingElseThanOneTextIsNotTaken) {
    start_with_nodes();
    discovery().announce(record(true, "10.0.0.1"));
    expect_frame_to("10.0.0.1");
    const QString addition = QString::fromStdString(record(true, "10.0.0.2"));
    discovery().announce_arguments({});
    discovery().announce_arguments({5});
    discovery().announce_arguments({QStringList{addition}});
    discovery().announce_arguments({5, addition});
    discovery().announce(record(true, "10.0.0.3"));
    expect_frame_to("10.0.0.3");
    EXPECT_THAT(destinations_now(), Not(Contains("10.0.0.2")));
    EXPECT_EQ(trouble(), Lines{});
}

TEST_F(FaultsDiscoveryTest, ABadAddressGoesToTheForwarderAndAPortOfZeroStarvesTheNodesBehindIt) {
    start_with_nodes();
    controller().set_log_level(6);
    discovery().announce(record(true, "10.0.0.1") + ";" + record(true, "no address") + ";" +
                         record(true, "zz"));
    expect_frame_to("no address");
    expect_frame_to("zz");
    discovery().announce(record(true, "no node", 0));
    ASSERT_TRUE(service().wait_for_log(
        "info [Repeater::do_render_work] Can't send packet (playlist_id:1, packet:0, universe:5) due to "
        "'Invalid argument', errno 22"));
    std::vector<std::string> destinations = destinations_now();
    EXPECT_THAT(destinations, Contains("10.0.0.1"));
    EXPECT_THAT(destinations, Contains("no address"));
    EXPECT_THAT(destinations, Not(Contains("zz")));
    discovery().announce(record(false, "no node", 0));
    expect_frame_to("zz");
    controller().set_log_level(3);
    EXPECT_EQ(trouble(), Lines{});
}

TEST_F(FaultsDiscoveryTest, AMillionRecordsAllCountAndNoFrameIsLost) {
    start_with_nodes();
    std::string message;
    message.reserve(30'000'000);
    const int records = is_slow() ? 200'000 : 1'000'000;
    for (int i = 0; i < records; ++i) {
        // Not in order, and enough in one universe to feel it.
        const int node = static_cast<int>((i * 7'919LL) % records);
        message += "1:" + std::to_string(i % 4 == 0 ? 100 : 101 + node % 20000) + ":10." +
                   std::to_string(node / 65536) + "." + std::to_string(node / 256 % 256) + "." +
                   std::to_string(node % 256) + ":6454;";
    }
    discovery().announce(message + record(true, "10.0.0.1"));
    // Once all is read.
    ASSERT_TRUE(wait_until([this] { return !wire_.arrived().empty(); }, 300s));
    EXPECT_TRUE(wait_for_answer(ask_level()));
    expect_beat_goes_on(50);
    // And it goes on being heard.
    discovery().announce(record(true, "10.0.0.2"));
    expect_frame_to("10.0.0.2");
    expect_beat_goes_on();
    EXPECT_EQ(trouble(), Lines{});
}
