#include "ondra/artnet_node_map.h"

#include <algorithm>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using ondra::ArtnetNode;
using ondra::ArtnetNodeMap;
using testing::ElementsAre;
using testing::IsEmpty;

ArtnetNodeMap after(const char* message, ArtnetNodeMap map = {}) {
    ondra::update_artnet_node_map(QString::fromUtf8(message), map);
    return map;
}

ArtnetNode node(const char* ip, int port = 6454) {
    return {ip, port};
}

TEST(ArtnetNodeMapTest, NodesAreSortedByTheTextOfTheirAddress) {
    ArtnetNodeMap map = after("1:5:10.0.0.9:6454;1:5:10.0.0.10:6454");
    EXPECT_EQ(map.size(), 1U);
    EXPECT_THAT(map[5], ElementsAre(node("10.0.0.10"), node("10.0.0.9")));
}

TEST(ArtnetNodeMapTest, NodeAnnouncedTwiceIsListedTwiceAndOneRemovalTakesOneAway) {
    ArtnetNodeMap map = after("1:5:10.0.0.9:6454;1:5:10.0.0.9:6454");
    EXPECT_THAT(map[5], ElementsAre(node("10.0.0.9"), node("10.0.0.9")));
    map = after("0:5:10.0.0.9:6454", map);
    EXPECT_THAT(map[5], ElementsAre(node("10.0.0.9")));
    map = after("0:5:10.0.0.9:6454", map);
    ASSERT_EQ(map.count(5), 1U);
    EXPECT_THAT(map[5], IsEmpty());
}

TEST(ArtnetNodeMapTest, RemovalFromAnUnknownUniverseCreatesItsEmptyList) {
    ArtnetNodeMap map = after("0:7:10.0.0.1:6454");
    ASSERT_EQ(map.count(7), 1U);
    EXPECT_THAT(map[7], IsEmpty());
}

TEST(ArtnetNodeMapTest, RecordsWithThreeOrFiveFieldsAreIgnored) {
    EXPECT_THAT(after("1:5:10.0.0.9"), IsEmpty());
    EXPECT_THAT(after("1:5:10.0.0.9:6454:x"), IsEmpty());
}

TEST(ArtnetNodeMapTest, BadRecordLeavesTheOthersInForce) {
    ArtnetNodeMap map = after("1:5:10.0.0.1:1;nonsense;1:5:10.0.0.2:2");
    EXPECT_THAT(map[5], ElementsAre(node("10.0.0.1", 1), node("10.0.0.2", 2)));
}

TEST(ArtnetNodeMapTest, EmptyRecordsAreIgnored) {
    ArtnetNodeMap map = after(";;1:5:10.0.0.9:6454;");
    EXPECT_EQ(map.size(), 1U);
    EXPECT_THAT(map[5], ElementsAre(node("10.0.0.9")));
    EXPECT_THAT(after(""), IsEmpty());
}

TEST(ArtnetNodeMapTest, EmptyFieldsAreKeptAndCount) {
    ArtnetNodeMap map = after("1:::");
    EXPECT_THAT(map[0], ElementsAre(node("", 0)));
}

TEST(ArtnetNodeMapTest, TextThatIsNoNumberCountsAsZero) {
    ArtnetNodeMap map = after("1:x:10.0.0.9:y");
    EXPECT_EQ(map.size(), 1U);
    EXPECT_THAT(map[0], ElementsAre(node("10.0.0.9", 0)));
    map = after("1:5x:10.0.0.9:99999999999");
    EXPECT_THAT(map[0], ElementsAre(node("10.0.0.9", 0)));
}

TEST(ArtnetNodeMapTest, NumbersAreNotCheckedFurther) {
    ArtnetNodeMap map = after("1:-3:10.0.0.9:70000");
    EXPECT_THAT(map[-3], ElementsAre(node("10.0.0.9", 70000)));
}

TEST(ArtnetNodeMapTest, AddressIsKeptWordForWord) {
    ArtnetNodeMap map = after("1:5: not an address :6454");
    EXPECT_THAT(map[5], ElementsAre(node(" not an address ")));
}

TEST(ArtnetNodeMapTest, AnyStateButOneRemoves) {
    for (const char* removal : {"2:5:10.0.0.9:6454", ":5:10.0.0.9:6454", "01:5:10.0.0.9:6454"}) {
        ArtnetNodeMap map = after(removal, {{5, {node("10.0.0.9")}}});
        EXPECT_THAT(map[5], IsEmpty()) << removal;
    }
}

TEST(ArtnetNodeMapTest, RemovalNeedsEqualAddressAndEqualPort) {
    const ArtnetNodeMap before{{5, {node("10.0.0.9")}}};
    EXPECT_EQ(after("0:5:10.0.0.9:6455", before), before);
    EXPECT_EQ(after("0:5:10.0.0.8:6454", before), before);
}

TEST(ArtnetNodeMapTest, RemovalKeepsTheOthersInOrder) {
    ArtnetNodeMap map = after("1:5:c:1;1:5:a:1;1:5:b:1;0:5:b:1");
    EXPECT_THAT(map[5], ElementsAre(node("a", 1), node("c", 1)));
}

TEST(ArtnetNodeMapTest, SameNodeOnTwoUniversesIsListedInBoth) {
    ArtnetNodeMap map = after("1:0:10.0.0.5:6454;1:1:10.0.0.5:6454;0:0:10.0.0.7:6454");
    EXPECT_THAT(map[0], ElementsAre(node("10.0.0.5")));
    EXPECT_THAT(map[1], ElementsAre(node("10.0.0.5")));
}

TEST(ArtnetNodeMapTest, ARemovalAppliesToWhatTheRecordsBeforeItHaveLeft) {
    ArtnetNodeMap map = after("0:5:a:1;1:5:a:1;1:5:a:1;0:5:a:1;0:5:b:1;1:5:b:1");
    EXPECT_THAT(map[5], ElementsAre(node("a", 1), node("b", 1)));
}

TEST(ArtnetNodeMapTest, AHundredThousandNodesOnOneUniverseAreNoMoreWorkEach) {
    // Sorting after each record would take minutes.
    constexpr int kNodes = 100'000;
    QString message;
    message.reserve(kNodes * 24);
    for (int i = 0; i < kNodes; ++i) {
        message += QStringLiteral("1:5:%1:6454;").arg((i * 7'919LL) % kNodes);
    }
    ArtnetNodeMap map;
    ondra::update_artnet_node_map(message, map);
    ASSERT_EQ(map[5].size(), static_cast<std::size_t>(kNodes));
    EXPECT_TRUE(std::is_sorted(map[5].begin(), map[5].end()));
    message.replace(QLatin1String("1:5:"), QLatin1String("0:5:"));
    ondra::update_artnet_node_map(message, map);
    EXPECT_THAT(map[5], IsEmpty());
}

TEST(ArtnetNodeTest, PrefixSortsFirst) {
    EXPECT_LT(node("10.0.0.1"), node("10.0.0.10"));
    EXPECT_FALSE(node("10.0.0.10") < node("10.0.0.1"));
}

TEST(ArtnetNodeTest, BytesCompareAsUnsigned) {
    EXPECT_LT(node("z"), node("\xC3\xA4"));
    EXPECT_FALSE(node("\xC3\xA4") < node("z"));
}

TEST(ArtnetNodeTest, EqualAddressesSortByPort) {
    EXPECT_LT(node("10.0.0.9", 2), node("10.0.0.9", 10));
    EXPECT_FALSE(node("10.0.0.9", 10) < node("10.0.0.9", 2));
    EXPECT_FALSE(node("10.0.0.9") < node("10.0.0.9"));
}

TEST(ArtnetNodeTest, AddressOutranksPort) {
    EXPECT_LT(node("10.0.0.1", 9), node("10.0.0.2", 1));
}

TEST(ArtnetNodeTest, EqualityNeedsBothFields) {
    EXPECT_TRUE(node("10.0.0.9") == node("10.0.0.9"));
    EXPECT_FALSE(node("10.0.0.9") == node("10.0.0.8"));
    EXPECT_FALSE(node("10.0.0.9", 1) == node("10.0.0.9", 2));
}

}  // namespace
