// What a data directory lights, and the frames that make it dark.

#include "show.h"

#include <filesystem>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <QTemporaryDir>

#include "support/recording.h"
#include "support/show_directory.h"
#include "zero_frames.h"

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

namespace {

/// "universe>address:port reason"
std::vector<std::string> texts(const std::vector<ctl::ZeroFrame>& frames) {
    std::vector<std::string> lines;
    for (const ctl::ZeroFrame& frame : frames) {
        lines.push_back(std::to_string(frame.universe) + ">" + frame.to.address + ":" +
                        std::to_string(frame.to.port) + " " + frame.reason);
    }
    return lines;
}

std::vector<std::string> plan(const ShowDirectory& show, const ondra::ArtnetNodeMap& nodes = {},
                              const std::string& broadcast = "") {
    return texts(ctl::plan_zero_frames(ctl::read_show_output(ctl::read_show(show.root().toStdString()), {}),
                                       nodes, broadcast));
}

}  // namespace

TEST(ShowTest, ADestinationIsThatOfTheUniverseElseThatOfAllOthers) {
    ShowDirectory show;
    show.recording("1.rec", Recording{}
                                .dmx(1, {1})
                                .dmx(2, {1})
                                .dmx(300, {1})
                                .frame_delay(std::chrono::milliseconds(20))
                                .bytes())
        .playlist(ShowPlaylist(1).effect(ShowEffect("1.rec")
                                             .output("1:10.0.0.1:6454")
                                             .output("1:10.0.0.2:7000")
                                             .output("*:10.0.0.3:6454")))
        .playlist(
            ShowPlaylist(2).effect(ShowEffect("1.rec").output("1:10.0.0.1:6454").output("9:10.0.0.9:6454")));
    // Universe 9 is in no recording; its output names it.
    EXPECT_THAT(plan(show), ElementsAre("1>10.0.0.1:6454 playlist 1, 2", "1>10.0.0.2:7000 playlist 1",
                                        "2>10.0.0.3:6454 playlist 1", "9>10.0.0.9:6454 playlist 2",
                                        "300>10.0.0.3:6454 playlist 1"));
}

TEST(ShowTest, NodesGetTheUniversesThatTheShowLightsAndNoOthers) {
    ShowDirectory show;
    show.recording("1.rec", Recording{}.dmx(1, {1}).bytes())
        .playlist(ShowPlaylist(1).effect(ShowEffect("1.rec").output("1:10.0.0.1:6454")));
    const ondra::ArtnetNodeMap nodes{{1, {{"10.0.0.1", 6454}, {"10.0.0.5", 6454}, {"10.0.0.5", 6454}}},
                                     {2, {{"10.0.0.6", 6454}}}};
    EXPECT_THAT(plan(show, nodes, "10.255.255.255"),
                ElementsAre("1>10.0.0.1:6454 playlist 1, node", "1>10.0.0.5:6454 node",
                            "1>10.255.255.255:6454 broadcast"));
}

TEST(ShowTest, AMutedUniverseIsLeftAloneUnlessAnotherEffectLightsIt) {
    ShowDirectory show;
    show.recording("1.rec", Recording{}.dmx(1, {1}).dmx(2, {1}).bytes())
        .playlist(
            ShowPlaylist(1).effect(ShowEffect("1.rec").output("*:10.0.0.1:6454").zone(1, -2).zone(2, 4)));
    EXPECT_THAT(plan(show), ElementsAre("2>10.0.0.1:6454 playlist 1"));
    show.playlist(ShowPlaylist(2).effect(ShowEffect("1.rec").output("1:10.0.0.2:6454").zone(2, -2)));
    EXPECT_THAT(plan(show), ElementsAre("1>10.0.0.2:6454 playlist 2", "2>10.0.0.1:6454 playlist 1"));
}

TEST(ShowTest, WhatCannotBeReadIsToldAndTheRestIsRead) {
    ShowDirectory show;
    show.recording("1.rec", Recording{}.dmx(1, {1}).bytes())
        .playlist(ShowPlaylist(1).effect(ShowEffect("1.rec").output("*:10.0.0.1:6454")))
        .playlist(ShowPlaylist(2).effect(ShowEffect("away.rec").output("5:10.0.0.2:6454")))
        .playlist(ShowPlaylist(3).effect(ShowEffect("fifo.rec")))
        .playlist(ShowPlaylist(4))
        .file("playlists/4.json", "[{}]");
    ASSERT_EQ(mkfifo(show.path("fifo.rec").c_str(), 0600), 0);
    const ctl::Show read = ctl::read_show(show.root().toStdString());
    EXPECT_THAT(read.problems,
                ElementsAre(show.path("playlists/4.json") + ": Playlist effects file format invalid"));
    const ctl::ShowOutput output = ctl::read_show_output(read, {});
    EXPECT_THAT(output.problems, UnorderedElementsAre(show.path("away.rec") + ": not found",
                                                      show.path("fifo.rec") + ": not a plain file"));
    EXPECT_THAT(plan(show), ElementsAre("1>10.0.0.1:6454 playlist 1", "5>10.0.0.2:6454 playlist 2"));
}

TEST(ShowTest, WhatNeedsNoRecordingIsKnownAtOnceAndTheRestAsItIsFound) {
    ShowDirectory show;
    show.recording("1.rec", Recording{}.dmx(1, {1}).dmx(2, {1}).dmx(1, {2}).dmx(2, {2}).bytes())
        .recording("2.rec", Recording{}.dmx(2, {1}).bytes())
        .playlist(
            ShowPlaylist(1).effect(ShowEffect("1.rec").output("1:10.0.0.1:6454").zone(5, 3).zone(6, -2)))
        .playlist(ShowPlaylist(2).effect(ShowEffect("2.rec")))
        .playlist(ShowPlaylist(3).effect(ShowEffect("2.rec").output("*:10.0.0.3:6454")));
    const ctl::Show read = ctl::read_show(show.root().toStdString());
    EXPECT_THAT(texts(ctl::plan_zero_frames(ctl::named_output(read), {}, "10.0.0.255")),
                ElementsAre("1>10.0.0.1:6454 playlist 1", "1>10.0.0.255:6454 broadcast",
                            "5>10.0.0.255:6454 broadcast"));
    std::vector<std::string> found;
    static_cast<void>(ctl::read_show_output(read, {{}, [&found](int universe, const auto& destinations) {
                                                       found.push_back(std::to_string(universe) + ": " +
                                                                       std::to_string(destinations.size()));
                                                   }}));
    // Universe 2 by its first packet, and again when an effect gives it a destination.
    EXPECT_THAT(found, ElementsAre("2: 0", "2: 1"));
}

TEST(ShowTest, ProgressReachesTheBytesThatWereAnnounced) {
    ShowDirectory show;
    const std::vector<std::uint8_t> bytes = Recording{}.dmx(1, std::vector<std::uint8_t>(512)).bytes();
    show.recording("1.rec", bytes)
        .playlist(ShowPlaylist(1).effect(ShowEffect("1.rec")))
        .playlist(ShowPlaylist(2).effect(ShowEffect("1.rec")).effect(ShowEffect("1.rec")));
    const ctl::Show read = ctl::read_show(show.root().toStdString());
    std::uint64_t told = 0;
    static_cast<void>(ctl::read_show_output(read, {[&told](std::uint64_t done) { told = done; }, {}}));
    EXPECT_EQ(told, bytes.size());
    EXPECT_EQ(ctl::recording_bytes(read), bytes.size());
    EXPECT_EQ(ctl::largest_playlist_bytes(read), 2 * bytes.size());
}

TEST(ShowTest, TheDataDirectoryLiesBesideTheServicesProgram) {
    const QTemporaryDir proc;
    const std::string root = proc.path().toStdString();
    std::filesystem::create_directories(root + "/42");
    std::filesystem::create_symlink("/opt/player/bin/cuewright", root + "/42/exe");
    EXPECT_EQ(ctl::data_directory_of(42, root), "/opt/player/bin/../data");
    try {
        static_cast<void>(ctl::data_directory_of(43, root));
        ADD_FAILURE() << "found without a process";
    } catch (const cli::Failure& failure) {
        EXPECT_THAT(failure.what(), HasSubstr("name the directory with --data"));
    }
}

TEST(ZeroFramesTest, APortThatIsNoneIsAFailureAndNothingIsSent) {
    const std::vector<ctl::ZeroFrame> frames{{1, {"10.0.0.1", 0}, "node"}, {1, {"10.0.0.1", 70000}, "node"}};
    ctl::ZeroSender sender(0);
    sender.send_new(frames);
    sender.send(frames);
    const ctl::ZeroDelivery delivery = sender.delivery();
    EXPECT_EQ(delivery.sent, 0U);
    EXPECT_THAT(delivery.failures,
                UnorderedElementsAre(testing::Pair(0, "not a port"), testing::Pair(70000, "not a port")));
}
