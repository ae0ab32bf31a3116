// Outputs and universes of an effect.
#include <gmock/gmock.h>

#include "playlist_parser_fixture.h"

using testing::ElementsAre;

namespace {

QJsonArray texts(const std::vector<const char*>& outputs) {
    QJsonArray array;
    for (const char* const output : outputs) {
        array.append(QString::fromLatin1(output));
    }
    return array;
}

QJsonValue universe(const QJsonValue& id, const QJsonValue& zone) {
    return QJsonObject{{QStringLiteral("id"), id}, {QStringLiteral("zone"), zone}};
}

/// "IP:PORT" of the destinations of a universe.
std::vector<std::string> destinations(const Playlist::Effect::DestAddrMap& map, int number) {
    std::vector<std::string> result;
    for (const Playlist::Address& address : map.at(number)) {
        result.push_back(address.ip + ":" + std::to_string(address.port));
    }
    return result;
}

/// Level of a line written while these outputs are parsed.
int outputs_level(const std::string& line, const QJsonArray& outputs) {
    return level_of(line, [&] {
        Playlist::Effect::DestAddrMap map;
        int count = 0;
        PlaylistParser().parse_outputs(outputs, map, count);
    });
}

int universes_level(const std::string& line, const QJsonArray& universes) {
    return level_of(line, [&] {
        Playlist::Effect::UniZoneMap map;
        PlaylistParser().parse_universes(universes, map);
    });
}

const std::string kTag = "[PlaylistParser::parse_effects] ";

class PlaylistParserRoutingTest : public testing::Test {
protected:
    /// Keeps the lines of the tests away from the test's own output.
    CapturedLog log_;
};

}  // namespace

TEST_F(PlaylistParserRoutingTest, OutputsAreGroupedByUniverseInFileOrderDuplicatesIncluded) {
    Playlist::Effect::DestAddrMap map;
    int count = 77;
    PlaylistParser().parse_outputs(
        texts({"1:10.0.0.5:6454", "*:10.0.0.9:6454", "1:10.0.0.4:7000", "1:10.0.0.5:6454"}), map, count);
    EXPECT_EQ(count, 4);
    ASSERT_EQ(map.size(), 2U);
    EXPECT_THAT(destinations(map, 1), ElementsAre("10.0.0.5:6454", "10.0.0.4:7000", "10.0.0.5:6454"));
    EXPECT_THAT(destinations(map, -1), ElementsAre("10.0.0.9:6454"));
}

TEST_F(PlaylistParserRoutingTest, WhatWasInTheMapsBeforeIsGone) {
    Playlist::Effect::DestAddrMap outputs{{5, {Playlist::Address("10.0.0.1", 6454)}}};
    int count = 9;
    PlaylistParser().parse_outputs({}, outputs, count);
    EXPECT_TRUE(outputs.empty());
    EXPECT_EQ(count, 0);
    Playlist::Effect::UniZoneMap zones{{1, 2}};
    PlaylistParser().parse_universes({}, zones);
    EXPECT_TRUE(zones.empty());
}

TEST_F(PlaylistParserRoutingTest, BadOutputsAreSkippedAndTheOthersKept) {
    QJsonArray outputs =
        texts({"32768:10.0.0.5:6454", "-1:10.0.0.5:6454", "1:127.0.0.1:6454", "1:0.1.2.3:6454",
               "1:10.0.0.5:1023", "1:10.0.0.5:65536", "1:10.0.0.5", "1:10.0.0.5:6454:x"});
    outputs.append(7);
    outputs.append(QJsonValue());
    outputs.append(QStringLiteral("2:10.0.0.5:6454"));
    Playlist::Effect::DestAddrMap map;
    int count = 0;
    PlaylistParser().parse_outputs(outputs, map, count);
    EXPECT_EQ(count, 1);
    ASSERT_EQ(map.size(), 1U);
    EXPECT_THAT(destinations(map, 2), ElementsAre("10.0.0.5:6454"));
    EXPECT_THAT(log_.lines(),
                ElementsAre("[PlaylistParser::parse_outputs] Parse effect outputs",
                            kTag + "Invalid universe specified in output (32768:10.0.0.5:6454)",
                            kTag + "Invalid universe specified in output (-1:10.0.0.5:6454)",
                            kTag + "Invalid ip specified in output (1:127.0.0.1:6454)",
                            kTag + "Invalid ip specified in output (1:0.1.2.3:6454)",
                            kTag + "Invalid port specified in output (1:10.0.0.5:1023)",
                            kTag + "Invalid port specified in output (1:10.0.0.5:65536)",
                            kTag + "Output string must be of format \"universe:ip:port\" (1:10.0.0.5)",
                            kTag + "Output string must be of format \"universe:ip:port\" (1:10.0.0.5:6454:x)",
                            kTag + "Parsed output (universe:2, address:(10.0.0.5:6454))"));
}

TEST_F(PlaylistParserRoutingTest, TheLinesOfOutputsHaveTheirLevels) {
    EXPECT_EQ(outputs_level("[PlaylistParser::parse_outputs] Parse effect outputs", {}), 3);
    EXPECT_EQ(outputs_level(kTag + "Output string must be of format \"universe:ip:port\" (x)", texts({"x"})),
              -2);
    EXPECT_EQ(outputs_level(kTag + "Invalid universe specified in output (x:y:z)", texts({"x:y:z"})), -2);
    EXPECT_EQ(outputs_level(kTag + "Invalid ip specified in output (1:y:z)", texts({"1:y:z"})), -2);
    EXPECT_EQ(
        outputs_level(kTag + "Invalid port specified in output (1:10.0.0.5:z)", texts({"1:10.0.0.5:z"})), -2);
    EXPECT_EQ(
        outputs_level(kTag + "Parsed output (universe:-1, address:(10.0.0.5:6454))", texts({"*:10.5:6454"})),
        4);
}

TEST_F(PlaylistParserRoutingTest, UniversesMapToZonesAndTheLastOfOneUniverseCounts) {
    Playlist::Effect::UniZoneMap map;
    PlaylistParser().parse_universes(
        {universe(1, 2), universe(3.9, -4.9), universe(1, 5), universe(-7, 100000)}, map);
    EXPECT_EQ(map, (Playlist::Effect::UniZoneMap{{1, 5}, {3, -4}, {-7, 100000}}));
}

TEST_F(PlaylistParserRoutingTest, UniversesWithoutNumbersAreSkipped) {
    Playlist::Effect::UniZoneMap map;
    PlaylistParser().parse_universes({universe(QStringLiteral("1"), 2), universe(4, QStringLiteral("2")),
                                      QJsonObject(), QJsonValue(5), QStringLiteral("x"), universe(8, 9)},
                                     map);
    EXPECT_EQ(map, (Playlist::Effect::UniZoneMap{{8, 9}}));
    EXPECT_THAT(log_.lines(),
                ElementsAre("[PlaylistParser::parse_universes] Parse effect universes",
                            kTag + "Field 'id' absent", kTag + "Field 'zone' absent",
                            kTag + "Field 'id' absent", kTag + "Parsed universe (id:8, zone:9)"));
}

TEST_F(PlaylistParserRoutingTest, TheLinesOfUniversesHaveTheirLevels) {
    EXPECT_EQ(universes_level("[PlaylistParser::parse_universes] Parse effect universes", {}), 3);
    EXPECT_EQ(universes_level(kTag + "Field 'id' absent", {QJsonObject()}), -2);
    EXPECT_EQ(universes_level(kTag + "Field 'zone' absent", {universe(1, QJsonValue())}), -2);
    EXPECT_EQ(universes_level(kTag + "Parsed universe (id:1, zone:2)", {universe(1, 2)}), 4);
}
