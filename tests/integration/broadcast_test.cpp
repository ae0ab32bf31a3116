// Output to the broadcast address, and what else needs particular ports or an "eth0".
//
// This program moves into a network of its own before anything else, with an "eth0" in it, so that it may use
// every port and address. Where the kernel refuses that, its tests are skipped.

#include "service_test.h"
#include "support/private_network.h"

using namespace integration;
using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr int kArtNetPort = 6454;
constexpr std::chrono::milliseconds kFrame{2};

/// Why there is no network of our own; empty when there is one.
const std::string network_missing = tests::enter_private_network_with_eth0();

class BroadcastTest : public ServiceTest {
protected:
    void SetUp() override {
        if (!network_missing.empty()) {
            GTEST_SKIP() << "needs a network of its own: " << network_missing;
        }
        art_net_ = std::make_unique<ForwarderSocket>(kArtNetPort);
        ASSERT_TRUE(art_net_->bound());
    }

    /// The forwarder's end at the port of Art-Net.
    [[nodiscard]] ForwarderSocket& art_net() { return *art_net_; }

private:
    std::unique_ptr<ForwarderSocket> art_net_;
};

}  // namespace

TEST_F(BroadcastTest, WithUnicastOffFramesGoToTheBroadcastAddressUntilItIsOnAgain) {
    add_playlist(1, true, Recording{}.dmx(5, {1, 2}).frame_delay(kFrame), {});
    start();
    ForwarderSocket node;
    Discovery discovery(bus().address());
    discovery.announce("1:5:10.0.0.9:" + std::to_string(node.port()));
    EXPECT_TRUE(controller().play(1));
    EXPECT_EQ(node.next().ip(), "10.0.0.9");
    EXPECT_THAT(art_net().arrived(), IsEmpty());

    controller().set_unicast_enabled(false);
    node.arrived();
    const Frame frame = art_net().next();
    EXPECT_EQ(frame.ip(), "192.0.2.255");
    EXPECT_EQ(frame.port(), kArtNetPort);
    EXPECT_EQ(frame.universe(), 5);
    EXPECT_EQ(frame.levels(3), (std::vector<int>{1, 2, 0}));
    static_cast<void>(art_net().next(3));
    EXPECT_THAT(node.arrived(), IsEmpty());

    controller().set_unicast_enabled(true);
    art_net().arrived();
    static_cast<void>(node.next(3));
    EXPECT_THAT(art_net().arrived(), IsEmpty());
}

TEST_F(BroadcastTest, BroadcastFramesMergeLikeAnyOthers) {
    show()
        .recording("1.rec", Recording{}.dmx(1, {10, 11}).bytes())
        .recording("2.rec", Recording{}.dmx(1, {20, 21}).bytes())
        .playlist(ShowPlaylist(1).effect(ShowEffect("1.rec").fps(200).zone(1, 10)))
        .playlist(ShowPlaylist(2).effect(ShowEffect("2.rec").fps(200).zone(1, 20)));
    start();
    controller().set_unicast_enabled(false);
    EXPECT_TRUE(controller().init_zones({{10, 1, {0}}, {20, 1, {1}}}));
    EXPECT_TRUE(controller().play(1));
    EXPECT_TRUE(controller().play(2));
    art_net().next_where([](const Frame& frame) { return frame.levels(2) == std::vector<int>{10, 21}; });
}

TEST_F(BroadcastTest, OfSeveralBroadcastAddressesTheLastIsUsed) {
    tests::ip("address add 198.51.100.10/24 broadcast 198.51.100.255 dev eth0");
    add_playlist(1, false, Recording{}.dmx(5, {1}), {});
    start();
    tests::ip("address del 198.51.100.10/24 dev eth0");
    controller().set_unicast_enabled(false);
    EXPECT_TRUE(controller().play(1));
    EXPECT_EQ(art_net().next().ip(), "198.51.100.255");
}

TEST_F(BroadcastTest, WithoutEth0TheBroadcastAddressIsEmpty) {
    tests::ip("link set eth0 down");
    tests::ip("link set eth0 name eth7");
    add_playlist(1, false, Recording{}.dmx(5, {1}), {});
    start();
    tests::ip("link set eth7 name eth0");
    tests::ip("link set eth0 up");
    controller().set_unicast_enabled(false);
    EXPECT_TRUE(controller().play(1));
    const Frame frame = art_net().next();
    EXPECT_EQ(frame.ip(), "");
    EXPECT_EQ(frame.port(), kArtNetPort);
}

TEST_F(BroadcastTest, TheArtNetPortIsWrittenLowByteFirst) {
    add_playlist(1, false, Recording{}.dmx(1, {1}), {art_net().output("1", "10.0.0.5")});
    start();
    EXPECT_TRUE(controller().play(1));
    const Frame frame = art_net().next();
    EXPECT_THAT(std::vector<int>(frame.bytes.begin() + 20, frame.bytes.begin() + 24),
                ElementsAre(0x36, 0x19, 0, 0));
}

TEST_F(BroadcastTest, DestinationsOfHighPortsShareTheirFrameAndOthersDoNot) {
    show()
        .recording("1.rec", Recording{}.dmx(1, {10, 11}).bytes())
        .recording("2.rec", Recording{}.dmx(1, {20, 21}).bytes());
    for (const int port : {40000, 30000}) {
        ForwarderSocket wire(port);
        ASSERT_TRUE(wire.bound());
        show()
            .playlist(ShowPlaylist(port + 1).effect(
                ShowEffect("1.rec").fps(200).output(wire.output("1", "10.0.0.1")).zone(1, 10)))
            .playlist(ShowPlaylist(port + 2).effect(
                ShowEffect("2.rec").fps(200).output(wire.output("1", "10.0.0.2")).zone(1, 20)));
        start();
        EXPECT_TRUE(controller().init_zones({{10, 1, {0}}, {20, 1, {1}}}));
        EXPECT_TRUE(controller().play(port + 1));
        EXPECT_TRUE(controller().play(port + 2));
        const auto second = [](const Frame& frame) { return frame.ip() == "10.0.0.2"; };
        wire.next_where(second);
        EXPECT_EQ(wire.next_where(second).levels(2),
                  (port == 40000 ? std::vector<int>{10, 21} : std::vector<int>{0, 21}));
        end();
    }
}
