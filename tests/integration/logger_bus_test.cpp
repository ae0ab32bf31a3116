// The logger's object on the bus: what each level shows, and the context of errors and warnings.

#include <algorithm>

#include <syslog.h>

#include "service_test.h"

using namespace integration;
using namespace std::chrono_literals;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

namespace {

class LoggerBusTest : public ServiceTest {
protected:
    int level() { return controller().call_logger(QStringLiteral("getLevel")).arguments().value(0).toInt(); }

    void use_context(bool on) {
        EXPECT_EQ(controller().call_logger(QStringLiteral("useContext"), {on}).type(),
                  QDBusMessage::ReplyMessage);
    }

    ForwarderSocket wire_;
};

}  // namespace

TEST_F(LoggerBusTest, TheLevelIsThreeUntilSetAndStoredUnchecked) {
    start();
    EXPECT_EQ(level(), 3);
    for (const int value : {6, -3, 1000, -1000, 3}) {
        controller().set_log_level(value);
        EXPECT_EQ(level(), value);
    }
}

TEST_F(LoggerBusTest, AtTheDefaultLevelNoDetailsNorTracesAppear) {
    add_playlist(1, true, Recording{}.dmx(1, {1}).frame_delay(5ms), {wire_.output("1")});
    start();
    EXPECT_TRUE(controller().play(1));
    static_cast<void>(wire_.next(3));
    controller().set_brightness(1, 50);
    controller().stop();
    for (const std::string& line : log_since_mark()) {
        EXPECT_THAT(line, Not(testing::HasSubstr("send_packet")));
        EXPECT_THAT(line, Not(testing::HasSubstr("send_to_address")));
        EXPECT_THAT(line, Not(testing::HasSubstr("flush_pending_packet")));
        EXPECT_THAT(line, Not(testing::HasSubstr("Set brightness")));
        EXPECT_THAT(line, Not(testing::HasSubstr("Found")));
    }
}

TEST_F(LoggerBusTest, LevelSixTracesEverySentPacketAndDestination) {
    add_playlist(
        1, false, Recording{}.dmx(3, {1, 2, 3}).dmx(4, {9}),
        {wire_.output("*", "192.0.2.7"), wire_.output("4", "192.0.2.8"), wire_.output("4", "192.0.2.9")});
    start();
    controller().set_log_level(6);
    EXPECT_TRUE(controller().play(1));
    ASSERT_TRUE(controller().wait_for_stopped(1));
    std::vector<std::string> traces;
    for (const std::string& line : log_since_mark()) {
        if (line.starts_with("info [Repeater::send")) {
            traces.push_back(line);
        }
    }
    const std::string sent = "info [Repeater::send_to_address] Send packet (bytes:530, address:(192.0.2.";
    const std::string port = ":" + std::to_string(wire_.port()) + ")), proxy: 127.0.0.1";
    EXPECT_THAT(traces,
                ElementsAre("info [Repeater::send_packet] Send packet (index:0, bytes:21, universe:3)",
                            sent + "7" + port,
                            "info [Repeater::send_packet] Send packet (index:1, bytes:19, universe:4)",
                            sent + "8" + port, sent + "9" + port));
}

TEST_F(LoggerBusTest, LevelFiveTracesLoadingButNotSending) {
    add_playlist(1, false, Recording{}.dmx(3, {1, 2, 3}).dmx(4, {9}), {wire_.output("*")});
    start();
    controller().set_log_level(5);
    EXPECT_TRUE(controller().play(1));
    ASSERT_TRUE(controller().wait_for_stopped(1));
    const std::vector<std::string> lines = log_since_mark();
    EXPECT_THAT(
        lines,
        Contains("info [PlaylistLoader::flush_pending_packet] Loaded packet (index:0, size:21, universe:3)"));
    EXPECT_THAT(
        lines,
        Contains("info [PlaylistLoader::flush_pending_packet] Loaded packet (index:1, size:19, universe:4)"));
    EXPECT_THAT(lines, Not(Contains(StartsWith("info [Repeater::send"))));
}

TEST_F(LoggerBusTest, LevelFourShowsDetailsButNoLoadingTrace) {
    add_playlist(1, false, Recording{}.dmx(3, {1}), {wire_.output("*")});
    start();
    controller().set_log_level(4);
    EXPECT_TRUE(controller().play(1));
    const std::vector<std::string> lines = log_since_mark();
    EXPECT_THAT(lines, Contains("info [PlaylistParser::parse_desc] Found playlists (1)"));
    EXPECT_THAT(lines, Not(Contains(StartsWith("info [PlaylistLoader::flush_pending_packet]"))));
}

TEST_F(LoggerBusTest, AFailedSendShowsOnlyAtLevelSixAndThePlaylistGoesOn) {
    // Without nodes a packet without destinations cannot be sent.
    add_playlist(1, true, Recording{}.dmx(3, {1}).frame_delay(5ms), {});
    start();
    EXPECT_TRUE(controller().play(1));
    controller().set_log_level(5);
    EXPECT_TRUE(controller().pause(1));
    EXPECT_THAT(log_since_mark(), Not(Contains(StartsWith("info [Repeater::do_render_work]"))));
    controller().set_log_level(6);
    EXPECT_TRUE(controller().play(1));
    const std::string failed(
        R"(info \[Repeater::do_render_work\] Can't send packet \(playlist_id:1, packet:[0-9]+, )"
        R"(universe:3\) due to '[^']+', errno [0-9]+)");
    EXPECT_TRUE(wait_until([this, &failed] {
        const std::vector<std::string> lines = log_since_mark();
        return std::count_if(lines.begin(), lines.end(),
                             [&failed](const std::string& line) { return matches(line, failed); }) >= 3;
    }));
}

TEST_F(LoggerBusTest, APacketWithoutChannelsIsNotSentAndSaysSoAtLevelSix) {
    add_playlist(1, false, Recording{}.dmx(1, {}).dmx(1, {5}), {wire_.output("1")});
    start();
    controller().set_log_level(6);
    EXPECT_TRUE(controller().play(1));
    ASSERT_TRUE(controller().wait_for_stopped(1));
    EXPECT_THAT(log_since_mark(), Contains(StartsWith("info [Repeater::do_render_work] Can't send packet "
                                                      "(playlist_id:1, packet:0, universe:1) due to '")));
    const std::vector<Frame> frames = wire_.arrived();
    ASSERT_EQ(frames.size(), 1u);
    EXPECT_EQ(frames[0].level(0), 5);
}

TEST_F(LoggerBusTest, LevelMinusThreeSilencesEverythingEvenErrors) {
    start();
    controller().set_log_level(-3);
    EXPECT_FALSE(controller().play(1));
    EXPECT_FALSE(controller().pause(1));
    EXPECT_THAT(log_since_mark(), IsEmpty());
    // Errors alone, then.
    controller().set_log_level(-2);
    EXPECT_FALSE(controller().play(1));
    ASSERT_EQ(log_since_mark().size(), 1u);
    EXPECT_THAT(log_since_mark()[0],
                StartsWith("err playlist_parser.cpp [PlaylistParser::parse_desc] File (path:"));
}

TEST_F(LoggerBusTest, WithoutContextErrorsBeginWithTheirMessage) {
    start();
    EXPECT_FALSE(controller().play(1));
    use_context(false);
    EXPECT_FALSE(controller().play(1));
    use_context(true);
    EXPECT_FALSE(controller().play(1));
    std::vector<std::string> errors;
    for (const tests::SyslogLine& line : service().raw_log()) {
        if (line.priority == LOG_ERR) {
            errors.push_back(line.text);
        }
    }
    const std::string message =
        "[PlaylistParser::parse_desc] File (path:" + data_root() + "/playlists/playlists.json) not found";
    ASSERT_EQ(errors.size(), 3u);
    EXPECT_TRUE(matches(errors[0], R"(core/apps/output/repeater/src/playlist_parser\.cpp[0-9]+ )"
                                   R"(void PlaylistParser::parse_desc\(.*\) const\) \[.*)"))
        << errors[0];
    EXPECT_THAT(errors[0], testing::EndsWith(message));
    EXPECT_EQ(errors[1], message);
    EXPECT_EQ(errors[2], errors[0]);
}

TEST_F(LoggerBusTest, AWarningShowsUpToTwoMoreCharactersOfThePath) {
    // An oversized packet, and a good one after it.
    Recording recording;
    recording.header(0x5000).raw({0, 14, 0, 0, 1, 0, 2, 1}).dmx(1, {5});
    add_playlist(1, false, recording, {wire_.output("1")});
    start();
    EXPECT_TRUE(controller().play(1));
    ASSERT_TRUE(controller().wait_for_stopped(1));
    std::vector<std::string> warnings;
    for (const tests::SyslogLine& line : service().raw_log()) {
        if (line.priority == LOG_WARNING) {
            warnings.push_back(line.text);
        }
    }
    ASSERT_EQ(warnings.size(), 1u);
    EXPECT_TRUE(matches(warnings[0], R"([^/]?/core/apps/output/repeater/src/playlist_loader\.cpp[0-9]+ .*)"))
        << warnings[0];
    EXPECT_THAT(warnings[0],
                testing::EndsWith(
                    ") [PlaylistLoader::load_effect] Non-critical error (ArtNet Parser: :4) in packet (0)"));
}

TEST_F(LoggerBusTest, APercentSignInALineIsInterpretedOnceMoreAndFetchesNothing) {
    show().playlist(ShowPlaylist(1).effect(ShowEffect("a%%b%n%s.rec")));
    start();
    EXPECT_FALSE(controller().play(1));
    EXPECT_THAT(log_since_mark(),
                Contains("info [PlaylistLoader::load_effect] Load effect (" + data_root() + "/a%b%n%s.rec)"));
}
