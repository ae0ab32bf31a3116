// The description file of the device.
#include <climits>

#include <gmock/gmock.h>

#include "playlist_parser_fixture.h"

using testing::ElementsAre;

namespace {

class PlaylistParserDescTest : public PlaylistParserFixture {
protected:
    static std::string settings(const Playlist& playlist) {
        return std::to_string(playlist.id()) + (playlist.loop_mode() ? " loop " : " once ") +
               std::to_string(playlist.get_brightness()) + " " + std::to_string(playlist.get_speed_boost());
    }
    std::string parsed(const std::string& json, int id = 3) const {
        write_desc(json);
        Playlist playlist;
        parse_desc(id, playlist);
        return settings(playlist);
    }
};

}  // namespace

TEST_F(PlaylistParserDescTest, TheFourSettingsAreTaken) {
    EXPECT_EQ(parsed(R"([{"Id": 3, "Loop": false, "Brightness": 70, "SpeedBoost": 20}])"), "3 once 70 20");
}

TEST_F(PlaylistParserDescTest, AbsentSettingsHaveTheirDefaults) {
    write_desc(R"([{"Id": 3}])");
    Playlist playlist;
    playlist.set_brightness(1);
    playlist.set_speed_boost(1);
    parse_desc(3, playlist);
    EXPECT_EQ(settings(playlist), "3 loop 100 0");
}

TEST_F(PlaylistParserDescTest, SettingsOfAnotherTypeHaveTheirDefaults) {
    EXPECT_EQ(parsed(R"([{"Id": 3, "Loop": 0, "Brightness": "70", "SpeedBoost": true}])"), "3 loop 100 0");
    EXPECT_EQ(parsed(R"([{"Id": 3, "Loop": "false", "Brightness": null, "SpeedBoost": []}])"),
              "3 loop 100 0");
}

TEST_F(PlaylistParserDescTest, NumbersAreTruncatedAndSaturateButHaveNoRange) {
    EXPECT_EQ(parsed(R"([{"Id": 3, "Brightness": 29.97, "SpeedBoost": -3.7}])"), "3 loop 29 -3");
    EXPECT_EQ(parsed(R"([{"Id": 3, "Brightness": 1e12, "SpeedBoost": -1e12}])"),
              "3 loop " + std::to_string(INT_MAX) + " " + std::to_string(INT_MIN));
    EXPECT_EQ(parsed(R"([{"Id": 3, "Brightness": 250, "SpeedBoost": -5}])"), "3 loop 250 -5");
}

TEST_F(PlaylistParserDescTest, AnIdIsTruncatedBeforeItIsCompared) {
    EXPECT_EQ(parsed(R"([{"Id": 3.7, "Brightness": 5}])"), "3 loop 5 0");
    EXPECT_EQ(parsed(R"([{"Id": -0.9, "Brightness": 5}])", 0), "0 loop 5 0");
}

TEST_F(PlaylistParserDescTest, TheFirstEntryWithTheIdCounts) {
    EXPECT_EQ(
        parsed(R"([{"Id": 2, "Brightness": 1}, {"Id": 3, "Brightness": 2}, {"Id": 3, "Brightness": 4}])"),
        "3 loop 2 0");
}

TEST_F(PlaylistParserDescTest, ElementsThatAreNoObjectsAreIgnored) {
    EXPECT_EQ(parsed(R"([3, "3", null, [{"Id": 3}], {"Id": 3, "Brightness": 9}])"), "3 loop 9 0");
}

TEST_F(PlaylistParserDescTest, AnIdOfAnotherTypeOrSpellingNeverMatches) {
    for (const char* const json :
         {R"([{"Id": "3"}])", R"([{"id": 3}])", R"([{"Id": true}])", R"([{}])", "[]", R"([{"Id": 4}])"}) {
        write_desc(json);
        EXPECT_EQ(thrown_by_desc<Exceptions::InvalidPath>(3), "Playlist desc not found") << json;
        EXPECT_EQ(desc_level("[PlaylistParser::parse_desc] Playlist desc not found", 3), -2) << json;
    }
}

TEST_F(PlaylistParserDescTest, AnElementThatIsNoObjectDoesNotMatchIdZero) {
    write_desc(R"([0, "x", {}])");
    EXPECT_EQ(thrown_by_desc<Exceptions::InvalidPath>(0), "Playlist desc not found");
}

TEST_F(PlaylistParserDescTest, AMissingFileIsAnInvalidPath) {
    EXPECT_EQ(thrown_by_desc<Exceptions::InvalidPath>(3), "Playlist desc file not found");
    EXPECT_EQ(desc_level("[PlaylistParser::parse_desc] File (path:" + path(kDescPath) + ") not found", 3),
              -2);
}

TEST_F(PlaylistParserDescTest, ADirectoryInPlaceOfTheFileIsAnInvalidPath) {
    QDir(root_.path()).mkpath(QString::fromLatin1(kDescPath));
    EXPECT_EQ(thrown_by_desc<Exceptions::InvalidPath>(3), "Playlist desc file not found");
}

TEST_F(PlaylistParserDescTest, ATopLevelObjectIsAnInvalidFormat) {
    write_desc("{}");
    EXPECT_EQ(thrown_by_desc<Exceptions::InvalidFileFormat>(3), "Playlist desc file format invalid");
    EXPECT_EQ(desc_level("[PlaylistParser::parse_desc] Playlists not found", 3), -2);
}

TEST_F(PlaylistParserDescTest, AnEmptyFileIsAParseErrorAndAnInvalidFormat) {
    write_desc("");
    EXPECT_EQ(thrown_by_desc<Exceptions::InvalidFileFormat>(3), "Playlist desc file format invalid");
    EXPECT_EQ(desc_level("[PlaylistParser::parse_desc] Parse error (err:illegal value, offset:0)", 3), -2);
}

TEST_F(PlaylistParserDescTest, BrokenJsonIsAParseErrorWithTheByteOffset) {
    write_desc(R"([{"Id": 3},])");
    EXPECT_EQ(thrown_by_desc<Exceptions::InvalidFileFormat>(3), "Playlist desc file format invalid");
    const CapturedLog log;
    static_cast<void>(thrown_by_desc<std::runtime_error>(3));
    const auto lines = log.lines_starting("[PlaylistParser::parse_desc] Parse error");
    EXPECT_THAT(
        lines,
        ElementsAre(
            "[PlaylistParser::parse_desc] Parse error (err:object is missing after a comma, offset:12)"));
}

TEST_F(PlaylistParserDescTest, TheFileIsReadAsTextSoThatTheOffsetDoesNotCountCarriageReturns) {
    for (const char* const json : {"[\n{\"Id\": 3},\n]", "[\r\n{\"Id\": 3},\r\n]"}) {
        write_desc(json);
        EXPECT_EQ(desc_level("[PlaylistParser::parse_desc] Parse error (err:object is missing after a comma, "
                             "offset:14)",
                             3),
                  -2)
            << json;
    }
}

TEST_F(PlaylistParserDescTest, AFailureLeavesThePlaylistUntouched) {
    for (const char* const json : {"", "{}", R"([{"Id": 4, "Loop": false, "Brightness": 1}])"}) {
        write_desc(json);
        Playlist playlist;
        EXPECT_THROW(parse_desc(3, playlist), std::runtime_error);
        EXPECT_EQ(settings(playlist), "-1 loop 100 0");
    }
}

TEST_F(PlaylistParserDescTest, TheWayToAPlaylistIsLogged) {
    write_desc(R"([{"Id": 1}, 7, {"Id": 3, "Loop": false, "Brightness": 70, "SpeedBoost": 20}])");
    const CapturedLog log;
    Playlist playlist;
    parse_desc(3, playlist);
    EXPECT_THAT(log.lines(),
                ElementsAre("[PlaylistParser::parse_desc] Parse playlist desc file (playlist_id:3, "
                            "playlist_desc_path:playlists/playlists.json)",
                            "[PlaylistParser::parse_desc] Found playlists (3)",
                            "[PlaylistParser::parse_desc] Playlist desc parsed (playlist_id:3, loop_mode:0, "
                            "brightness:70, speed_boost:20)"));
}

TEST_F(PlaylistParserDescTest, TheLinesHaveTheirLevels) {
    write_desc(R"([{"Id": 3}])");
    EXPECT_EQ(desc_level("[PlaylistParser::parse_desc] Parse playlist desc file (playlist_id:3, "
                         "playlist_desc_path:playlists/playlists.json)",
                         3),
              3);
    EXPECT_EQ(desc_level("[PlaylistParser::parse_desc] Found playlists (1)", 3), 4);
    EXPECT_EQ(desc_level("[PlaylistParser::parse_desc] Playlist desc parsed (playlist_id:3, loop_mode:1, "
                         "brightness:100, speed_boost:0)",
                         3),
              4);
}
