// The effects file of a playlist: its elements, their order and their timing.
#include <climits>

#include <gmock/gmock.h>

#include "playlist_parser_fixture.h"

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

class PlaylistParserEffectsTest : public PlaylistParserFixture {
protected:
    static std::vector<std::string> paths(const Playlist& playlist) {
        std::vector<std::string> result;
        for (const Playlist::Effect& effect : playlist.effects()) {
            result.push_back(effect.path.toStdString());
        }
        return result;
    }
    std::vector<std::string> parsed_paths(const std::string& json) const {
        write_effects(3, json);
        Playlist playlist;
        parse_effects(playlist);
        return paths(playlist);
    }
    /// "fps ppf [fixed] [auto]" of the one effect with these fields.
    std::string timing(const std::string& fields) const {
        write_effects(3, R"([{"path": "a", "outputs": [], )" + fields + "}]");
        Playlist playlist;
        parse_effects(playlist);
        const Playlist::Effect& effect = playlist.effects().at(0);
        return std::to_string(effect.fps) + " " + std::to_string(effect.ppf) +
               (effect.fixed_fps ? " fixed" : "") + (effect.auto_ppf ? " auto" : "");
    }
};

/// Writes down what it hears.
class Listener final : public PlaylistParserObserver {
public:
    std::vector<std::string> heard;

private:
    void begin_effect(int position) override { heard.push_back("effect " + std::to_string(position)); }
    void report(Outcome outcome, const char* key, int index, const char* reason) override {
        constexpr const char* kNames[] = {"rejected", "skipped", "absent", "defaulted"};
        heard.push_back(std::string(kNames[static_cast<std::size_t>(outcome)]) + " " + key + " " +
                        std::to_string(index) + ": " + reason);
    }
};

constexpr const char* kInvalid = "Playlist effects file format invalid";

}  // namespace

TEST_F(PlaylistParserEffectsTest, AnEffectHasItsPathTimingOutputsAndZones) {
    write_effects(
        3, R"([{"path": "a/b.rec", "fps": 30, "ppf": 4, "outputs": ["1:10.0.0.5:6454", "*:10.0.0.6:6455"],
                          "universes": [{"id": 1, "zone": 2}]}])");
    Playlist playlist;
    parse_effects(playlist);
    ASSERT_EQ(playlist.effects().size(), 1U);
    const Playlist::Effect& effect = playlist.effects()[0];
    EXPECT_EQ(effect.path.toStdString(), "a/b.rec");
    EXPECT_EQ(effect.fps, 30);
    EXPECT_EQ(effect.ppf, 4);
    ASSERT_EQ(effect.outputs.size(), 2U);
    EXPECT_EQ(effect.outputs.at(1).at(0).ip, "10.0.0.5");
    EXPECT_EQ(effect.outputs.at(Playlist::kAllUniverses).at(0).port, 6455);
    EXPECT_EQ(effect.universes, (Playlist::Effect::UniZoneMap{{1, 2}}));
}

TEST_F(PlaylistParserEffectsTest, EffectsPlayInTheOrderOfSortAndThenOfTheFile) {
    EXPECT_THAT(parsed_paths(R"([{"path": "A", "fps": 1, "outputs": [], "sort": 2},
                                 {"path": "B", "fps": 1, "outputs": []},
                                 {"path": "C", "fps": 1, "outputs": [], "sort": 1},
                                 {"path": "D", "fps": 1, "outputs": [], "sort": 1}])"),
                ElementsAre("B", "C", "D", "A"));
}

TEST_F(PlaylistParserEffectsTest, ManyEqualKeysKeepTheirOrder) {
    std::string json = "[";
    std::vector<std::string> expected;
    for (int round = 0; round < 2; ++round) {
        for (int effect = 0; effect < 40; ++effect) {
            const int sort = effect % 2;
            if (round == 0) {
                json += std::string(effect == 0 ? "" : ",") + R"({"path": ")" + std::to_string(effect) +
                        R"(", "fps": 1, "outputs": [], "sort": )" + std::to_string(sort) + "}";
            }
            if (sort == round) {
                expected.push_back(std::to_string(effect));
            }
        }
    }
    EXPECT_EQ(parsed_paths(json + "]"), expected);
}

TEST_F(PlaylistParserEffectsTest, SortKeysAreTruncatedAndOtherTypesCountAsZero) {
    EXPECT_THAT(parsed_paths(R"([{"path": "A", "fps": 1, "outputs": [], "sort": 1.9},
                                 {"path": "B", "fps": 1, "outputs": [], "sort": 1.1},
                                 {"path": "C", "fps": 1, "outputs": [], "sort": "-5"},
                                 {"path": "D", "fps": 1, "outputs": [], "sort": -1e12}])"),
                ElementsAre("D", "C", "A", "B"));
}

TEST_F(PlaylistParserEffectsTest, ElementsThatAreNoObjectsAreIgnored) {
    EXPECT_THAT(parsed_paths(R"([5, {"path": "A", "fps": 1, "outputs": []}, "x", null, []])"),
                ElementsAre("A"));
    EXPECT_THAT(parsed_paths("[]"), IsEmpty());
}

TEST_F(PlaylistParserEffectsTest, TimingFlagsFollowFpsAndPpf) {
    EXPECT_EQ(timing(R"("fps": -1)"), "-1 -1");
    EXPECT_EQ(timing(R"("fps": 30)"), "30 -1 fixed auto");
    EXPECT_EQ(timing(R"("fps": 30, "ppf": 4)"), "30 4 fixed");
    EXPECT_EQ(timing(R"("fps": -1, "ppf": 4)"), "-1 4");
    EXPECT_EQ(timing(R"("fps": 0, "ppf": 0)"), "0 0 fixed");
}

TEST_F(PlaylistParserEffectsTest, FpsAndPpfAreTruncatedAndSaturate) {
    EXPECT_EQ(timing(R"("fps": 29.97, "ppf": 3.7)"), "29 3 fixed");
    EXPECT_EQ(timing(R"("fps": -1.9, "ppf": "4")"), "-1 -1");
    EXPECT_EQ(timing(R"("fps": 1e12, "ppf": -1e12)"),
              std::to_string(INT_MAX) + " " + std::to_string(INT_MIN) + " fixed");
}

TEST_F(PlaylistParserEffectsTest, AMissingFileIsAnInvalidPath) {
    EXPECT_EQ(thrown_by_effects<Exceptions::InvalidPath>(), "Playlist effects file not found");
    EXPECT_EQ(effects_level("[PlaylistParser::parse_effects] File (path:" + path("playlists/3.json") +
                            ") not found"),
              -2);
}

TEST_F(PlaylistParserEffectsTest, ATopLevelObjectIsAnInvalidFormat) {
    write_effects(3, R"({"path": "a"})");
    EXPECT_EQ(thrown_by_effects<Exceptions::InvalidFileFormat>(), kInvalid);
    EXPECT_EQ(effects_level("[PlaylistParser::parse_effects] Effects not found"), -2);
}

TEST_F(PlaylistParserEffectsTest, BrokenJsonIsAnInvalidFormat) {
    write_effects(3, "");
    EXPECT_EQ(thrown_by_effects<Exceptions::InvalidFileFormat>(), kInvalid);
    EXPECT_EQ(effects_level("[PlaylistParser::parse_effects] Parse error (err:illegal value, offset:0)"), -2);
}

TEST_F(PlaylistParserEffectsTest, TheFileIsReadAsTextSoThatTheOffsetDoesNotCountCarriageReturns) {
    write_effects(3, "[\r\n{},\r\n]");
    EXPECT_EQ(
        effects_level(
            "[PlaylistParser::parse_effects] Parse error (err:object is missing after a comma, offset:7)"),
        -2);
}

TEST_F(PlaylistParserEffectsTest, AMissingOrMistypedRequiredFieldFailsTheFile) {
    const std::vector<std::pair<std::string, std::string>> cases{
        {R"([{"fps": 1, "outputs": []}])", "path"},
        {R"([{"path": 1, "fps": 1, "outputs": []}])", "path"},
        {R"([{}])", "path"},
        {R"([{"path": "a", "outputs": []}])", "fps"},
        {R"([{"path": "a", "fps": "30", "outputs": []}])", "fps"},
        {R"([{"path": "a"}])", "fps"},
        {R"([{"path": "a", "fps": 1}])", "outputs"},
        {R"([{"path": "a", "fps": 1, "outputs": "1:10.0.0.5:6454"}])", "outputs"},
    };
    for (const auto& [json, field] : cases) {
        write_effects(3, json);
        EXPECT_EQ(thrown_by_effects<Exceptions::InvalidFileFormat>(), kInvalid) << json;
        EXPECT_EQ(effects_level("[PlaylistParser::parse_effects] Field '" + field + "' absent"), -2) << json;
    }
}

TEST_F(PlaylistParserEffectsTest, EffectsBeforeABadOneStay) {
    write_effects(
        3,
        R"([{"path": "A", "fps": 1, "outputs": []}, {"path": "B"}, {"path": "C", "fps": 1, "outputs": []}])");
    Playlist playlist;
    EXPECT_THROW(parse_effects(playlist), Exceptions::InvalidFileFormat);
    EXPECT_THAT(paths(playlist), ElementsAre("A"));
}

TEST_F(PlaylistParserEffectsTest, AnEffectIsAppendedEvenWhenNoneOfItsOutputsIsAccepted) {
    write_effects(3, R"([{"path": "A", "fps": 1, "outputs": ["nowhere", 5]}])");
    Playlist playlist;
    parse_effects(playlist);
    ASSERT_EQ(playlist.effects().size(), 1U);
    EXPECT_TRUE(playlist.effects()[0].outputs.empty());
}

TEST_F(PlaylistParserEffectsTest, AbsentOrMistypedUniversesAreAnEmptyZoneMap) {
    write_effects(
        3,
        R"([{"path": "A", "fps": 1, "outputs": []}, {"path": "B", "fps": 1, "outputs": [], "universes": {"id": 1, "zone": 2}}])");
    Playlist playlist;
    parse_effects(playlist);
    ASSERT_EQ(playlist.effects().size(), 2U);
    EXPECT_TRUE(playlist.effects()[0].universes.empty());
    EXPECT_TRUE(playlist.effects()[1].universes.empty());
}

TEST_F(PlaylistParserEffectsTest, TheWayToTwoEffectsIsLogged) {
    write_effects(
        3,
        R"([{"path": "b.rec", "fps": 30, "outputs": ["1:10.0.0.5:6454", 8, "x"], "sort": 2.5, "name": "late",
                          "universes": [{"id": 1, "zone": 2}, 5]},
                         {"path": "a.rec", "fps": -1, "ppf": 3, "outputs": [], "name": 9}])");
    Playlist playlist;
    write_desc(R"([{"Id": 3}])");
    parse_desc(3, playlist);
    const CapturedLog log;
    PlaylistParser().parse_effects(playlist);
    EXPECT_THAT(
        log.lines(),
        ElementsAre(
            "[PlaylistParser::parse_effects] Parse playlist effects file (path:" + path("playlists/3.json") +
                ")",
            "[PlaylistParser::parse_effects] Found effects (2)",
            "[PlaylistParser::sortLessThan] qSort , 0 < 2",
            "[PlaylistParser::parse_effects] Found outputs (0)",
            "[PlaylistParser::parse_outputs] Parse effect outputs",
            "[PlaylistParser::parse_effects] Found universes (0)",
            "[PlaylistParser::parse_universes] Parse effect universes",
            "[PlaylistParser::parse_effects] Added effect (path:a.rec, fps:-1, ppf:3, outputs:0, "
            "universes:0)",
            "[PlaylistParser::parse_effects] Sort ID (2)",
            "[PlaylistParser::parse_effects] Found outputs (2)",
            "[PlaylistParser::parse_outputs] Parse effect outputs",
            "[PlaylistParser::parse_effects] Parsed output (universe:1, address:(10.0.0.5:6454))",
            "[PlaylistParser::parse_effects] Output string must be of format \"universe:ip:port\" (x)",
            "[PlaylistParser::parse_effects] Found universes (2)",
            "[PlaylistParser::parse_universes] Parse effect universes",
            "[PlaylistParser::parse_effects] Parsed universe (id:1, zone:2)",
            "[PlaylistParser::parse_effects] Added effect (path:b.rec, fps:30, ppf:-1, outputs:1, "
            "universes:1)"));
}

TEST_F(PlaylistParserEffectsTest, TheLinesHaveTheirLevels) {
    write_effects(3, R"([{"path": "a", "fps": 1, "outputs": [], "sort": 4, "name": "one"},
                         {"path": "b", "fps": 1, "outputs": ["1:10.0.0.5:6454"], "sort": 4, "name": "one"}])");
    const std::string tag = "[PlaylistParser::parse_effects] ";
    EXPECT_EQ(effects_level(tag + "Parse playlist effects file (path:" + path("playlists/3.json") + ")"), 3);
    EXPECT_EQ(effects_level(tag + "Found effects (2)"), 4);
    EXPECT_EQ(effects_level("[PlaylistParser::sortLessThan] qSort one, 4 < 4"), 4);
    EXPECT_EQ(effects_level(tag + "Sort ID (4)"), 4);
    EXPECT_EQ(effects_level(tag + "Found outputs (1)"), 4);
    EXPECT_EQ(effects_level(tag + "Found universes (0)"), 4);
    EXPECT_EQ(effects_level(tag + "Added effect (path:a, fps:1, ppf:-1, outputs:0, universes:0)"), 4);
}

TEST_F(PlaylistParserEffectsTest, AbsentFieldsAreReportedBeforeTheSortKey) {
    write_effects(3, R"([{"path": "a", "fps": 1, "sort": 4}])");
    const CapturedLog log;
    EXPECT_EQ(thrown_by_effects<Exceptions::InvalidFileFormat>(), kInvalid);
    EXPECT_FALSE(log.has("[PlaylistParser::parse_effects] Sort ID (4)"));
}

TEST_F(PlaylistParserEffectsTest, SortLessThanComparesTruncatedKeysOfAnything) {
    const auto effect = [](double sort) { return QJsonValue(QJsonObject{{QStringLiteral("sort"), sort}}); };
    const CapturedLog log(-3);
    EXPECT_TRUE(sortLessThan(effect(1), effect(2)));
    EXPECT_FALSE(sortLessThan(effect(2), effect(1)));
    EXPECT_FALSE(sortLessThan(effect(1.1), effect(1.9)));
    EXPECT_TRUE(sortLessThan(effect(-1), QJsonValue(5)));
    EXPECT_FALSE(sortLessThan(QJsonValue(5), QJsonValue(7))) << "what is no object has the key 0";
}

TEST_F(PlaylistParserEffectsTest, AnObserverHearsOfEachElementAndChangesNoLine) {
    write_desc(R"([{"Id": 3}])");
    write_effects(3, R"([{"path": "b", "fps": -1, "outputs": [5, "1:10.0.0.5:1"], "sort": 1, "ppf": "2",
                          "universes": [{"id": 1}], "name": "late"},
                         7,
                         {"path": "a", "fps": 25, "outputs": [], "sort": -1, "ppf": "2", "universes": [], "name": "early"},
                         {"path": "c", "outputs": [], "sort": 2}])");
    const auto lines = [this](const PlaylistParser& parser) {
        Playlist playlist;
        parse_desc(3, playlist);
        const CapturedLog log;
        EXPECT_EQ(thrown<Exceptions::InvalidFileFormat>([&] { parser.parse_effects(playlist); }), kInvalid);
        EXPECT_THAT(paths(playlist), ElementsAre("a", "b"));
        return log.lines();
    };
    Listener listener;
    EXPECT_EQ(lines(PlaylistParser(listener)), lines(PlaylistParser()));
    EXPECT_THAT(listener.heard, ElementsAre("effect 0", "defaulted ppf -1: -1, found from the recording",
                                            "effect 1", "skipped  -1: it is not an object", "effect 2",
                                            "defaulted ppf -1: -1", "skipped outputs 0: it is not a text",
                                            "skipped outputs 1: its port must be 1024 to 65535",
                                            "skipped universes 0: its \"zone\" must be a number", "effect 3",
                                            "rejected fps -1: must be a number"));
}
