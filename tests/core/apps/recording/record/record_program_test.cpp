// The whole program: what a sender sends is what the file plays.
#include <algorithm>
#include <csignal>
#include <filesystem>
#include <span>
#include <string>
#include <vector>

#include <linux/capability.h>
#include <sys/mount.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "artnet/artnet_parser.h"
#include "artnet/forwarding_datagram.h"
#include "record_program.h"
#include "support/artnet_sender.h"
#include "support/child_process.h"
#include "support/loaded_recording.h"
#include "support/terminal.h"

using namespace std::chrono_literals;

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using tests::ArtNetSender;
using tests::ChildProgram;
using tests::command;
using tests::port_of;

using RecordProgramTest = tests::RecordProgramFixture;

TEST_F(RecordProgramTest, AnInterruptedCapturePlaysWithTheIntervalsOfTheKernelsOwnStamps) {
    ChildProgram program(command({"--port", "0", "--frame-gap", "1h", "--json", path()}));
    const std::uint16_t port = port_of(program);
    ASSERT_NE(port, 0) << program.error_output();
    // Broadcasts, so that a socket of the test's own, which shares the port, is given the same stamps.
    const ArtNetSender witness(0, port);
    const ArtNetSender sender;
    std::vector<std::chrono::nanoseconds> stamps;
    for (std::uint8_t frame = 1; frame <= 20; ++frame) {
        for (std::uint16_t universe = 7; universe < 10; ++universe) {
            // The levels are those that a careless reader would take for the beginning of an identifier.
            sender.send(port, tests::dmx_packet(universe, {frame, 'A', 'r', 't', 'A'}, frame),
                        ArtNetSender::kLoopbackBroadcast);
            const std::chrono::nanoseconds stamp = witness.receive_stamp();
            if (universe == 7) {
                stamps.push_back(stamp);
            }
        }
    }
    sender.send(port, {'g', 'a', 'r', 'b', 'a', 'g', 'e'}, ArtNetSender::kLoopbackBroadcast);
    std::vector<std::uint8_t> cut = tests::dmx_packet(7, {1, 2, 3});
    cut.pop_back();
    sender.send(port, cut, ArtNetSender::kLoopbackBroadcast);
    program.signal(SIGINT);
    ASSERT_EQ(program.wait_exit(), 0) << program.error_output();

    const std::vector<Playlist::Packet> packets = tests::load_recording(path());
    ASSERT_EQ(packets.size(), 60U);
    for (std::size_t i = 0; i < packets.size(); ++i) {
        const std::size_t frame = i / 3;
        EXPECT_EQ(packets[i].data,
                  tests::dmx_packet(static_cast<std::uint16_t>(7 + i % 3),
                                    {static_cast<std::uint8_t>(frame + 1), 'A', 'r', 't', 'A'},
                                    static_cast<std::uint8_t>(frame + 1)));
        const std::chrono::nanoseconds expected = i % 3 != 2 ? 0ns
                                                  : i == 59  ? std::chrono::nanoseconds(30ms)
                                                             : stamps[frame + 1] - stamps[frame];
        EXPECT_EQ(packets[i].delay, expected) << "packet " << i;
    }
    EXPECT_EQ(std::filesystem::file_size(path()) % 512, 0U);

    const auto summary = nlohmann::json::parse(program.output());
    EXPECT_EQ(summary["frames"], 20);
    EXPECT_EQ(summary["universes"].size(), 3U);
    EXPECT_EQ(summary["universes"][0]["universe"], 7);
    EXPECT_EQ(summary["universes"][0]["lost"], 0);
    EXPECT_EQ(summary["frame_ends"]["repetition"], 19);
    EXPECT_EQ(summary["not_recorded"]["not_artnet"], 1);
    EXPECT_EQ(summary["not_recorded"]["malformed"], 1);
    EXPECT_EQ(summary["kernel_drops"], 0);
    EXPECT_EQ(summary["duration_ns"], (stamps.back() - stamps.front() + 30ms).count());
}

TEST_F(RecordProgramTest, FiltersLeaveOutOtherUniversesAndSendersAndIdlenessEndsIt) {
    const ArtNetSender sender;
    const ArtNetSender other(0x7F000002);
    ChildProgram program(command({"--port", "0", "--universe", "1-2,5", "--source", "127.0.0.1",
                                  "--until-idle", "300ms", "--timing", "ms", path()}));
    const std::uint16_t port = port_of(program);
    ASSERT_NE(port, 0) << program.error_output();
    // All of it is there before the program looks, however long the sending takes.
    ASSERT_TRUE(program.halt());
    for (std::uint16_t universe = 0; universe < 7; ++universe) {
        sender.send(port, tests::dmx_packet(universe, {1}));
        other.send(port, tests::dmx_packet(universe, {2}));
    }
    program.signal(SIGCONT);
    ASSERT_EQ(program.wait_exit(), 0) << program.error_output();
    std::vector<int> universes;
    for (const Playlist::Packet& packet : tests::load_recording(path())) {
        universes.push_back(packet.universe);
        EXPECT_EQ(packet.data.back(), 1);
    }
    EXPECT_THAT(universes, ElementsAre(1, 2, 5));
    EXPECT_THAT(program.output(), HasSubstr("of 3 universes"));
    EXPECT_THAT(program.output(), HasSubstr("filtered 11, "));
}

TEST_F(RecordProgramTest, OfAUniverseForSeveralDestinationsOneCopyIsRecorded) {
    const auto record = [&](const std::vector<std::string>& options) {
        std::vector<std::string> arguments{"--port", "0", "--wrapped", "--json", "--force", path()};
        arguments.insert(arguments.end(), options.begin(), options.end());
        ChildProgram program(command(arguments));
        const std::uint16_t port = port_of(program);
        EXPECT_NE(port, 0) << program.error_output();
        const ArtNetSender sender;
        for (std::uint8_t frame = 1; frame <= 5; ++frame) {
            for (const char* const destination : {"10.0.0.1", "10.0.0.2"}) {
                std::vector<std::uint8_t> datagram(artnet::kForwardingDatagramSize);
                artnet::write_forwarding_header(std::span(datagram).first<artnet::kForwardingHeaderSize>(), 0,
                                                destination, 6454);
                const std::vector<std::uint8_t> packet = tests::dmx_packet(4, {frame}, frame);
                std::ranges::copy(packet, datagram.begin() + artnet::kForwardingHeaderSize);
                sender.send(port, datagram);
            }
        }
        program.signal(SIGINT);
        EXPECT_EQ(program.wait_exit(), 0) << program.error_output();
        EXPECT_THAT(program.error_output(), testing::Not(HasSubstr("two ")));
        return nlohmann::json::parse(program.output());
    };
    const auto first = record({});
    EXPECT_EQ(first["frames"], 5);
    EXPECT_EQ(first["universes"][0]["frames"], 5);
    EXPECT_EQ(first["universes"][0]["repeated"], 0);
    EXPECT_EQ(first["universes"][0]["destinations"], nlohmann::json::array({"10.0.0.1:6454"}));
    EXPECT_TRUE(first["conflicts"].empty());
    EXPECT_EQ(first["not_recorded"]["filtered"], 5);
    EXPECT_EQ(tests::load_recording(path()).size(), 5U);
    const auto second = record({"--source", "10.0.0.2"});
    EXPECT_EQ(second["universes"][0]["destinations"], nlohmann::json::array({"10.0.0.2:6454"}));
    EXPECT_EQ(second["not_recorded"]["filtered"], 5);
}

TEST_F(RecordProgramTest, TwoSendersOfOneUniverseAreToldWhileItRuns) {
    ChildProgram program(command({"--port", "0", path()}));
    const std::uint16_t port = port_of(program);
    ASSERT_NE(port, 0) << program.error_output();
    const ArtNetSender one;
    const ArtNetSender two(0x7F000002);
    const std::string warning = "universe 4 has two senders, 127.0.0.1:" + std::to_string(one.port()) +
                                " and 127.0.0.2:" + std::to_string(two.port());
    // Sent again and again: a conflict is one only when the senders follow each other within two seconds.
    EXPECT_TRUE(eventually([&] {
        for (const ArtNetSender* const sender : {&one, &two}) {
            sender->send(port, tests::dmx_packet(4, {1}));
        }
        return program.error_output().find(warning) != std::string::npos;
    })) << program.error_output();
    program.signal(SIGTERM);
    EXPECT_EQ(program.wait_exit(), 0);
    EXPECT_THAT(program.output(), HasSubstr("warning: universe 4 has two senders"));
}

TEST_F(RecordProgramTest, AClosedTerminalEndsItLikeCtrlC) {
    ChildProgram program(command({"--port", "0", "--frame-gap", "1h", path()}));
    const std::uint16_t port = port_of(program);
    ASSERT_NE(port, 0) << program.error_output();
    const ArtNetSender sender;
    sender.send(port, tests::dmx_packet(1, {1}));
    program.signal(SIGHUP);
    EXPECT_EQ(program.wait_exit(), 0) << program.error_output();
    EXPECT_THAT(program.output(), HasSubstr("out.rec: 1 frame of 1 universe"));
    EXPECT_EQ(tests::load_recording(path()).size(), 1U);
}

TEST_F(RecordProgramTest, AKilledCaptureHasLostNoFrameButTheLast) {
    ChildProgram program(command({"--port", "0", "--frame-gap", "1h", path()}));
    const std::uint16_t port = port_of(program);
    ASSERT_NE(port, 0) << program.error_output();
    const ArtNetSender sender;
    for (std::uint8_t frame = 1; frame <= 30; ++frame) {
        sender.send(port, tests::dmx_packet(1, std::vector<std::uint8_t>(512, frame)));
    }
    // The 30th frame is not whole for it, since nothing has followed.
    ASSERT_TRUE(eventually([&] { return tests::packets_in(path()) == 29; })) << program.error_output();
    program.signal(SIGKILL);
    ASSERT_EQ(program.wait_exit(), 128 + SIGKILL);
    EXPECT_EQ(std::filesystem::file_size(path()), 1U << 20U) << "zeros stand behind what is written";
    const std::vector<Playlist::Packet> packets = tests::load_recording(path());
    ASSERT_EQ(packets.size(), 29U);
    for (std::size_t i = 0; i < packets.size(); ++i) {
        EXPECT_EQ(packets[i].data.back(), i + 1);
    }
    // They came faster than frames do, which the check tells; of the zeros behind them there is nothing to
    // say.
    ChildProgram check({RECORDING_PROGRAM, "check", "--json", path()});
    EXPECT_EQ(check.wait_exit(), 0) << check.output();
    for (const char* const kind :
         {"stray-bytes", "truncated-tail", "stale-duplicate", "not-padded", "unknown-packet", "empty-dmx"}) {
        EXPECT_THAT(check.output(), testing::Not(HasSubstr(kind)));
    }
    ChildProgram info({RECORDING_PROGRAM, "info", "--json", path()});
    EXPECT_EQ(info.wait_exit(), 0) << info.output();
    EXPECT_THAT(info.error_output(), "");
}

TEST_F(RecordProgramTest, WithoutPacketsThereIsNoFileAndAReason) {
    ChildProgram program(command({"--port", "0", "--duration", "10ms", path()}));
    EXPECT_EQ(program.wait_exit(), 1);
    EXPECT_THAT(program.error_output(), HasSubstr("out.rec: not written, since no ArtDmx"));
    EXPECT_THAT(program.output(), HasSubstr("not recorded: filtered 0, other Art-Net 0, "));
    EXPECT_FALSE(std::filesystem::exists(path()));
}

TEST_F(RecordProgramTest, OnATerminalItShowsHowMuchOfTheDurationIsOver) {
    tests::Terminal terminal(100, 30);
    if (terminal.name().empty()) {
        GTEST_SKIP() << "no pseudo-terminals here";
    }
    ChildProgram program({"/bin/sh", "-c", "exec \"$0\" record --port 0 --duration 1h \"$1\" 2> \"$2\"",
                          RECORDING_PROGRAM, path(), terminal.name()});
    EXPECT_TRUE(terminal.read_until_text("recording (Ctrl-C ends)  [....")) << terminal.text();
    EXPECT_TRUE(terminal.read_until_text("]   0 %")) << terminal.text();
    program.signal(SIGINT);
    EXPECT_EQ(program.wait_exit(), 1);
}

TEST_F(RecordProgramTest, WrongCommandLinesNameTheOption) {
    const auto complaint = [&](std::vector<std::string> arguments) {
        arguments.push_back(path());
        ChildProgram program(command(arguments));
        EXPECT_EQ(program.wait_exit(), 2) << arguments.front();
        return program.error_output();
    };
    EXPECT_THAT(complaint({"--universe", "3-1"}), HasSubstr("--universe"));
    EXPECT_THAT(complaint({"--source", "somewhere"}), HasSubstr("--source: expected ADDRESS"));
    EXPECT_THAT(complaint({"--duration", "0"}), HasSubstr("--duration: expected more than 0"));
    EXPECT_THAT(complaint({"--address", "eth0"}), HasSubstr("--address: expected an IPv4 address"));
    EXPECT_THAT(complaint({"--timing", "us"}), HasSubstr("--timing"));
    EXPECT_THAT(complaint({"--frame-gap", "soon"}), HasSubstr("--frame-gap"));
    EXPECT_THAT(complaint({"--sync", "often"}), HasSubstr("--sync"));
    EXPECT_THAT(complaint({"--packet-socket", "lo", "--port", "0"}), HasSubstr("--packet-socket"));
}

TEST_F(RecordProgramTest, AFullDiskEndsItWithAReasonAndTheRestPlays) {
    const std::string mount_point = directory_.path().toStdString();
    const tests::ChildReport report = tests::run_in_child(CLONE_NEWNS, [&]() -> std::string {
        if (mount("tmpfs", mount_point.c_str(), "tmpfs", 0, "size=64k") != 0) {
            throw tests::Unavailable("no small file system here");
        }
        ChildProgram program(command({"--port", "0", path()}));
        const std::uint16_t port = port_of(program);
        const ArtNetSender sender;
        for (int frame = 0; frame < 200; ++frame) {
            sender.send(port, tests::dmx_packet(1, std::vector<std::uint8_t>(512, 9)));
        }
        const std::optional<int> status = program.wait_exit();
        ArtNetParser parser;
        int packets = 0;
        parser.on_artdmx = [&](ArtDmx&) { ++packets; };
        std::error_code error;
        parser.parse(path().c_str(), error);
        const std::string frames = "out.rec: " + std::to_string(packets) + " frames of 1 universe";
        return std::to_string(status.value_or(-1)) + (packets > 100 && !error ? " plays " : " broken ") +
               (program.output().find(frames) != std::string::npos ? "told " : program.output()) +
               program.error_output();
    });
    SKIP_IF_UNAVAILABLE(report);
    EXPECT_THAT(report.text, HasSubstr("1 plays told "));
    EXPECT_THAT(report.text, HasSubstr("out.rec: No space left on device; the "));
}

TEST_F(RecordProgramTest, WhereTheInterfaceGoesAwayWhatCameBeforeIsWrittenAndTold) {
    const tests::ChildReport report = tests::run_in_child(CLONE_NEWNET, [&]() -> std::string {
        tests::ip("link set lo up");
        ChildProgram program(command({"--packet-socket", "lo", "--frame-gap", "1h", path()}));
        if (!program.wait_for_error(", receive buffer")) {
            return program.error_output();
        }
        const ArtNetSender sender;
        for (std::uint8_t frame = 1; frame <= 3; ++frame) {
            sender.send(6454, tests::dmx_packet(1, std::vector<std::uint8_t>(512, frame)));
        }
        // The third frame is complete only with the end.
        if (!eventually([&] { return tests::packets_in(path()) == 2; })) {
            return "no frames";
        }
        tests::ip("link set lo down");
        const std::optional<int> status = program.wait_exit();
        ArtNetParser parser;
        std::string played = "played";
        parser.on_artdmx = [&](ArtDmx& dmx) { played += " " + std::to_string(dmx.Data[0]); };
        std::error_code error;
        parser.parse(path().c_str(), error);
        return std::to_string(status.value_or(-1)) + " " + played + "; " + program.output() +
               program.error_output();
    });
    SKIP_IF_UNAVAILABLE(report);
    EXPECT_THAT(report.text, testing::StartsWith("1 played 1 2 3; "));
    EXPECT_THAT(report.text, HasSubstr("out.rec: 3 frames of 1 universe"));
    EXPECT_THAT(report.text, HasSubstr("cuewright-recording: cannot receive on "));
}

TEST_F(RecordProgramTest, WhereItMayNotWriteOrListenItSaysSoAndEnds) {
    const tests::ChildReport report = tests::run_in_child(CLONE_NEWNET, [&]() -> std::string {
        tests::ip("link set lo up");
        // Root without these is like anybody else.
        tests::give_up({CAP_DAC_OVERRIDE, CAP_DAC_READ_SEARCH, CAP_NET_BIND_SERVICE, CAP_NET_RAW});
        const std::string closed = path("closed");
        std::filesystem::create_directory(closed);
        std::filesystem::permissions(closed,
                                     std::filesystem::perms::owner_read | std::filesystem::perms::owner_exec);
        std::string text;
        for (const std::vector<std::string>& arguments :
             {std::vector<std::string>{"--port", "0", closed + "/out.rec"},
              {"--port", "100", path()},
              {"--packet-socket", "lo", path()}}) {
            ChildProgram program(command(arguments));
            const std::optional<int> status = program.wait_exit();
            text += std::to_string(status.value_or(-1)) + " " + program.error_output();
        }
        return text;
    });
    SKIP_IF_UNAVAILABLE(report);
    EXPECT_THAT(report.text, testing::StartsWith("1 cuewright-recording: " + path("closed") +
                                                 "/out.rec: Permission denied\n1 cuewright-recording: "));
    EXPECT_THAT(report.text, HasSubstr("ports below 1024 need privileges"));
    EXPECT_THAT(report.text, HasSubstr("\n1 cuewright-recording: a packet socket needs privileges"));
    EXPECT_FALSE(std::filesystem::exists(path()));
}

}  // namespace
