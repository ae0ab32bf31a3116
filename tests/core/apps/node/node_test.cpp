// The simulated node: what it answers, what it counts.
#include "node.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include "artnet/recording_writer.h"
#include "options.h"
#include "report.h"

namespace node {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;
using Bytes = std::vector<std::uint8_t>;

constexpr std::uint32_t kController = 0x0A000001;
constexpr std::uint32_t kOwn = 0x0A000005;

Bytes dmx(std::uint16_t universe, const Bytes& levels, std::uint8_t sequence = 0) {
    Bytes bytes;
    append_artdmx(bytes, universe, levels, sequence);
    return bytes;
}

const Bytes kSyncPacket{'A', 'r', 't', '-', 'N', 'e', 't', 0, 0x00, 0x52, 0, 14, 0, 0};

class NodeTest : public testing::Test {
protected:
    explicit NodeTest(std::vector<std::uint16_t> universes = {1, 2})
        : node_(settings(std::move(universes))) {}

    static NodeSettings settings(std::vector<std::uint16_t> universes) {
        NodeSettings settings;
        settings.name = "front";
        settings.universes = std::move(universes);
        return settings;
    }

    std::vector<PollReply> take(const Bytes& bytes, Arrival arrival = 0ms,
                                std::uint32_t sender = kController) {
        return node_.take({arrival, {sender, 6454}, bytes, kOwn});
    }
    void numbered(std::initializer_list<int> sequence, std::uint32_t sender = kController) {
        for (const int number : sequence) {
            EXPECT_THAT(take(dmx(1, {7, 8}, static_cast<std::uint8_t>(number)), 0ms, sender), IsEmpty());
        }
    }
    [[nodiscard]] const UniverseStatistics& one() const { return node_.universes().at(1); }
    /// A packet of each universe, from then on, one millisecond apart.
    void frame(Arrival time, std::initializer_list<std::uint16_t> universes) {
        for (const std::uint16_t universe : universes) {
            take(dmx(universe, {1, 1}), time);
            time += 1ms;
        }
    }

    Node node_;
};

TEST(PollAnswerTest, UniversesAreSplitIntoRepliesOfOneSubNetAndFourPorts) {
    const std::vector<std::uint16_t> universes{0, 1, 2, 3, 4, 15, 16, 0x7FFE, 0x7FFF};
    EXPECT_THAT(split_into_replies(universes), ElementsAre(ElementsAre(0, 1, 2, 3), ElementsAre(4, 15),
                                                           ElementsAre(16), ElementsAre(0x7FFE, 0x7FFF)));
    std::vector<std::uint16_t> answered;
    int bind_index = 0;
    for (const PollReply& datagram : answer_poll(universes, "a name of more than 17 bytes", kOwn, 7000)) {
        const auto reply = artnet::decode_poll_reply(datagram);
        ASSERT_TRUE(reply);
        EXPECT_EQ(reply->BindIndex, ++bind_index);
        EXPECT_STREQ(reply->ShortName, "a name of more th");
        EXPECT_THAT(reply->IpAddress, ElementsAre(10, 0, 0, 5));
        EXPECT_EQ(+reply->Port, 7000);
        const auto outputs = artnet::output_universes(*reply);
        EXPECT_EQ(+reply->NumPorts, outputs.size());
        answered.insert(answered.end(), outputs.begin(), outputs.end());
    }
    EXPECT_EQ(answered, universes);
}

TEST_F(NodeTest, APollIsAnsweredFromTheAddressThatItReached) {
    const auto poll = artnet::encode_poll();
    const std::vector<PollReply> replies = take(Bytes(poll.begin(), poll.end()));
    ASSERT_THAT(replies, SizeIs(1));
    EXPECT_THAT(artnet::decode_poll_reply(replies[0])->IpAddress, ElementsAre(10, 0, 0, 5));
    EXPECT_EQ(node_.traffic().polls, 1U);
}

TEST_F(NodeTest, DatagramsAreCountedByWhatTheyAre) {
    take(dmx(1, {1, 2}));
    take(dmx(3, {1, 2}));
    take(kSyncPacket);
    Bytes longer = dmx(1, {1, 2});
    longer.resize(530);
    take(longer);
    EXPECT_EQ(node_.traffic().malformed, 0U);
    take({});
    take(Bytes(18, 'x'));
    take(dmx(1, {}));
    Bytes cut = dmx(1, {1, 2});
    cut.pop_back();
    take(cut);
    Bytes huge = dmx(1, Bytes(512));
    huge[16] = 0x02;
    huge[17] = 0x01;
    huge.push_back(0);
    take(huge);
    const auto poll = artnet::encode_poll();
    EXPECT_THAT(take(Bytes(poll.begin(), poll.end() - 1)), IsEmpty());
    EXPECT_EQ(node_.traffic().frames, 2U);
    EXPECT_EQ(node_.traffic().other_universes, 1U);
    EXPECT_EQ(node_.traffic().other_packets, 1U);
    EXPECT_EQ(node_.traffic().malformed, 6U);
    EXPECT_EQ(node_.traffic().polls, 0U);
}

TEST_F(NodeTest, SkippedNumbersAreLosses) {
    numbered({1, 2, 5, 6});
    EXPECT_EQ(one().lost(), 2U);
    // A sender that begins anew loses nothing by that; 1 follows 255.
    numbered({254, 255, 1, 2});
    EXPECT_EQ(one().lost(), 2U);
    EXPECT_EQ(one().late(), 0U);
    EXPECT_EQ(one().repeated(), 0U);
}

TEST_F(NodeTest, ANumberThatComesLaterIsLateAndNotLost) {
    numbered({1, 3, 2, 4, 4});
    EXPECT_EQ(one().lost(), 0U);
    EXPECT_EQ(one().late(), 1U);
    EXPECT_EQ(one().repeated(), 1U);
    EXPECT_EQ(one().packets(), 5U);
}

TEST_F(NodeTest, PacketsWithoutNumbersLoseNothing) {
    numbered({0, 0, 0, 9, 0, 3});
    EXPECT_EQ(one().lost() + one().late() + one().repeated(), 0U);
}

TEST_F(NodeTest, TwoSendersAreCountedAndNotMixedUp) {
    numbered({1, 2}, kController);
    numbered({100, 101}, kController + 1);
    numbered({3, 4}, kController);
    numbered({102}, kController + 1);
    EXPECT_EQ(one().senders(), 2U);
    EXPECT_EQ(one().lost() + one().late(), 0U);
}

TEST_F(NodeTest, IntervalsAndRateComeFromTheArrivals) {
    for (const Arrival arrival : {0ms, 25ms, 50ms, 75ms, 175ms}) {
        take(dmx(1, {255, 3}), 1000s + arrival);
    }
    EXPECT_EQ(one().intervals().count(), 4U);
    EXPECT_EQ(one().intervals().min(), 25ms);
    EXPECT_EQ(one().intervals().max(), 100ms);
    const auto median = one().intervals().quantile(0.5);
    EXPECT_GE(median, 25ms);
    EXPECT_LT(median, 25250us) << "one per cent";
    EXPECT_DOUBLE_EQ(one().fps(), 4 / 0.175);
    EXPECT_THAT(one().levels(), ElementsAre(255, 3));
    // A clock that is set back makes no interval negative.
    take(dmx(1, {1, 1}), 0ms);
    EXPECT_EQ(one().intervals().min(), 0ms);
}

class TearingTest : public NodeTest {
protected:
    TearingTest() : NodeTest({1, 2, 3}) {}
};

TEST_F(TearingTest, FramesAreSeparatedByPausesWhereverListeningBegan) {
    // Begun in the middle of a frame.
    frame(1000ms, {3});
    frame(1025ms, {1, 2, 3});
    frame(1050ms, {1, 2, 3});
    frame(1075ms, {1, 2, 3});
    // The first says nothing and the last has not ended.
    EXPECT_EQ(node_.frames().frames(), 2U);
    EXPECT_EQ(node_.frames().incomplete(), 0U);
    EXPECT_EQ(node_.frames().spread().max(), 2ms);
}

TEST_F(TearingTest, AUniverseThatIsMissingOrComesAgainFirstTearsAFrame) {
    frame(0ms, {1, 2, 3});
    frame(25ms, {1, 3});
    frame(50ms, {1, 2, 3});
    // Universe 1 is already that of the next frame while 3 is not there.
    frame(75ms, {1, 2, 1, 2, 3});
    frame(100ms, {1, 2, 3});
    EXPECT_EQ(node_.frames().frames(), 4U);
    EXPECT_EQ(node_.frames().incomplete(), 2U);
}

TEST_F(TearingTest, UniversesFarApartAreTorn) {
    for (int i = 0; i < 10; ++i) {
        frame(i * 60ms, {1});
        frame(i * 60ms + 20ms, {2});
        frame(i * 60ms + 40ms, {3});
    }
    EXPECT_EQ(node_.frames().incomplete(), node_.frames().frames());
}

TEST_F(TearingTest, WithArtSyncAPauseSeparatesNothing) {
    frame(0ms, {1, 2, 3});
    take(kSyncPacket, 5ms);
    for (int i = 1; i <= 3; ++i) {
        frame(i * 50ms, {1, 2});
        frame(i * 50ms + 20ms, {3});
        take(kSyncPacket, i * 50ms + 25ms);
    }
    EXPECT_EQ(node_.frames().syncs(), 4U);
    EXPECT_EQ(node_.frames().frames(), 3U);
    EXPECT_EQ(node_.frames().incomplete(), 0U);
    EXPECT_EQ(node_.frames().spread().max(), 20ms);
}

TEST_F(NodeTest, TheReportForProgramsHoldsAllCounts) {
    numbered({1, 3});
    const QByteArray line = QByteArray::fromStdString(to_json(node_, {1500ms, 9}));
    EXPECT_EQ(line.count('\n'), 1);
    const QJsonObject report = QJsonDocument::fromJson(line).object();
    EXPECT_EQ(report.value(QLatin1String("name")).toString(), QLatin1String("front"));
    EXPECT_EQ(report.value(QLatin1String("seconds")).toDouble(), 1.5);
    EXPECT_EQ(report.value(QLatin1String("packets")).toInt(), 2);
    EXPECT_EQ(report.value(QLatin1String("kernel_drops")).toInt(), 9);
    const QJsonArray universes = report.value(QLatin1String("universes")).toArray();
    ASSERT_EQ(universes.size(), 2);
    EXPECT_EQ(universes[0].toObject().value(QLatin1String("lost")).toInt(), 1);
    EXPECT_EQ(universes[0].toObject().value(QLatin1String("levels")).toArray(), (QJsonArray{7, 8}));
    EXPECT_EQ(universes[1].toObject().value(QLatin1String("packets")).toInt(-1), 0);
    const std::string table = to_table(node_, {1500ms, 9});
    EXPECT_THAT(table, testing::HasSubstr("front: 1.5 s, 0 polls answered, 2 packets"));
    EXPECT_THAT(table, testing::HasSubstr("\n       1         2    0.00      1      0        0       1 "));
}

Options parse(std::vector<const char*> words) {
    CLI::App app{"", "cuewright-node"};
    const auto options = add_options(app);
    words.insert(words.begin(), "cuewright-node");
    app.parse(static_cast<int>(words.size()), words.data());
    return options();
}

TEST(NodeOptionsTest, UniversesAreRangesAndWhatMakesNoSenseIsRefused) {
    const Options options =
        parse({"--universe", "3,0-1", "--universe", "1", "--address", "10.0.0.5", "--duration", "1.5"});
    EXPECT_THAT(options.node.universes, ElementsAre(0, 1, 3));
    EXPECT_EQ(options.address, kOwn);
    EXPECT_EQ(options.duration, 1500ms);
    EXPECT_THAT(parse({"--universe", "0-1019"}).node.universes, SizeIs(1020));
    EXPECT_THROW(parse({"--universe", "0-1020"}), cli::UsageError) << "256 replies";
    EXPECT_THROW(parse({"--universe", "x"}), cli::UsageError);
    EXPECT_THROW(parse({"--universe", "1", "--address", "eth0"}), cli::UsageError);
    EXPECT_THROW(parse({}), CLI::ParseError) << "no universe";
    EXPECT_THROW(parse({"--universe", "1", "--port", "0"}), CLI::ParseError);
}

}  // namespace
}  // namespace node
