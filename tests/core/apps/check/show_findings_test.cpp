// What a whole show is reported for: each fault, and its neighbour that is none.

#include <filesystem>

#include <sys/stat.h>
#include <unistd.h>

#include <QJsonDocument>

#include "show_fixture.h"
#include "support/child_process.h"

using testing::AllOf;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

namespace {

class ShowFindingsTest : public ShowFixture {
protected:
    /// Findings of a show of playlist 1 with these effects; a.rec has universes 0 and 1.
    std::vector<std::string> with(const std::vector<ShowEffect>& effects,
                                  const datacheck::ShowOptions& options = {},
                                  const std::string& description = R"([{"Id": 1}])") {
        show_.recording("a.rec", frames_of({0, 1}));
        QJsonArray array;
        for (const ShowEffect& effect : effects) {
            array.append(effect.json());
        }
        show_.file("playlists/1.json", QJsonDocument(array).toJson().toStdString());
        show_.file("playlists/playlists.json", description);
        return findings(options);
    }

    static ShowEffect everywhere(const std::string& recording = "a.rec") {
        return ShowEffect(recording).output("*:192.0.2.1:6454");
    }
};

}  // namespace

TEST_F(ShowFindingsTest, RatesThatNoDmxLineCarriesAreTooHigh) {
    EXPECT_THAT(with({everywhere().fps(45)}), Contains("warning fps-high playlists/1.json [0].fps"));
    EXPECT_THAT(with({everywhere().fps(44)}), Not(Contains(HasSubstr("fps-"))));
}

TEST_F(ShowFindingsTest, RatesOfNothingPlayOneFrameASecond) {
    EXPECT_THAT(with({everywhere().fps(0)}), Contains("warning fps-low playlists/1.json [0].fps"));
    EXPECT_THAT(with({everywhere().fps(-2)}), Contains("warning fps-low playlists/1.json [0].fps"));
    EXPECT_THAT(with({everywhere().fps(-1)}), IsEmpty());
    EXPECT_THAT(with({everywhere().fps(29.97)}), Contains("warning number-cut playlists/1.json [0].fps"));
    EXPECT_THAT(line("number-cut"), HasSubstr("29.97 is used as 29"));
}

TEST_F(ShowFindingsTest, PacketsPerFrameMustFitTheirRate) {
    EXPECT_THAT(with({everywhere().ppf(2)}), ElementsAre("warning ppf-unused playlists/1.json [0].ppf"));
    EXPECT_THAT(with({everywhere().fps(25).ppf(0)}), Contains("warning ppf-low playlists/1.json [0].ppf"));
    EXPECT_THAT(with({everywhere().fps(25).ppf(-3)}), Contains("warning ppf-low playlists/1.json [0].ppf"));
    EXPECT_THAT(with({everywhere().fps(25).ppf(3)}), Contains("warning universe-repeats a.rec"));
    // What is left is that the recording's own timing is not used.
    EXPECT_THAT(with({everywhere().fps(25).ppf(2)}), ElementsAre("note timing-unused a.rec"));
}

TEST_F(ShowFindingsTest, AnOutputGivenTwiceGetsEveryFrameTwice) {
    EXPECT_THAT(with({everywhere().output("*:192.0.2.1:6454")}),
                ElementsAre("warning output-twice playlists/1.json [0].outputs"));
    EXPECT_THAT(with({everywhere().output("*:192.0.2.1:6455")}), IsEmpty());
}

TEST_F(ShowFindingsTest, UniversesNeedAnOutputOrANode) {
    const ShowEffect half = ShowEffect("a.rec").output("0:192.0.2.1:6454");
    EXPECT_THAT(with({half}), ElementsAre("warning no-destination playlists/1.json [0].outputs"));
    EXPECT_THAT(line("no-destination"), HasSubstr("universe 1 of the recording"));
    datacheck::ShowOptions options;
    options.node_universes = {1};
    EXPECT_THAT(with({half}, options), IsEmpty());
    EXPECT_THAT(with({everywhere()}), IsEmpty());
    // Muted on purpose.
    EXPECT_THAT(with({ShowEffect(half).zone(1, -2)}), IsEmpty());
}

TEST_F(ShowFindingsTest, OutputsAndZonesOfUniversesThatTheRecordingDoesNotHaveAreMistakes) {
    EXPECT_THAT(with({everywhere().output("7:192.0.2.1:6454").zone(8, 1)}),
                ElementsAre("warning output-unused playlists/1.json [0].outputs",
                            "warning zone-unused playlists/1.json [0].universes"));
    EXPECT_THAT(with({everywhere().output("1:192.0.2.1:6454").zone(1, 1)}), IsEmpty());
}

TEST_F(ShowFindingsTest, ZonesMustBeAmongThoseGiven) {
    datacheck::ShowOptions options;
    options.zones = std::set<int>{1, 2};
    EXPECT_THAT(with({everywhere().zone(0, 3)}, options),
                ElementsAre("error zone-absent playlists/1.json [0].universes"));
    EXPECT_THAT(line("zone-absent"), HasSubstr("zone 3"));
    EXPECT_THAT(with({everywhere().zone(0, 2).zone(1, -1)}, options), IsEmpty());
    // Not known.
    EXPECT_THAT(with({everywhere().zone(0, 3)}), IsEmpty());
}

TEST_F(ShowFindingsTest, ARecordingsFindingsStandOnceHoweverOftenItPlays) {
    show_.recording("bad.rec", Recording{}.dmx(0, {1, 2, 3}).frame_delay(30ms).fill_to(512).bytes());
    EXPECT_THAT(
        with({everywhere("bad.rec"), everywhere("bad.rec"), everywhere("bad.rec").fps(20), everywhere()}),
        ElementsAre("warning odd-length bad.rec", "note timing-unused bad.rec"));
    EXPECT_THAT(line("odd-length"),
                testing::StartsWith("bad.rec: warning: byte 0, frame 0: 1 ArtDmx packet"));
}

TEST_F(ShowFindingsTest, ARecordingThatCannotBeLoadedTakesTheLaterEffectsWithIt) {
    EXPECT_THAT(with({everywhere("absent.rec"), everywhere().sort(1)}),
                ElementsAre("error unreadable absent.rec", "error not-loaded playlists/1.json [1]",
                            "error playlist-empty playlists/1.json"));
    EXPECT_THAT(with({everywhere(), everywhere("absent.rec").sort(1)}),
                ElementsAre("error unreadable absent.rec"));
}

TEST_F(ShowFindingsTest, APlaylistNeedsAnEffect) {
    EXPECT_THAT(with({}), Contains("error playlist-empty playlists/1.json"));
    EXPECT_THAT(line("playlist-empty"), HasSubstr("refuses to play it"));
}

TEST_F(ShowFindingsTest, AJumpAtTheSeamMattersOnlyToALoopOfOneRecording) {
    Recording rising;
    for (std::uint8_t level = 0; level < 100; level = static_cast<std::uint8_t>(level + 10)) {
        rising.dmx(0, {level, 0}).frame_delay(30ms);
    }
    show_.recording("rising.rec", rising.fill_to(512).bytes());
    EXPECT_THAT(with({everywhere("rising.rec")}), Contains("warning loop-seam rising.rec"));
    EXPECT_THAT(with({everywhere("rising.rec")}, {}, R"([{"Id": 1, "Loop": false}])"),
                Not(Contains(HasSubstr("loop-seam"))));
    EXPECT_THAT(with({everywhere("rising.rec"), everywhere("rising.rec")}),
                Not(Contains(HasSubstr("loop-seam"))));
}

TEST_F(ShowFindingsTest, APlaylistWithoutLoopMustEnd) {
    // A day and a bit in frames of ten seconds would be many; one frame that stands says the same.
    show_.recording("day.rec",
                    Recording{}.dmx(0, {1, 2}).frame_delay(25h).dmx(0, {1, 2}).fill_to(512).bytes());
    const std::string once = R"([{"Id": 1, "Loop": false}])";
    EXPECT_THAT(with({everywhere("day.rec")}, {}, once),
                Contains("warning never-ends playlists/playlists.json [0]"));
    EXPECT_THAT(with({everywhere("day.rec")}), Not(Contains(HasSubstr("never-ends"))));
    // Twice as fast it is over within the day.
    EXPECT_THAT(with({everywhere("day.rec")}, {}, R"([{"Id": 1, "Loop": false, "SpeedBoost": 100}])"),
                Not(Contains(HasSubstr("never-ends"))));
    ASSERT_EQ(mkfifo(show_.path("pipe.rec").c_str(), 0600), 0);
    EXPECT_THAT(with({everywhere("pipe.rec")}, {}, once),
                Contains("warning never-ends playlists/playlists.json [0]"));
}

TEST_F(ShowFindingsTest, FilesThatNothingLeadsToAreNamed) {
    show_.recording("unused.rec", frames_of({0}));
    show_.file("playlists/9.json", "[]").file("README", "words").file(".git/config", "words");
    show_.file("zones.json", "[]");
    datacheck::ShowOptions options;
    options.side_files = {show_.path("zones.json")};
    EXPECT_THAT(with({everywhere()}, options),
                ElementsAre("note unreachable-file README", "warning unreachable-file playlists/9.json",
                            "warning unreachable-file unused.rec"));
}

TEST_F(ShowFindingsTest, RecordingsOfARejectedFileAreNotUnreachable) {
    show_.recording("late.rec", frames_of({0}));
    show_.recording("a.rec", frames_of({0}));
    show_.file("playlists/playlists.json", R"([{"Id": 1}])");
    show_.file("playlists/1.json", R"([{"path": "a.rec"}, {"path": "late.rec", "fps": -1, "outputs": []}])");
    EXPECT_THAT(findings(), ElementsAre("error file-rejected playlists/1.json [0].fps"));
}

TEST_F(ShowFindingsTest, AFolderThatCannotBeLookedIntoIsNamed) {
    show_.file("playlists/playlists.json", "[]").file("secret/file", "words");
    namespace fs = std::filesystem;
    constexpr fs::perms kEverybody =
        fs::perms::group_read | fs::perms::group_exec | fs::perms::others_read | fs::perms::others_exec;
    fs::permissions(show_.path(""), kEverybody, fs::perm_options::add);
    fs::permissions(show_.path("playlists"), kEverybody, fs::perm_options::add);
    fs::permissions(show_.path("secret"), fs::perms::none);
    const tests::ChildReport child = tests::run_in_child(0, [this] {
        constexpr uid_t kNobody = 65534;
        // Root may look into everything.
        if (geteuid() == 0 && seteuid(kNobody) != 0) {
            throw tests::Unavailable("cannot become another user");
        }
        if (eaccess(show_.path("playlists/playlists.json").c_str(), R_OK) != 0) {
            throw tests::Unavailable("another user cannot reach the temporary directory");
        }
        std::string text;
        for (const std::string& finding : findings()) {
            text += finding + "\n";
        }
        return text;
    });
    fs::permissions(show_.path("secret"), fs::perms::owner_all);
    SKIP_IF_UNAVAILABLE(child);
    EXPECT_EQ(child.text,
              "warning no-playlists playlists/playlists.json\nwarning unreadable-directory secret\n");
    EXPECT_THAT(findings(), Not(Contains(HasSubstr("unreadable-directory"))));
}

TEST_F(ShowFindingsTest, OfManyFindingsOfAKindTheRestIsCounted) {
    Recording many;
    many.dmx(0, {1, 2}).dmx(1, {1, 2}).frame_delay(30ms);
    for (int packet = 0; packet < 5; ++packet) {
        many.header(0x5200);
    }
    show_.recording("many.rec", many.fill_to(512).bytes());
    datacheck::ShowOptions options;
    options.per_kind = 3;
    const std::vector<ShowEffect> effects{everywhere("many.rec"), everywhere()};
    EXPECT_THAT(with(effects, options), Contains("note more many.rec"));
    EXPECT_THAT(line("more"), HasSubstr("2 more of the kind [unknown-packet]"));
    options.per_kind = 5;
    EXPECT_THAT(with(effects, options), Not(Contains("note more many.rec")));
}
