// What the description files are reported for: each fault, and its neighbour that is none.

#include <filesystem>

#include <unistd.h>

#include "show_fixture.h"

using testing::AllOf;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

namespace {

class DescriptionFindingsTest : public ShowFixture {
protected:
    /// A good show whose description file has this text; its playlists 1 and 2 have effects files.
    std::vector<std::string> described(const std::string& json) {
        for (const int id : {1, 2}) {
            show_.playlist(ShowPlaylist(id).effect(ShowEffect("a.rec").output("*:192.0.2.1:6454")));
        }
        show_.recording("a.rec", frames_of({0}));
        show_.file("playlists/playlists.json", json);
        return findings();
    }
};

}  // namespace

TEST_F(DescriptionFindingsTest, AGoodShowHasNone) {
    EXPECT_THAT(described(R"([{"Id": 1, "Loop": true, "Brightness": 100, "SpeedBoost": 0}, {"Id": 2}])"),
                IsEmpty());
    EXPECT_EQ(summary_.playlists, 2U);
    EXPECT_EQ(summary_.effects, 2U);
    EXPECT_EQ(summary_.recordings, 1U);
}

TEST_F(DescriptionFindingsTest, ABrokenDescriptionNamesLineAndColumn) {
    described("[\n  {\"Id\": 1,\n   \"Loop\": yes}\n]\n");
    EXPECT_THAT(line("json-broken"),
                testing::StartsWith("playlists/playlists.json:3:12: error: is not JSON"));
    EXPECT_THAT(line("json-broken"), HasSubstr("no playlist can be played"));
    EXPECT_THAT(described(R"({"Id": 1})"), Contains("error json-no-array playlists/playlists.json"));
    EXPECT_THAT(described(""), Contains("error json-broken playlists/playlists.json"));
}

TEST_F(DescriptionFindingsTest, AMissingDescriptionIsAnError) {
    EXPECT_THAT(findings(), ElementsAre("error description-missing playlists/playlists.json"));
    std::filesystem::create_directories(show_.path("playlists/playlists.json"));
    EXPECT_THAT(findings(), ElementsAre("error description-missing playlists/playlists.json"));
    EXPECT_THAT(line("description-missing"), HasSubstr("no regular file"));
}

TEST_F(DescriptionFindingsTest, AnEmptyDescriptionIsAWarning) {
    EXPECT_THAT(described("[]"), Contains("warning no-playlists playlists/playlists.json"));
    EXPECT_THAT(described("[{\"Id\": 1}, {\"Id\": 2}]"), IsEmpty());
}

TEST_F(DescriptionFindingsTest, PlaylistsThatNobodyCanNameAreErrors) {
    EXPECT_THAT(described(R"([{"Id": 1}, {"Id": "2"}, {"id": 2}, 5, {"Id": 2}])"),
                ElementsAre("error id-missing playlists/playlists.json [1]",
                            "warning key-case playlists/playlists.json [2].id",
                            "error id-missing playlists/playlists.json [2]",
                            "warning element-skipped playlists/playlists.json [3]"));
}

TEST_F(DescriptionFindingsTest, OfTwoPlaylistsWithOneIdTheSecondIsNeverSeen) {
    EXPECT_THAT(described(R"([{"Id": 1}, {"Id": 2}, {"Id": 1.5}])"),
                ElementsAre("warning number-cut playlists/playlists.json [2].Id",
                            "error duplicate-id playlists/playlists.json [2]"));
    EXPECT_THAT(line("duplicate-id"), HasSubstr("described by [0] already"));
}

TEST_F(DescriptionFindingsTest, ValuesThatCannotBeUsedHaveTheirDefault) {
    EXPECT_THAT(described(R"([{"Id": 1, "Loop": 0, "Brightness": "50", "SpeedBoost": null}, {"Id": 2}])"),
                ElementsAre("warning default-used playlists/playlists.json [0].Loop",
                            "warning default-used playlists/playlists.json [0].Brightness",
                            "warning default-used playlists/playlists.json [0].SpeedBoost"));
    EXPECT_THAT(line("default-used"), HasSubstr("default holds (true)"));
}

TEST_F(DescriptionFindingsTest, DefaultsOfAbsentKeysAreOneNote) {
    described(R"([{"Id": 1, "Loop": false}, {"Id": 2}])");
    EXPECT_EQ(
        line("defaults"),
        "playlists/playlists.json: note: [0]: not given, so that the defaults hold: \"Brightness\": 100; "
        "\"SpeedBoost\": 0 [defaults]");
}

TEST_F(DescriptionFindingsTest, BrightnessAndSpeedHaveRanges) {
    EXPECT_THAT(described(R"([{"Id": 1, "Brightness": 101, "SpeedBoost": -101},
                              {"Id": 2, "Brightness": -1, "SpeedBoost": 101}])"),
                ElementsAre("warning out-of-range playlists/playlists.json [0].Brightness",
                            "warning out-of-range playlists/playlists.json [0].SpeedBoost",
                            "warning out-of-range playlists/playlists.json [1].Brightness",
                            "warning out-of-range playlists/playlists.json [1].SpeedBoost"));
    EXPECT_THAT(described(R"([{"Id": 1, "Brightness": 100, "SpeedBoost": -100},
                              {"Id": 2, "Brightness": 0, "SpeedBoost": 100}])"),
                IsEmpty());
}

TEST_F(DescriptionFindingsTest, AnEffectsFileThatIsNotThereOrBrokenEndsItsPlaylist) {
    EXPECT_THAT(described(R"([{"Id": 1}, {"Id": 2}, {"Id": 3}])"),
                ElementsAre("error effects-missing playlists/3.json"));
    show_.file("playlists/2.json", "[\n{\"path\": }]");
    EXPECT_THAT(findings(), Contains("error json-broken playlists/2.json"));
    EXPECT_THAT(line("json-broken"), testing::StartsWith("playlists/2.json:2:"));
    show_.file("playlists/2.json", "{}");
    EXPECT_THAT(findings(), Contains("error json-no-array playlists/2.json"));
}

TEST_F(DescriptionFindingsTest, AnEffectWithoutARequiredFieldRejectsItsWholeFile) {
    const std::string good = R"({"path": "a.rec", "fps": -1, "outputs": ["*:192.0.2.1:6454"]},)";
    effects("[" + good + R"({"path": 5, "fps": -1, "outputs": []}])");
    EXPECT_THAT(findings(), ElementsAre("error file-rejected playlists/1.json [1].path"));
    effects("[" + good + R"({"path": "a.rec", "outputs": []}])");
    EXPECT_THAT(findings(), ElementsAre("error file-rejected playlists/1.json [1].fps"));
    effects("[" + good + R"({"path": "a.rec", "fps": -1, "outputs": "*"}])");
    EXPECT_THAT(findings(), ElementsAre("error file-rejected playlists/1.json [1].outputs"));
    EXPECT_THAT(line("file-rejected"),
                AllOf(HasSubstr("\"outputs\" must be an array"), HasSubstr("cannot be played")));
}

TEST_F(DescriptionFindingsTest, PlacesAreThoseOfTheFileWhateverThePlayingOrder) {
    effects(R"([{"path": "a.rec", "fps": -1, "outputs": ["*:192.0.2.1:6454"], "sort": 3}, "none",
                {"path": "a.rec", "fps": -1, "outputs": ["*:192.0.2.1:6454", "1:127.0.0.1:6454"], "sort": 2},
                {"path": "a.rec", "outputs": [], "sort": 4}])");
    EXPECT_THAT(findings(), ElementsAre("warning element-skipped playlists/1.json [1]",
                                        "error output-skipped playlists/1.json [2].outputs[1]",
                                        "error file-rejected playlists/1.json [3].fps"));
}

TEST_F(DescriptionFindingsTest, OutputsThatAreSkippedSayWhy) {
    effects(
        R"([{"path": "a.rec", "fps": -1, "outputs": ["*:192.0.2.1:6454", "1:192.0.2.1", "32768:192.0.2.1:6454",
                "1:0.1.2.3:6454", "1:192.0.2.1:1023", 7]}])");
    EXPECT_THAT(findings(), ElementsAre("error output-skipped playlists/1.json [0].outputs[1]",
                                        "error output-skipped playlists/1.json [0].outputs[2]",
                                        "error output-skipped playlists/1.json [0].outputs[3]",
                                        "error output-skipped playlists/1.json [0].outputs[4]",
                                        "error output-skipped playlists/1.json [0].outputs[5]"));
    EXPECT_EQ(line("output-skipped"),
              "playlists/1.json: error: [0].outputs[1]: the output \"1:192.0.2.1\" is skipped: it must read "
              "\"universe:ip:port\" [output-skipped]");
    EXPECT_THAT(datacheck::finding_line(found_.list()[found_.list().size() - 3]), HasSubstr("1024 to 65535"));
}

TEST_F(DescriptionFindingsTest, ZonesOfUniversesAreLookedAtOneByOne) {
    effect_with(R"(, "universes": [{"id": 0, "zone": -3}, {"zone": 1}, {"id": 0}, 3])");
    EXPECT_THAT(findings(), ElementsAre("warning out-of-range playlists/1.json [0].universes[0].zone",
                                        "error zone-skipped playlists/1.json [0].universes[1]",
                                        "error zone-skipped playlists/1.json [0].universes[2]",
                                        "error zone-skipped playlists/1.json [0].universes[3]"));
    effect_with(R"(, "universes": [{"id": 0, "zone": -2}])");
    EXPECT_THAT(findings(), IsEmpty());
}

TEST_F(DescriptionFindingsTest, AUniverseThatHasItsZoneTwiceNamesBothPlaces) {
    effect_with(R"(, "universes": [{"id": 0, "zone": 1}, {"id": 0}, {"id": 0.5, "zone": 2}])");
    EXPECT_THAT(findings(), ElementsAre("warning number-cut playlists/1.json [0].universes[2].id",
                                        "warning zone-replaced playlists/1.json [0].universes[2]",
                                        "error zone-skipped playlists/1.json [0].universes[1]"));
    EXPECT_EQ(line("zone-replaced"),
              "playlists/1.json: warning: [0].universes[2]: universe 0 stands in [0].universes[0] already, "
              "and the zone here replaces the one there; leave one of them [zone-replaced]");
    // Each names the one before it.
    effect_with(R"(, "universes": [{"id": 0, "zone": 1}, {"id": 0, "zone": 1}, {"id": 0, "zone": 2}])");
    EXPECT_THAT(findings(), ElementsAre("warning zone-replaced playlists/1.json [0].universes[1]",
                                        "warning zone-replaced playlists/1.json [0].universes[2]"));
    EXPECT_THAT(datacheck::finding_line(found_.list().back()), Not(HasSubstr("[0].universes[0]")));
}

TEST_F(DescriptionFindingsTest, OptionalFieldsOfAWrongTypeAreNamed) {
    effect_with(R"(, "sort": "1", "ppf": true, "universes": {}, "name": 5)");
    EXPECT_THAT(findings(), ElementsAre("warning default-used playlists/1.json [0].sort",
                                        "warning default-used playlists/1.json [0].ppf",
                                        "warning default-used playlists/1.json [0].universes",
                                        "warning default-used playlists/1.json [0].name"));
    effect_with(R"(, "sort": 1, "universes": [], "name": "red", "Fps": 3)");
    EXPECT_THAT(findings(), ElementsAre("warning key-case playlists/1.json [0].Fps"));
    effect_with(R"(, "sort": 1, "universes": [], "name": "red")");
    EXPECT_THAT(findings(), IsEmpty());
}
