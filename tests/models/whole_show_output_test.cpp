// Whole shows, datagram by datagram: what goes out, and where to.

#include <cerrno>

#include "whole_show.h"

using namespace std::chrono_literals;

namespace {

using WholeShowOutputTest = WholeShowTest;

constexpr const char* kIp = "192.0.2.1";
constexpr int kPort = 6454;

/// A frame each 20 ms with three channels at the level given.
Recording steps(int universe, const std::vector<std::uint8_t>& levels) {
    Recording recording;
    for (const std::uint8_t level : levels) {
        recording.dmx(universe, {level, level, level}).frame_delay(20ms);
    }
    return recording;
}

ShowEffect effect(int id) {
    return ShowEffect(std::to_string(id) + ".rec");
}

ShowEffect to(int id, const std::string& output) {
    return effect(id).output(output);
}

TEST_F(WholeShowOutputTest, ABrightnessSetWhileAFrameGoesOutCountsFromTheNextFrame) {
    Recording recording;
    for (int frame = 0; frame < 3; ++frame) {
        recording.dmx(0, {255, 1}).dmx(1, {200, 99}).frame_delay(20ms);
    }
    add(ShowPlaylist(1), to(1, "*:192.0.2.1:6454"), recording);
    play(1);
    // The first packet of the second frame; its second packet still has the old brightness.
    call_while_sending(3, true, [this] { engine().set_brightness(1, 50); });
    play_until_sent(6);
    expect_sent({
        due(0ms, kIp, kPort, 0, {255, 1}),
        due(0ms, kIp, kPort, 1, {200, 99}),
        due(20ms, kIp, kPort, 0, {255, 1}),
        due(20ms, kIp, kPort, 1, {200, 99}),
        due(40ms, kIp, kPort, 0, {127, 0}),
        due(40ms, kIp, kPort, 1, {100, 49}),
    });
}

TEST_F(WholeShowOutputTest, BrightnessRampsOnePlaylistOfTwoInASharedFrame) {
    EXPECT_TRUE(engine().init_zones({{1, 5, {0}}, {2, 5, {2}}}));
    add(ShowPlaylist(1), to(1, "0:192.0.2.1:6454").zone(0, 1), steps(0, {100, 100, 100, 100}));
    add(ShowPlaylist(2), to(2, "0:192.0.2.1:6454").zone(0, 2), steps(0, {200, 200, 200, 200}));
    play(1);
    play(2);
    play_until_sent(2);
    engine().set_brightness(1, 10);
    play_until_sent(4);
    engine().set_brightness(1, 0);
    play_until_sent(6);
    expect_sent({
        due(0ms, kIp, kPort, 0, {100, 0, 0}),
        due(0ms, kIp, kPort, 0, {100, 0, 200}),
        due(20ms, kIp, kPort, 0, {10, 0, 200}),
        due(20ms, kIp, kPort, 0, {10, 0, 200}),
        due(40ms, kIp, kPort, 0, {0, 0, 200}),
        due(40ms, kIp, kPort, 0, {0, 0, 200}),
    });
}

TEST_F(WholeShowOutputTest, ZonesAreTakenAndGivenBackWhileOthersPlay) {
    EXPECT_TRUE(engine().init_zones({{1, 1, {0, 1}}, {2, 2, {1, 2}}}));
    add(ShowPlaylist(1), to(1, "0:192.0.2.1:6454").zone(0, 1), steps(0, {10, 11, 12, 13, 14, 15}));
    add(ShowPlaylist(2), to(2, "0:192.0.2.1:6454").zone(0, 2), steps(0, {20, 21, 22, 23, 24, 25}));
    // Without a zone: writes what nobody owns, here channel 3 of its four.
    Recording rest;
    for (std::uint8_t level = 30; level < 36; ++level) {
        rest.dmx(0, {level, level, level, level}).frame_delay(20ms);
    }
    add(ShowPlaylist(3), to(3, "0:192.0.2.1:6454"), rest);
    play(1);
    play_until_sent(1);
    play(2);
    play_until_sent(3);
    play(3);
    play_until_sent(6);
    engine().stop_playlist(2);
    play_until_sent(8);
    EXPECT_FALSE(engine().remove_all_zones());
    engine().stop_playlist(1);
    play_until_sent(9);
    expect_sent({
        due(0ms, kIp, kPort, 0, {10, 10, 0}),
        // Taken up when called, just after the first playlist's packet: from here the two go together.
        due(0ms, kIp, kPort, 0, {10, 20, 20}),
        due(20ms, kIp, kPort, 0, {11, 20, 20}),
        due(20ms, kIp, kPort, 0, {11, 21, 21}),
        due(20ms, kIp, kPort, 0, {11, 21, 21, 30}, 4),
        due(40ms, kIp, kPort, 0, {12, 21, 21, 30}, 3),
        // Channel 1 is the lower zone's again, channel 2 keeps its level until its new owner writes it.
        due(40ms, kIp, kPort, 0, {12, 21, 31, 31}, 4),
        due(60ms, kIp, kPort, 0, {13, 13, 31, 31}, 3),
        // With the last owner the frame is gone: the packet shows as it is.
        due(60ms, kIp, kPort, 0, {32, 32, 32, 32}, 4),
    });
}

TEST_F(WholeShowOutputTest, ANodeMapChangedWhileAFrameGoesOutCountsFromTheNextFrame) {
    Recording recording;
    for (std::uint8_t frame = 1; frame <= 2; ++frame) {
        recording.dmx(0, {frame}).dmx(1, {frame}).frame_delay(20ms);
    }
    add(ShowPlaylist(1), effect(1), recording);
    RepeaterAccess::update_artnet_node_map(engine(),
                                           QStringLiteral("1:0:192.0.2.10:6454;1:1:192.0.2.10:6454"));
    play(1);
    // Needs no engine lock: done while the worker sends the frame's first packet.
    call_while_sending(1, false, [this] {
        RepeaterAccess::update_artnet_node_map(engine(),
                                               QStringLiteral("1:1:192.0.2.11:6455;2:0:192.0.2.10:6454"));
    });
    play_until_sent(4);
    expect_sent({
        due(0ms, "192.0.2.10", kPort, 0, {1}),
        due(0ms, "192.0.2.10", kPort, 1, {1}),
        // Universe 0 has no node any more, universe 1 has two.
        due(20ms, "192.0.2.10", kPort, 1, {2}),
        due(20ms, "192.0.2.11", 6455, 1, {2}),
    });
}

TEST_F(WholeShowOutputTest, UnicastSwitchedOffWhileAFrameGoesOutCountsFromTheNextFrame) {
    Recording recording;
    for (std::uint8_t frame = 1; frame <= 2; ++frame) {
        recording.dmx(0, {frame}).dmx(1, {frame}).frame_delay(20ms);
    }
    add(ShowPlaylist(1), effect(1), recording);
    RepeaterAccess::update_artnet_node_map(engine(),
                                           QStringLiteral("1:0:192.0.2.10:6454;1:1:192.0.2.10:6454"));
    play(1);
    call_while_sending(1, true, [this] { engine().set_unicast_enabled(false); });
    play_until_sent(4);
    expect_sent({
        due(0ms, "192.0.2.10", kPort, 0, {1}),
        due(0ms, "192.0.2.10", kPort, 1, {1}),
        due(20ms, FakeDevice::kBroadcastIp, kPort, 0, {2}),
        due(20ms, FakeDevice::kBroadcastIp, kPort, 1, {2}),
    });
}

TEST_F(WholeShowOutputTest, AMutedUniverseIsSilentAndKeepsTheFramesTime) {
    Recording recording;
    for (std::uint8_t frame = 1; frame <= 2; ++frame) {
        // The muted packet is the one that carries the frame's delay.
        recording.dmx(0, {frame}).dmx(1, {frame}).frame_delay(20ms);
    }
    add(ShowPlaylist(1), to(1, "*:192.0.2.1:6454").zone(1, -2), recording);
    play(1);
    play_until_sent(3);
    expect_sent({
        due(0ms, kIp, kPort, 0, {1}),
        due(20ms, kIp, kPort, 0, {2}),
        // The last packet stands 30 ms.
        due(50ms, kIp, kPort, 0, {1}),
    });
}

TEST_F(WholeShowOutputTest, RefusedDatagramsEndTheirPacketAndTheShowGoesOnWithMergedLevels) {
    EXPECT_TRUE(engine().init_zones({{1, 1, {0}}, {2, 1, {1}}}));
    add(ShowPlaylist(1), to(1, "0:192.0.2.1:6454").output("0:192.0.2.2:6454").zone(0, 1),
        steps(0, {10, 11, 12}));
    add(ShowPlaylist(2), to(2, "0:192.0.2.1:6454").output("0:192.0.2.2:6454").zone(0, 2),
        steps(0, {20, 21, 22}));
    int attempt = 0;
    // Attempts from 1: the first destination of the first frame of playlist 2, the second destination of
    // the second frame of playlist 1.
    FakeUdpSocket::set_verdict([&attempt](const SentDatagram&) {
        ++attempt;
        return attempt == 3 || attempt == 5 ? ENOBUFS : 0;
    });
    play(1);
    play(2);
    play_until_sent(9);
    expect_sent({
        due(0ms, kIp, kPort, 0, {10, 0, 0}),
        due(0ms, "192.0.2.2", kPort, 0, {10, 0, 0}),
        // Refused, and with it the second destination; what was merged for the first stays in its frame.
        due(20ms, kIp, kPort, 0, {11, 20, 0}),
        // Refused at the second destination, whose frame has the levels all the same.
        due(20ms, kIp, kPort, 0, {11, 21, 0}),
        due(20ms, "192.0.2.2", kPort, 0, {11, 21, 0}),
        due(40ms, kIp, kPort, 0, {12, 21, 0}),
        due(40ms, "192.0.2.2", kPort, 0, {12, 21, 0}),
    });
    // Gone before the worker sends again.
    FakeUdpSocket::set_verdict(nullptr);
}

}  // namespace
