// The built cuewright-check: exit statuses, output, bad input.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include "cli/failure.h"
#include "show_fixture.h"
#include "side_files.h"
#include "support/ending.h"

using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::StartsWith;
using tests::Ending;

namespace {

class CheckProgramTest : public testing::Test {
protected:
    static Ending run(std::vector<std::string> words) {
        words.insert(words.begin(), CUEWRIGHT_CHECK);
        return tests::run_to_end(words);
    }

    /// A good show of one effect in zone 1.
    void make_show() {
        show_.recording("a.rec", frames_of({0}));
        show_.playlist(ShowPlaylist(1).effect(ShowEffect("a.rec").output("0:192.0.2.1:6454").zone(0, 1)));
    }

    [[nodiscard]] std::string root() const { return show_.root().toStdString(); }

    /// What is thrown for a file of this content.
    template <typename Read>
    std::string refusal(Read read, const std::string& content) {
        show_.file("side", content);
        try {
            read(show_.path("side"));
        } catch (const cli::Failure& failure) {
            return std::string(failure.what()).substr(root().size() + 1);
        }
        return "accepted";
    }

    ShowDirectory show_;
};

}  // namespace

TEST_F(CheckProgramTest, AGoodShowEndsWithStatusZero) {
    make_show();
    const Ending ending = run({"--level", "warning", root()});
    EXPECT_EQ(ending.status, 0);
    EXPECT_EQ(ending.output, root() + ": good, 2 notes; 1 playlist, 1 effect, 1 recording\n");
    EXPECT_EQ(ending.error, "");
}

TEST_F(CheckProgramTest, ErrorsAndWithStrictWarningsEndWithStatusOne) {
    make_show();
    show_.recording("unused.rec", frames_of({0}));
    const Ending warned = run({root()});
    EXPECT_EQ(warned.status, 0);
    EXPECT_THAT(warned.output,
                HasSubstr("\nunused.rec: warning: no effect of a playlist plays this recording"));
    EXPECT_EQ(run({"--strict", root()}).status, 1);
    show_.file("zones.json", R"([{"id": 2, "priority": 1, "channels": [0]}])");
    const Ending failed = run({"--zones", show_.path("zones.json"), root()});
    EXPECT_EQ(failed.status, 1);
    EXPECT_THAT(failed.output, AllOf(HasSubstr("[zone-absent]"), HasSubstr("1 error, 1 warning")));
}

TEST_F(CheckProgramTest, JsonHasFileElementPlaceAndSentence) {
    make_show();
    show_.recording("b.rec", Recording{}.dmx(0, {1}).frame_delay(30ms).fill_to(512).bytes());
    show_.playlist(ShowPlaylist(2).effect(ShowEffect("b.rec").output("*:192.0.2.1:6454").output("1:bad:1")));
    show_.playlist(ShowPlaylist(3)).file("playlists/3.json", "[\n  ?]");
    const Ending ending = run({"--json", "--level", "warning", root()});
    EXPECT_EQ(ending.status, 1);
    const QJsonObject answer = QJsonDocument::fromJson(QByteArray::fromStdString(ending.output)).object();
    const auto at = [](const QJsonObject& object, const char* key) {
        return object.value(QLatin1String(key));
    };
    EXPECT_EQ(at(answer, "errors").toInt(), 2);
    EXPECT_EQ(at(answer, "playlists").toInt(), 3);
    std::vector<std::string> found;
    for (const QJsonValue& value : at(answer, "findings").toArray()) {
        const QJsonObject finding = value.toObject();
        EXPECT_FALSE(at(finding, "text").toString().isEmpty());
        found.push_back(QJsonDocument(QJsonObject{{QStringLiteral("kind"), at(finding, "kind")},
                                                  {QStringLiteral("file"), at(finding, "file")},
                                                  {QStringLiteral("element"), at(finding, "element")},
                                                  {QStringLiteral("line"), at(finding, "line")},
                                                  {QStringLiteral("offset"), at(finding, "offset")}})
                            .toJson(QJsonDocument::Compact)
                            .toStdString());
    }
    EXPECT_THAT(
        found,
        ElementsAre(R"({"element":"[0].outputs[1]","file":"playlists/2.json","kind":"output-skipped"})",
                    R"({"file":"playlists/3.json","kind":"json-broken","line":2})",
                    R"({"file":"b.rec","kind":"odd-length","offset":0})"));
}

TEST_F(CheckProgramTest, WhatCannotBeCheckedIsAFailureWithItsReason) {
    EXPECT_EQ(run({}).status, 2);
    EXPECT_EQ(run({"--level", "loud", root()}).status, 2);
    const Ending absent = run({show_.path("absent")});
    EXPECT_EQ(absent.status, 1);
    EXPECT_THAT(absent.error,
                AllOf(StartsWith("cuewright-check: "), HasSubstr("absent: No such file or directory"),
                      HasSubstr("expected the player's data directory")));
    show_.file("plain", "");
    EXPECT_THAT(run({show_.path("plain")}).error, HasSubstr("plain: Not a directory"));
    make_show();
    const Ending zones = run({"--zones", show_.path("no-zones.json"), root()});
    EXPECT_EQ(zones.status, 1);
    EXPECT_THAT(zones.error, HasSubstr("no-zones.json: "));
}

TEST_F(CheckProgramTest, ZonesFilesAreReadStrictly) {
    show_.file("zones.json",
               R"([{"id": 3, "priority": 1, "channels": []}, {"id": 5, "priority": 0, "channels": [1]}])");
    EXPECT_THAT(datacheck::read_zones(show_.path("zones.json")), ElementsAre(3, 5));
    EXPECT_THAT(refusal(datacheck::read_zones, "[\n\n {"), StartsWith("side:3:"));
    EXPECT_THAT(refusal(datacheck::read_zones, "{}"), StartsWith("side:1: expected an array of zones"));
    // What cuewrightctl refuses.
    for (const char* const wrong :
         {R"({"id": 4})", R"({"id": 3, "priority": 1, "channels": []})",
          R"({"id": -1, "priority": 1, "channels": []})", R"({"id": 4.5, "priority": 1, "channels": []})",
          R"({"id": 4, "priority": 1, "channels": [512]})",
          R"({"id": 4, "priority": 1, "channels": [], "name": 1})",
          R"({"id": 4, "priority": "1", "channels": []})", "4"}) {
        EXPECT_THAT(refusal(datacheck::read_zones, R"([{"id": 3, "priority": 1, "channels": [511]},)" +
                                                       ("\n" + std::string(wrong)) + "]"),
                    StartsWith("side:2: element 2: "));
    }
    make_show();
    show_.file("zones.json", R"([{"id": 1, "priority": 1, "channels": [0, 512]}])");
    const Ending ending = run({"--zones", show_.path("zones.json"), root()});
    EXPECT_EQ(ending.status, 1);
    EXPECT_THAT(
        ending.error,
        testing::EndsWith("zones.json:1: element 1: \"channels\", number 2: expected a whole number from 0 "
                          "to 511\n"));
}

TEST_F(CheckProgramTest, NodesComeAsJsonOrAsTheDiscoverysRecords) {
    show_.file("nodes.json", R"([{"address": "192.0.2.1", "universes": [4, "6-8"]}, {"universes": []}])");
    EXPECT_THAT(datacheck::read_nodes(show_.path("nodes.json")), ElementsAre(4, 6, 7, 8));
    show_.file("nodes.txt",
               "1:4:192.0.2.1:6454;1:5:192.0.2.1:6454;\n1:9:192.0.2.2:6454\n\n0:5:192.0.2.1:6454\n");
    EXPECT_THAT(datacheck::read_nodes(show_.path("nodes.txt")), ElementsAre(4, 9));
    for (const char* const wrong : {"4", "{}", R"({"universes": 4})", R"({"universes": ["x"]})",
                                    R"({"universes": [32768]})", R"({"universes": [null]})"}) {
        EXPECT_THAT(refusal(datacheck::read_nodes, "[{\"universes\": []}, " + std::string(wrong) + "]"),
                    StartsWith("side: [1]: expected a node"));
    }
    EXPECT_THAT(refusal(datacheck::read_nodes, "1:4:192.0.2.1:6454\n192.0.2.1\n"),
                StartsWith("side:2: expected records"));
    EXPECT_THROW(static_cast<void>(datacheck::read_nodes(show_.path("absent"))), cli::Failure);
}
