// What the description files, the effects files and the recordings say, as it shows in the log and on the
// wire.

#include "service_test.h"

using namespace integration;
using namespace std::chrono_literals;
using testing::Contains;
using testing::ElementsAre;

namespace {

using Lines = std::vector<std::string>;

std::vector<std::uint8_t> one_frame(int level) {
    return Recording{}.dmx(1, {static_cast<std::uint8_t>(level)}).frame_delay(1ms).bytes();
}

class DescriptionRulesTest : public ServiceTest {
protected:
    /// The level of channel 0 in the next frames.
    std::vector<int> next_levels(int count) {
        std::vector<int> levels;
        for (const Frame& frame : wire_.next(count)) {
            levels.push_back(frame.level(0));
        }
        return levels;
    }

    /// One playlist with this entry in the description file; one frame of 200 on universe 1.
    void add_described(const std::string& entry) {
        add_playlist(3, true, Recording{}.dmx(1, {200}).frame_delay(5ms), {wire_.output("1")});
        show().file(ShowDirectory::kDescriptionPath, "[" + entry + "]");
    }

    ForwarderSocket wire_;
};

/// A play that must fail: the files, and the error lines that go with it.
struct BadFiles {
    const char* name;
    const char* description;
    /// Null: no such file.
    const char* effects;
    /// The error line after its tag; ROOT stands for the data root.
    const char* error;
    /// What is reported of it.
    const char* report;
};

class BadFilesTest : public DescriptionRulesTest, public testing::WithParamInterface<BadFiles> {};

constexpr char kDescribed[] = R"([{"Id":3}])";
constexpr char kBadDescription[] = "Playlist desc file format invalid";
constexpr char kBadEffects[] = "Playlist effects file format invalid";

const BadFiles kBadFiles[] = {
    {"NoDescription", nullptr, nullptr, "parse_desc] File (path:ROOT/playlists/playlists.json) not found",
     "Playlist desc file not found"},
    {"EmptyDescription", "", nullptr, "parse_desc] Parse error (err:illegal value, offset:0)",
     kBadDescription},
    {"BrokenDescription", R"([{"Id":3},)", nullptr,
     "parse_desc] Parse error (err:unterminated array, offset:10)", kBadDescription},
    {"ObjectAsDescription", "{}", nullptr, "parse_desc] Playlists not found", kBadDescription},
    {"NoPlaylists", "[]", nullptr, "parse_desc] Playlist desc not found", "Playlist desc not found"},
    {"OtherPlaylists", R"([{"Id":4},{"id":3},{"Id":"3"},3,null])", nullptr,
     "parse_desc] Playlist desc not found", "Playlist desc not found"},
    {"NoEffectsFile", kDescribed, nullptr, "parse_effects] File (path:ROOT/playlists/3.json) not found",
     "Playlist effects file not found"},
    {"EmptyEffectsFile", kDescribed, "", "parse_effects] Parse error (err:illegal value, offset:0)",
     kBadEffects},
    {"ObjectAsEffects", kDescribed, "{}", "parse_effects] Effects not found", kBadEffects},
    {"NoPath", kDescribed, R"([{"fps":-1,"outputs":[]}])", "parse_effects] Field 'path' absent", kBadEffects},
    {"PathIsANumber", kDescribed, R"([{"path":1,"fps":-1,"outputs":[]}])",
     "parse_effects] Field 'path' absent", kBadEffects},
    {"NoFps", kDescribed, R"([{"path":"3.rec","outputs":[]}])", "parse_effects] Field 'fps' absent",
     kBadEffects},
    {"FpsIsText", kDescribed, R"([{"path":"3.rec","fps":"25","outputs":[]}])",
     "parse_effects] Field 'fps' absent", kBadEffects},
    {"NoOutputs", kDescribed, R"([{"path":"3.rec","fps":-1}])", "parse_effects] Field 'outputs' absent",
     kBadEffects},
};

}  // namespace

TEST_P(BadFilesTest, FailThePlayWithAllItsLinesAndLeaveNothingLoaded) {
    const BadFiles& bad = GetParam();
    show().recording("3.rec", one_frame(1));
    if (bad.description != nullptr) {
        show().file(ShowDirectory::kDescriptionPath, bad.description);
    }
    if (bad.effects != nullptr) {
        show().file("playlists/3.json", bad.effects);
    }
    start();
    EXPECT_FALSE(controller().play(3));

    std::string error = std::string("err playlist_parser.cpp [PlaylistParser::") + bad.error;
    if (const std::size_t root = error.find("ROOT"); root != std::string::npos) {
        error.replace(root, 4, data_root());
    }
    Lines expected = {"info [Repeater::play_playlist] Play playlist (playlist_id:3)",
                      "info [Repeater::load_playlist] Load playlist (playlist_id:3)",
                      "info [PlaylistParser::parse_desc] Parse playlist desc file (playlist_id:3, "
                      "playlist_desc_path:playlists/playlists.json)"};
    if (error.find("parse_effects]") != std::string::npos) {
        expected.push_back("info [PlaylistParser::parse_effects] Parse playlist effects file (path:" +
                           data_root() + "/playlists/3.json)");
    }
    expected.push_back(error);
    expected.push_back(std::string("info [Repeater::load_playlist] Failed to load cuelist (err:") +
                       bad.report + ")");
    expected.push_back("info [Repeater::play_playlist] Failed to load cuelist");
    EXPECT_EQ(log_since_mark(), expected);

    mark_log();
    EXPECT_FALSE(controller().pause(3));
    EXPECT_EQ(log_since_mark().back(), "info [Repeater::pause_playlist] No active cuelists");
}

INSTANTIATE_TEST_SUITE_P(Files, BadFilesTest, testing::ValuesIn(kBadFiles),
                         [](const testing::TestParamInfo<BadFiles>& bad) {
                             return std::string(bad.param.name);
                         });

TEST_F(DescriptionRulesTest, ABadEffectBehindGoodOnesFailsTheWholeFile) {
    add_described(R"({"Id":3})");
    show().file("playlists/3.json",
                R"([{"path":"3.rec","fps":-1,"outputs":[]},{"path":"3.rec","outputs":[]}])");
    start();
    EXPECT_FALSE(controller().play(3));
    EXPECT_FALSE(controller().pause(3));
}

TEST_F(DescriptionRulesTest, AFractionalIdMatchesTruncatedAndTheFirstOfEqualIdsIsUsed) {
    add_described(R"(7,{"Id":3.7,"Brightness":50},{"Id":3,"Brightness":10})");
    start();
    EXPECT_TRUE(controller().play(3));
    EXPECT_EQ(next_levels(1), (std::vector<int>{100}));
}

TEST_F(DescriptionRulesTest, ALoopThatIsNoBooleanLeavesLoopingOn) {
    for (const char* const entry : {R"({"Id":3,"Loop":0})", R"({"Id":3,"Loop":"false"})", R"({"Id":3})"}) {
        add_described(entry);
        start();
        EXPECT_TRUE(controller().play(3));
        EXPECT_EQ(wire_.next(3).size(), 3u) << entry;
        EXPECT_THAT(controller().stopped(), testing::IsEmpty());
        end();
        wire_.arrived();
    }
}

TEST_F(DescriptionRulesTest, BrightnessFromTheFileIsNotClampedAndStoredModulo256) {
    // 200 at 150 % is 300, of which 44 fits.
    add_described(R"({"Id":3,"Brightness":150})");
    start();
    controller().set_log_level(4);
    EXPECT_TRUE(controller().play(3));
    EXPECT_EQ(next_levels(1), (std::vector<int>{44}));
    EXPECT_THAT(log_since_mark(),
                Contains("info [PlaylistParser::parse_desc] Playlist desc parsed (playlist_id:3, "
                         "loop_mode:1, brightness:150, speed_boost:0)"));
}

TEST_F(DescriptionRulesTest, EffectsPlayInTheOrderOfTheirSortKeysAndElseOfTheFile) {
    const char* const names[] = {"A", "B", "C", "D"};
    const int levels[] = {1, 2, 3, 4};
    ShowPlaylist playlist(1);
    const double keys[] = {2, 0, 1, 1};
    for (std::size_t i = 0; i < 4; ++i) {
        show().recording(std::string(names[i]) + ".rec", one_frame(levels[i]));
        ShowEffect effect(std::string(names[i]) + ".rec");
        effect.name(names[i]).output(wire_.output("1"));
        if (keys[i] != 0) {
            effect.sort(keys[i]);
        }
        playlist.effect(effect);
    }
    show().playlist(playlist);
    start();
    controller().set_log_level(4);
    EXPECT_TRUE(controller().play(1));
    EXPECT_EQ(next_levels(8), (std::vector<int>{2, 3, 4, 1, 2, 3, 4, 1}));
    const Lines lines = log_since_mark();
    EXPECT_THAT(lines, Contains("info [PlaylistParser::parse_effects] Found effects (4)"));
    EXPECT_EQ(std::count(lines.begin(), lines.end(), "info [PlaylistParser::parse_effects] Sort ID (1)"), 2);
    EXPECT_EQ(std::count(lines.begin(), lines.end(), "info [PlaylistParser::parse_effects] Sort ID (0)"), 0);
    EXPECT_THAT(lines, Contains(testing::MatchesRegex(
                           R"(info \[PlaylistParser::sortLessThan\] qSort [ABCD], [012] < [012])")));
}

TEST_F(DescriptionRulesTest, BadOutputsAreNamedAndSkippedAndGoodOnesUsedInFileOrder) {
    const std::string port = std::to_string(wire_.port());
    const std::vector<std::pair<std::string, std::string>> bad = {
        {"1:10.0.0.5", "Output string must be of format \"universe:ip:port\""},
        {"1:10.0.0.5:" + port + ":x", "Output string must be of format \"universe:ip:port\""},
        {"32768:10.0.0.5:" + port, "Invalid universe specified in output"},
        {"-1:10.0.0.5:" + port, "Invalid universe specified in output"},
        {"x:10.0.0.5:" + port, "Invalid universe specified in output"},
        {"1:127.0.0.1:" + port, "Invalid ip specified in output"},
        {"1:0.1.2.3:" + port, "Invalid ip specified in output"},
        {"1:0.0.0.0:" + port, "Invalid ip specified in output"},
        {"1:fe80--1:" + port, "Invalid ip specified in output"},
        {"1:10.0.0.5:1023", "Invalid port specified in output"},
        {"1:10.0.0.5:65536", "Invalid port specified in output"}};
    ShowEffect effect("1.rec");
    effect.output(wire_.output("1", "10.0.0.6"));
    Lines expected;
    for (const auto& [text, message] : bad) {
        effect.output(text);
        expected.push_back("err playlist_parser_routing.cpp [PlaylistParser::parse_effects] " + message +
                           " (" + text + ")");
    }
    // Twice the same is kept twice.
    effect.output(wire_.output("1", "10.0.0.4")).output(wire_.output("1", "10.0.0.4"));
    show().recording("1.rec", one_frame(9)).playlist(ShowPlaylist(1).loop(false).effect(effect));
    start();
    EXPECT_TRUE(controller().play(1));
    ASSERT_TRUE(controller().wait_for_stopped(1));
    std::vector<std::string> addresses;
    for (const Frame& frame : wire_.arrived()) {
        addresses.push_back(frame.ip());
    }
    EXPECT_THAT(addresses, ElementsAre("10.0.0.6", "10.0.0.4", "10.0.0.4"));
    Lines errors;
    for (const std::string& line : log_since_mark()) {
        if (line.starts_with("err")) {
            errors.push_back(line);
        }
    }
    EXPECT_EQ(errors, expected);
}

TEST_F(DescriptionRulesTest, DetailsOfAnEffectAreLogged) {
    const std::string port = std::to_string(wire_.port());
    show()
        .recording("1.rec", one_frame(9))
        .playlist(ShowPlaylist(1).loop(false).brightness(80.9).speed_boost(-3.9))
        .file("playlists/1.json",
              R"([5,{"path":"1.rec","fps":29.97,"outputs":["*:10.0.0.5:)" + port +
                  R"(",7,"bad"],"universes":[{"id":1,"zone":4},{"id":1,"zone":5},{"zone":1},)" +
                  R"({"id":2},3,{"id":"1","zone":1}]}])");
    start();
    controller().set_log_level(4);
    EXPECT_TRUE(controller().play(1));
    ASSERT_TRUE(controller().wait_for_stopped(1));
    Lines lines = log_since_mark();
    std::erase_if(lines,
                  [](const std::string& line) { return line.find("PlaylistParser") == std::string::npos; });
    EXPECT_THAT(
        lines,
        ElementsAre(
            "info [PlaylistParser::parse_desc] Parse playlist desc file (playlist_id:1, "
            "playlist_desc_path:playlists/playlists.json)",
            "info [PlaylistParser::parse_desc] Found playlists (1)",
            "info [PlaylistParser::parse_desc] Playlist desc parsed (playlist_id:1, loop_mode:0, "
            "brightness:80, speed_boost:-3)",
            "info [PlaylistParser::parse_effects] Parse playlist effects file (path:" + data_root() +
                "/playlists/1.json)",
            "info [PlaylistParser::parse_effects] Found effects (2)",
            "info [PlaylistParser::sortLessThan] qSort , 0 < 0",
            "info [PlaylistParser::parse_effects] Found outputs (2)",
            "info [PlaylistParser::parse_outputs] Parse effect outputs",
            "info [PlaylistParser::parse_effects] Parsed output (universe:-1, address:(10.0.0.5:" + port +
                "))",
            "err playlist_parser_routing.cpp [PlaylistParser::parse_effects] Output string must be of format "
            "\"universe:ip:port\" (bad)",
            "info [PlaylistParser::parse_effects] Found universes (6)",
            "info [PlaylistParser::parse_universes] Parse effect universes",
            "info [PlaylistParser::parse_effects] Parsed universe (id:1, zone:4)",
            "info [PlaylistParser::parse_effects] Parsed universe (id:1, zone:5)",
            "err playlist_parser_routing.cpp [PlaylistParser::parse_effects] Field 'id' absent",
            "err playlist_parser_routing.cpp [PlaylistParser::parse_effects] Field 'zone' absent",
            "err playlist_parser_routing.cpp [PlaylistParser::parse_effects] Field 'id' absent",
            "info [PlaylistParser::parse_effects] Added effect (path:1.rec, fps:29, ppf:-1, outputs:1, "
            "universes:1)"));
}

TEST_F(DescriptionRulesTest, ALaterZoneEntryForAUniverseReplacesTheEarlier) {
    show().recording("1.rec", Recording{}.dmx(1, {10, 20}).frame_delay(5ms).bytes());
    show().playlist(
        ShowPlaylist(1).effect(ShowEffect("1.rec").output(wire_.output("1")).zone(1, 4).zone(1, 5)));
    start();
    EXPECT_TRUE(controller().init_zones({{4, 1, {0}}, {5, 1, {1}}}));
    EXPECT_TRUE(controller().play(1));
    EXPECT_EQ(wire_.next().levels(2), (std::vector<int>{0, 20}));
}

TEST_F(DescriptionRulesTest, AnEffectWithoutUniversesIsAcceptedAndHasNoZones) {
    add_described(R"({"Id":3})");
    show().file("playlists/3.json",
                R"([{"path":"3.rec","fps":-1,"outputs":[")" + wire_.output("1") + R"("]}])");
    start();
    EXPECT_TRUE(controller().play(3));
    EXPECT_EQ(next_levels(1), (std::vector<int>{200}));
}

TEST_F(DescriptionRulesTest, AnEffectWithoutAcceptedOutputsIsPlayedWithoutDestinations) {
    add_described(R"({"Id":3,"Loop":false})");
    show().file("playlists/3.json", R"([{"path":"3.rec","fps":-1,"outputs":["bad"]}])");
    start();
    EXPECT_TRUE(controller().play(3));
    EXPECT_TRUE(controller().wait_for_stopped(1));
    EXPECT_THAT(wire_.arrived(), testing::IsEmpty());
}
