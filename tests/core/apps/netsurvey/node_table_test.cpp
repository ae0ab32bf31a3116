// Replies and time in, changes out.
#include "node_table.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "replies.h"

namespace netsurvey {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;

/// A table with a time of its own.
class NodeTableTest : public testing::Test {
protected:
    static constexpr auto kExpiry = 10s;

    std::string hear(const ArtPollReply& reply, const std::string& sender) {
        return to_message(table_.hear(reply, ip(sender), now_));
    }
    /// From the address that the reply names.
    std::string hear(const std::string& address, const std::vector<std::uint16_t>& universes,
                     std::uint8_t bind_index = 1) {
        return hear(reply_of(address, universes, bind_index), address);
    }
    /// Time passes, in which polls are sent.
    std::string pass(NodeTable::Clock::duration time, int polls = 4) {
        now_ += time;
        for (int i = 0; i < polls; ++i) {
            table_.count_poll();
        }
        return to_message(table_.expire(now_));
    }

    NodeTable table_{kExpiry};
    NodeTable::Clock::time_point now_{1000h};
};

TEST_F(NodeTableTest, EachPortOfAFirstReplyIsAnAdditionAndTheNextSaysNothing) {
    EXPECT_EQ(hear("10.0.0.5", {0, 1, 0x1234 & 0x0F}),
              "1:0:10.0.0.5:6454;1:1:10.0.0.5:6454;1:4:10.0.0.5:6454");
    EXPECT_EQ(hear("10.0.0.5", {4, 1, 0}), "");
    EXPECT_THAT(table_.present(),
                ElementsAre(record(0, "10.0.0.5"), record(1, "10.0.0.5"), record(4, "10.0.0.5")));
}

TEST_F(NodeTableTest, ANodeOfSeveralRepliesIsTheSumOfThem) {
    EXPECT_EQ(hear("10.0.0.5", {0x7FFF}, 1), "1:32767:10.0.0.5:6454");
    EXPECT_EQ(hear("10.0.0.5", {3}, 2), "1:3:10.0.0.5:6454");
    // The same universe at two ports of a node is one record, until neither has it.
    EXPECT_EQ(hear("10.0.0.5", {3}, 3), "");
    EXPECT_EQ(hear("10.0.0.5", {8}, 2), "1:8:10.0.0.5:6454");
    EXPECT_EQ(hear("10.0.0.5", {9}, 3), "0:3:10.0.0.5:6454;1:9:10.0.0.5:6454");
    EXPECT_EQ(hear("10.0.0.5", {}, 1), "0:32767:10.0.0.5:6454");
}

TEST_F(NodeTableTest, SeveralRepliesWithoutABindIndexDoNotReplaceEachOther) {
    EXPECT_EQ(hear("10.0.0.5", {0, 1}, 0), "1:0:10.0.0.5:6454;1:1:10.0.0.5:6454");
    EXPECT_EQ(hear("10.0.0.5", {2, 3}, 0), "1:2:10.0.0.5:6454;1:3:10.0.0.5:6454");
    EXPECT_EQ(hear("10.0.0.5", {0, 1}, 0), "");
    EXPECT_EQ(hear("10.0.0.5", {2, 3}, 0), "");
    // One of them not coming any more is gone after its time.
    EXPECT_EQ(pass(6s), "");
    EXPECT_EQ(hear("10.0.0.5", {2, 3}, 0), "");
    EXPECT_EQ(pass(4s), "0:0:10.0.0.5:6454;0:1:10.0.0.5:6454");
}

TEST_F(NodeTableTest, ASilentNodeGoesAfterItsTimeAndNotBefore) {
    hear("10.0.0.5", {1});
    EXPECT_EQ(pass(5s), "");
    hear("10.0.0.5", {1});
    EXPECT_EQ(pass(9999ms), "");
    EXPECT_EQ(pass(1ms), "0:1:10.0.0.5:6454");
    EXPECT_THAT(table_.present(), IsEmpty());
    EXPECT_THAT(table_.nodes(now_), IsEmpty());
    // And may come back.
    EXPECT_EQ(hear("10.0.0.5", {1}), "1:1:10.0.0.5:6454");
}

TEST_F(NodeTableTest, TimeWithoutPollsMakesNoNodeOld) {
    hear("10.0.0.5", {1});
    EXPECT_EQ(pass(1h, 1), "") << "one poll may just be on its way";
    EXPECT_EQ(pass(0s, 1), "0:1:10.0.0.5:6454");
}

TEST_F(NodeTableTest, AStaticNodeNeverGoesAndAnswersOfTheSameNodeChangeNothing) {
    const StaticNode node{ip("10.0.0.9"), 6455, "rack", {4, 5}};
    EXPECT_EQ(to_message(table_.add_static(node)), "1:4:10.0.0.9:6455;1:5:10.0.0.9:6455");
    EXPECT_EQ(to_message(table_.add_static(node)), "") << "twice in the file";
    ArtPollReply reply = reply_of("10.0.0.9", {5, 6});
    reply.Port = 6455;
    EXPECT_EQ(hear(reply, "10.0.0.9"), "1:6:10.0.0.9:6455");
    EXPECT_EQ(pass(1000h), "0:6:10.0.0.9:6455");
    EXPECT_THAT(table_.present(),
                ElementsAre(NodeRecord{4, ip("10.0.0.9"), 6455}, NodeRecord{5, ip("10.0.0.9"), 6455}));
}

TEST_F(NodeTableTest, WhatIsRememberedStaysIfItsNodeAnswersAndElseGoesAsASilentNodeDoes) {
    EXPECT_EQ(to_message(table_.remember(record(1, "10.0.0.5"), now_)), "1:1:10.0.0.5:6454");
    EXPECT_EQ(to_message(table_.remember(record(2, "10.0.0.5"), now_)), "1:2:10.0.0.5:6454");
    EXPECT_EQ(table_.nodes(now_).size(), 2U);
    EXPECT_EQ(table_.nodes(now_)[0].source, Source::Remembered);
    EXPECT_EQ(pass(5s), "");
    EXPECT_EQ(hear("10.0.0.5", {1}), "") << "known";
    ASSERT_EQ(table_.nodes(now_).size(), 2U);
    EXPECT_EQ(table_.nodes(now_)[0].source, Source::Remembered) << "of universe 2";
    EXPECT_EQ(table_.nodes(now_)[1].source, Source::Reply);
    EXPECT_EQ(pass(5s), "0:2:10.0.0.5:6454");
    EXPECT_THAT(table_.present(), ElementsAre(record(1, "10.0.0.5")));
}

TEST_F(NodeTableTest, AnAddressThatCannotBeANodesIsReplacedByTheSenders) {
    for (const char* const told : {"0.0.0.0", "0.1.2.3", "224.0.0.1", "255.255.255.255", "127.0.0.1"}) {
        NodeTable table(kExpiry);
        EXPECT_EQ(to_message(table.hear(reply_of(told, {1}), ip("10.0.0.8"), now_)), "1:1:10.0.0.8:6454")
            << told;
    }
    // On one machine that is where it is; and a gateway may answer for others.
    EXPECT_EQ(hear("127.0.0.2", {1}), "1:1:127.0.0.2:6454");
    EXPECT_EQ(hear(reply_of("10.0.0.7", {1}), "10.0.0.8"), "1:1:10.0.0.7:6454");
}

TEST_F(NodeTableTest, APortThatIsMissingOrSwappedIsTheUsualOne) {
    ArtPollReply reply = reply_of("10.0.0.5", {1});
    reply.Port = 0;
    EXPECT_EQ(hear(reply, "10.0.0.5"), "1:1:10.0.0.5:6454");
    reply.Port = 0x3619;
    EXPECT_EQ(hear(reply, "10.0.0.5"), "");
    reply.Port = 7000;
    EXPECT_EQ(hear(reply, "10.0.0.5"), "1:1:10.0.0.5:7000");
}

TEST_F(NodeTableTest, TwoDevicesWithOneAddressDoNotTakeItFromEachOther) {
    EXPECT_EQ(hear(reply_of("10.0.0.5", {1}), "10.0.0.5"), "1:1:10.0.0.5:6454");
    EXPECT_EQ(hear(reply_of("10.0.0.5", {2}), "10.0.0.6"), "1:2:10.0.0.5:6454");
    EXPECT_EQ(hear(reply_of("10.0.0.5", {1}), "10.0.0.5"), "");
    EXPECT_EQ(hear(reply_of("10.0.0.5", {2}), "10.0.0.6"), "");
}

TEST_F(NodeTableTest, InventedNodesFillNoMemory) {
    for (std::uint32_t i = 0; i < NodeTable::kMaxEntries + 100; ++i) {
        static_cast<void>(table_.hear(reply_of(posix::ipv4_text(0x0A000001 + i), {1}), 0x0A000001 + i, now_));
    }
    EXPECT_EQ(table_.present().size(), NodeTable::kMaxEntries);
    EXPECT_EQ(table_.refused(), 100U);
    // Those that are known go on being heard, and there is room again when they have gone.
    EXPECT_EQ(hear("10.0.0.1", {2}), "0:1:10.0.0.1:6454;1:2:10.0.0.1:6454");
    pass(20s);
    EXPECT_EQ(hear("10.9.0.1", {2}), "1:2:10.9.0.1:6454");
}

TEST_F(NodeTableTest, TheListShowsInputsOnlyNodesToo) {
    EXPECT_EQ(hear("10.0.0.5", {}), "");
    ASSERT_EQ(table_.nodes(now_).size(), 1U);
    EXPECT_THAT(table_.nodes(now_)[0].universes, IsEmpty());
}

TEST_F(NodeTableTest, NamesFromTheNetworkCarryNoControlCharacters) {
    ArtPollReply reply = reply_of("10.0.0.5", {1});
    std::strcpy(reply.ShortName, "\x1B[2Jx\x7F\xC2\x9BK\xC3\xA4");
    std::strcpy(reply.LongName, "a\nb");
    hear(reply, "10.0.0.5");
    EXPECT_EQ(table_.nodes(now_)[0].short_name, "?[2Jx??K\xC3\xA4");
    EXPECT_EQ(table_.nodes(now_)[0].long_name, "a?b");
    now_ += 1500ms;
    EXPECT_EQ(table_.nodes(now_)[0].silent, 1500ms);
}

}  // namespace
}  // namespace netsurvey
