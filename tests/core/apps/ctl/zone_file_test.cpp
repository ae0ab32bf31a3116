#include "zones/zone_file.h"

#include <fstream>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <QTemporaryDir>

#include "cli/failure.h"

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

/// What is wrong with a text, "" when nothing is.
std::string error_of(const char* text) {
    try {
        static_cast<void>(zones::parse_zones(QByteArray(text), "zones.json"));
        return {};
    } catch (const cli::Failure& failure) {
        return failure.what();
    }
}

constexpr const char* kExpected =
    "expected an object such as {\"id\": 1, \"priority\": 5, \"channels\": [0, 1, 2]}";

}  // namespace

TEST(ZoneFileTest, ZonesAreReadAsTheyStand) {
    const std::vector<Zone> zones = zones::parse_zones(
        R"([{"id": 3, "priority": -1, "channels": [511, 0]}, {"id": 0, "priority": 7, "channels": []}])", "");
    ASSERT_EQ(zones.size(), 2U);
    EXPECT_EQ(zones[0].id, 3);
    EXPECT_EQ(zones[0].priority, -1);
    EXPECT_THAT(zones[0].channels, ElementsAre(511, 0));
    EXPECT_EQ(zones[1].id, 0);
    EXPECT_THAT(zones[1].channels, IsEmpty());
    EXPECT_THAT(zones::parse_zones("[]", ""), IsEmpty());
}

TEST(ZoneFileTest, AnErrorNamesLineAndElement) {
    // Brackets and quotes in texts and in arrays within do not count as elements.
    EXPECT_EQ(error_of("[\n {\"id\": 1, \"priority\": 5,\n  \"channels\": [0, 1]},\n\n {\"id\": 2, \"note\": "
                       "\"], \\\" [\"}]"),
              std::string("zones.json:5: element 2: unknown key \"note\"; ") + kExpected);
    EXPECT_EQ(error_of("[[1, 2],\n3]"), std::string("zones.json:1: element 1: ") + kExpected);
    EXPECT_EQ(error_of("[{\"id\": 1, \"priority\": 1, \"channels\": []}\n,\n7]"),
              std::string("zones.json:3: element 2: ") + kExpected);
}

TEST(ZoneFileTest, WhatIsNoArrayOfZonesIsRefusedWithAReason) {
    EXPECT_EQ(
        error_of(R"({"id": 1})"),
        "zones.json:1: expected an array of zones, as in [{\"id\": 1, \"priority\": 5, \"channels\": [0, "
        "1, 2]}]");
    // The reasons are the reader's own; the places are ours.
    EXPECT_THAT(error_of("[\n{\"id\": 1,,}]"),
                testing::MatchesRegex("zones.json:2: byte 1[12]: .+; expected a JSON array of zones"));
    EXPECT_THAT(error_of(""),
                testing::MatchesRegex("zones.json:1: byte 0: .+; expected a JSON array of zones"));
}

TEST(ZoneFileTest, ValuesThatTheServiceWouldBendAreRefused) {
    const std::string at = "zones.json:1: element 1: ";
    EXPECT_EQ(error_of(R"([{"priority": 1, "channels": []}])"),
              at + "\"id\" is missing; expected a whole number from 0, 32 bits");
    EXPECT_EQ(error_of(R"([{"id": "1", "priority": 1, "channels": []}])"),
              at + "\"id\" is of another kind; expected a whole number from 0, 32 bits");
    EXPECT_EQ(error_of(R"([{"id": -1, "priority": 1, "channels": []}])"),
              at + "\"id\" is of another kind; expected a whole number from 0, 32 bits");
    EXPECT_EQ(error_of(R"([{"id": 1, "priority": 1.5, "channels": []}])"),
              at + "\"priority\" is of another kind; expected a whole number, 32 bits");
    EXPECT_EQ(error_of(R"([{"id": 1, "priority": 3000000000, "channels": []}])"),
              at + "\"priority\" is of another kind; expected a whole number, 32 bits");
    EXPECT_EQ(error_of(R"([{"id": 1, "priority": 1}])"),
              at + "\"channels\" is missing; expected an array of channels, 0 to 511");
    EXPECT_EQ(error_of(R"([{"id": 1, "priority": 1, "channels": [0, 512]}])"),
              at + "\"channels\", number 2: expected a whole number from 0 to 511");
    EXPECT_EQ(error_of(R"([{"id": 1, "priority": 1, "channels": [-1]}])"),
              at + "\"channels\", number 1: expected a whole number from 0 to 511");
}

TEST(ZoneFileTest, TwoZonesOfOneIdAreRefused) {
    EXPECT_EQ(error_of("[{\"id\": 4, \"priority\": 1, \"channels\": []},\n {\"id\": 4, \"priority\": 2, "
                       "\"channels\": []}]"),
              "zones.json:2: element 2: the id 4 is that of element 1, too; expected each id once");
}

TEST(ZoneFileTest, AFileThatCannotBeReadIsNamed) {
    const QTemporaryDir directory;
    const std::string path = directory.path().toStdString() + "/zones.json";
    EXPECT_THROW(static_cast<void>(zones::read_zone_file(path)), cli::Failure);
    std::ofstream(path) << R"([{"id": 1, "priority": 5, "channels": [2]}])";
    EXPECT_EQ(zones::read_zone_file(path).size(), 1U);
    try {
        static_cast<void>(zones::read_zone_file(directory.path().toStdString()));
        ADD_FAILURE() << "a directory was read";
    } catch (const cli::Failure& failure) {
        EXPECT_THAT(failure.what(), testing::StartsWith(directory.path().toStdString() + ": "));
    }
}
