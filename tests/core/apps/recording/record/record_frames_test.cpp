// The whole program: where frames end, and what it writes behind each.
#include <chrono>
#include <csignal>
#include <string>
#include <system_error>
#include <thread>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "artnet/artnet_parser.h"
#include "record_program.h"
#include "support/artnet_sender.h"
#include "support/loaded_recording.h"

using namespace std::chrono_literals;

namespace {

using tests::ArtNetSender;
using tests::ChildProgram;
using tests::command;
using tests::port_of;

using RecordFramesTest = tests::RecordProgramFixture;

TEST_F(RecordFramesTest, AnArtSyncEndsAFrame) {
    ChildProgram program(command({"--port", "0", "--frame-gap", "1h", "--json", path()}));
    const std::uint16_t port = port_of(program);
    ASSERT_NE(port, 0) << program.error_output();
    const ArtNetSender sender;
    for (std::uint16_t universe = 1; universe <= 2; ++universe) {
        sender.send(port, tests::dmx_packet(universe, {9}));
        sender.send(port, tests::sync_packet());
    }
    program.signal(SIGINT);
    ASSERT_EQ(program.wait_exit(), 0) << program.error_output();
    const auto summary = nlohmann::json::parse(program.output());
    EXPECT_EQ(summary["frames"], 2);
    EXPECT_EQ(summary["frame_ends"]["sync"], 2);
    // By the loader, too: frames of their own have a time between them.
    const std::vector<Playlist::Packet> packets = tests::load_recording(path());
    ASSERT_EQ(packets.size(), 2U);
    EXPECT_GT(packets[0].delay, 0ns);
}

TEST_F(RecordFramesTest, APauseLongerThanTheFrameGapEndsAFrame) {
    ChildProgram program(command({"--port", "0", "--frame-gap", "2ms", "--json", path()}));
    const std::uint16_t port = port_of(program);
    ASSERT_NE(port, 0) << program.error_output();
    const ArtNetSender sender;
    sender.send(port, tests::dmx_packet(1, {9}));
    std::this_thread::sleep_for(3ms);
    sender.send(port, tests::dmx_packet(2, {9}));
    program.signal(SIGINT);
    ASSERT_EQ(program.wait_exit(), 0) << program.error_output();
    const auto summary = nlohmann::json::parse(program.output());
    EXPECT_EQ(summary["frames"], 2);
    EXPECT_EQ(summary["frame_ends"]["gap"], 1);
}

TEST_F(RecordFramesTest, MillisecondTimingAndAPeriodOfTheDiskAreAsAsked) {
    ChildProgram program(
        command({"--port", "0", "--frame-gap", "1h", "--timing", "ms", "--sync", "1h", path()}));
    const std::uint16_t port = port_of(program);
    ASSERT_NE(port, 0) << program.error_output();
    const ArtNetSender sender;
    for (std::uint8_t frame = 1; frame <= 5; ++frame) {
        sender.send(port, tests::dmx_packet(1, {frame}));
    }
    program.signal(SIGINT);
    ASSERT_EQ(program.wait_exit(), 0) << program.error_output();
    ArtNetParser parser;
    std::string types;
    parser.on_artdmx = [&](ArtDmx& dmx) { types += "dmx" + std::to_string(dmx.Data[0]) + " "; };
    parser.on_artoemvfps = [&](ArtOemVfps& timing) {
        EXPECT_EQ(timing.Header.OpCode, 0x00FF);
        types += "ms ";
    };
    parser.on_artoemvfpsns = [&](ArtOemVfpsNs&) { types += "ns "; };
    std::error_code error;
    parser.parse(path().c_str(), error);
    EXPECT_FALSE(error);
    EXPECT_EQ(types, "dmx1 ms dmx2 ms dmx3 ms dmx4 ms dmx5 ms ");
}

}  // namespace
