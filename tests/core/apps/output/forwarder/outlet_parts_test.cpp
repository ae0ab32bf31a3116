// The parts of the outlet, each alone and with times of the test's own: order of due times, stream numbers,
// sequence numbers, lengths, groups, silences and turns.
#include <gtest/gtest.h>

#include "due_list.h"
#include "keep_alive.h"
#include "pacer.h"
#include "sequence_rewriter.h"
#include "stream_table.h"
#include "sync_sender.h"
#include "trim.h"
#include "udp_peer.h"

namespace {

using forwarder::DueList;
using forwarder::KeepAlive;
using forwarder::kNoStream;
using forwarder::Pacer;
using forwarder::SequenceRewriter;
using forwarder::StreamTable;
using forwarder::SyncSender;
using forwarder::trimmed_size;
using std::chrono::microseconds;
using std::chrono::milliseconds;
using tests::artdmx;
using tests::Bytes;
using Time = DueList::Time;

constexpr Time at(microseconds time) {
    return Time(std::chrono::hours(1)) + time;
}

Bytes bytes_of(std::span<const unsigned char> packet) {
    return {packet.begin(), packet.end()};
}

TEST(DueListTest, TheEarliestIsFirstWhateverTheOrderOfPutting) {
    DueList list;
    EXPECT_EQ(list.first_due(), Time::max());
    list.put(5, at(milliseconds(3)));
    list.put(0, at(milliseconds(1)));
    list.put(9, at(milliseconds(2)));
    std::vector<std::size_t> order;
    for (; !list.empty(); list.remove(list.first())) {
        order.push_back(list.first());
    }
    EXPECT_EQ(order, (std::vector<std::size_t>{0, 9, 5}));
}

TEST(DueListTest, WhatIsPutAgainMovesAndWhatIsRemovedIsGone) {
    DueList list;
    list.put(1, at(milliseconds(1)));
    list.put(2, at(milliseconds(2)));
    list.put(3, at(milliseconds(3)));
    list.put(1, at(milliseconds(4)));
    EXPECT_EQ(list.first(), 2U);
    list.remove(2);
    list.remove(2);
    EXPECT_FALSE(list.holds(2));
    EXPECT_EQ(list.first(), 3U);
    EXPECT_EQ(list.first_due(), at(milliseconds(3)));
    list.remove(1);
    EXPECT_EQ(list.first(), 3U);
    list.remove(3);
    EXPECT_TRUE(list.empty());
}

TEST(StreamTableTest, EachPairHasItsNumberUntilTheTableIsFull) {
    StreamTable streams;
    EXPECT_EQ(streams.find(7, 0x7FFF), 0U);
    EXPECT_EQ(streams.find(8, 0x7FFF), 1U);
    EXPECT_EQ(streams.find(7, 0), 2U);
    EXPECT_EQ(streams.find(7, 0x7FFF), 0U);
    EXPECT_EQ(streams.destination_of(1), 8U);
    for (unsigned universe = 0; streams.size() < StreamTable::kMostStreams; ++universe) {
        EXPECT_NE(streams.find(100, universe), kNoStream);
    }
    EXPECT_EQ(streams.find(101, 0), kNoStream);
    EXPECT_EQ(streams.find(8, 0x7FFF), 1U) << "those that are there go on";
    EXPECT_EQ(streams.size(), StreamTable::kMostStreams);
}

TEST(SequenceRewriterTest, EachStreamCountsFrom1To255AndNeverTo0) {
    SequenceRewriter sequences;
    EXPECT_EQ(sequences.next(3), 1);
    for (int number = 1; number <= 255; ++number) {
        ASSERT_EQ(sequences.next(0), number);
    }
    EXPECT_EQ(sequences.next(0), 1);
    EXPECT_EQ(sequences.next(3), 2);
}

/// A 530-byte ArtDmx packet with this in its Length field.
Bytes with_length(unsigned length) {
    Bytes packet = artdmx(0);
    packet[16] = static_cast<unsigned char>(length >> 8);
    packet[17] = static_cast<unsigned char>(length);
    return packet;
}

TEST(TrimTest, ArtDmxKeepsItsHeaderAndAnEvenNumberOfChannels) {
    EXPECT_EQ(trimmed_size(with_length(2)), 20U);
    EXPECT_EQ(trimmed_size(with_length(170)), 188U);
    EXPECT_EQ(trimmed_size(with_length(512)), 530U);
    EXPECT_EQ(trimmed_size(with_length(1)), 20U);
    EXPECT_EQ(trimmed_size(with_length(511)), 530U);
}

TEST(TrimTest, WhateverElseStaysWhole) {
    EXPECT_EQ(trimmed_size(with_length(0)), 530U);
    EXPECT_EQ(trimmed_size(with_length(513)), 530U);
    EXPECT_EQ(trimmed_size(with_length(0xFFFF)), 530U);
    Bytes sync = with_length(2);
    sync[9] = 0x52;
    EXPECT_EQ(trimmed_size(sync), 530U);
    EXPECT_EQ(trimmed_size(Bytes(17)), 17U);
}

TEST(SyncSenderTest, AGroupEndsBeforeAUniverseThatItHolds) {
    SyncSender syncs;
    EXPECT_FALSE(syncs.packet(0, 1, at(microseconds(0))));
    EXPECT_FALSE(syncs.packet(0, 2, at(microseconds(10))));
    EXPECT_TRUE(syncs.packet(0, 1, at(microseconds(20)))) << "the next frame begins";
    EXPECT_FALSE(syncs.packet(0, 2, at(microseconds(30))));
    EXPECT_TRUE(syncs.packet(0, 2, at(microseconds(40)))) << "whichever universe it is";
}

TEST(SyncSenderTest, AGroupEndsByAGapWhetherAPacketFollowsOrNot) {
    SyncSender syncs;
    EXPECT_EQ(syncs.next_end(), Time::max());
    EXPECT_FALSE(syncs.packet(0, 1, at(milliseconds(0))));
    EXPECT_EQ(syncs.next_end(), at(SyncSender::kGap));
    EXPECT_FALSE(syncs.packet(0, 2, at(milliseconds(1))));
    EXPECT_EQ(syncs.next_end(), at(milliseconds(1) + SyncSender::kGap)) << "each packet prolongs it";
    EXPECT_FALSE(syncs.take_ended(at(milliseconds(1) + SyncSender::kGap) - microseconds(1)));
    EXPECT_TRUE(syncs.packet(0, 3, at(milliseconds(1) + SyncSender::kGap)));
    EXPECT_EQ(syncs.take_ended(at(milliseconds(10))), 0U);
    EXPECT_FALSE(syncs.take_ended(at(milliseconds(20)))) << "each group ends once";
    EXPECT_FALSE(syncs.packet(0, 3, at(milliseconds(30)))) << "it has had its ArtSync";
}

TEST(SyncSenderTest, DestinationsHaveTheirOwnGroups) {
    SyncSender syncs;
    EXPECT_FALSE(syncs.packet(0, 1, at(milliseconds(1))));
    EXPECT_FALSE(syncs.packet(5, 2, at(milliseconds(0))));
    EXPECT_FALSE(syncs.packet(0, 3, at(milliseconds(1))));
    EXPECT_EQ(syncs.take_ended(at(milliseconds(2))), 5U);
    EXPECT_FALSE(syncs.take_ended(at(milliseconds(2))));
    EXPECT_EQ(syncs.take_ended(Time::max()), 0U);
}

TEST(SyncSenderTest, PacketsOfUnknownStreamsAreGroupedByTheGapAlone) {
    SyncSender syncs;
    EXPECT_FALSE(syncs.packet(0, kNoStream, at(milliseconds(0))));
    EXPECT_FALSE(syncs.packet(0, kNoStream, at(milliseconds(1))));
    EXPECT_TRUE(syncs.packet(0, kNoStream, at(milliseconds(4))));
}

TEST(KeepAliveTest, AStreamIsNamedAfterEachPeriodOfSilenceWithItsLastFrame) {
    KeepAlive keep_alive(milliseconds(900));
    EXPECT_EQ(keep_alive.next_due(), Time::max());
    keep_alive.store(2, artdmx(2, 1), at(milliseconds(0)));
    keep_alive.store(0, artdmx(0, 1), at(milliseconds(100)));
    keep_alive.store(2, artdmx(2, 9), at(milliseconds(200)));
    EXPECT_EQ(keep_alive.next_due(), at(milliseconds(1000)));
    EXPECT_FALSE(keep_alive.take_due(at(milliseconds(999))));
    EXPECT_EQ(keep_alive.take_due(at(milliseconds(1000))), 0U);
    EXPECT_FALSE(keep_alive.take_due(at(milliseconds(1000))));
    EXPECT_EQ(keep_alive.take_due(at(milliseconds(1150))), 2U);
    EXPECT_EQ(bytes_of(keep_alive.frame(2)), artdmx(2, 9));
    EXPECT_EQ(keep_alive.take_due(at(milliseconds(1900))), 0U) << "and again";
    EXPECT_FALSE(keep_alive.take_due(at(milliseconds(2049))));
    EXPECT_EQ(keep_alive.take_due(at(milliseconds(2050))), 2U)
        << "a period after it was sent, not after it was due";
}

TEST(PacerTest, OnePacketOfEachDestinationGoesInEachGap) {
    Pacer pacer(milliseconds(10));
    EXPECT_EQ(pacer.next_due(), Time::max());
    EXPECT_EQ(pacer.add(0, 0, artdmx(0, 1), at(milliseconds(0))), Pacer::Loss::None);
    EXPECT_EQ(pacer.add(0, 1, artdmx(1, 2), at(milliseconds(0))), Pacer::Loss::None);
    EXPECT_EQ(pacer.add(1, 2, artdmx(0, 3), at(milliseconds(0))), Pacer::Loss::None);
    EXPECT_EQ(pacer.size(), 3U);
    const auto first = pacer.take(at(milliseconds(0)));
    ASSERT_TRUE(first);
    EXPECT_EQ(first->destination, 0U);
    EXPECT_EQ(first->stream, 0U);
    EXPECT_EQ(bytes_of(first->packet), artdmx(0, 1));
    const auto other = pacer.take(at(milliseconds(0)));
    ASSERT_TRUE(other);
    EXPECT_EQ(other->destination, 1U) << "it does not wait for the first one's gap";
    EXPECT_FALSE(pacer.take(at(milliseconds(9))));
    EXPECT_EQ(pacer.next_due(), at(milliseconds(10)));
    const auto second = pacer.take(at(milliseconds(12)));
    ASSERT_TRUE(second);
    EXPECT_EQ(bytes_of(second->packet), artdmx(1, 2));
    EXPECT_TRUE(pacer.empty());
    EXPECT_EQ(pacer.add(0, 0, artdmx(0, 4), at(milliseconds(13))), Pacer::Loss::None);
    EXPECT_EQ(pacer.next_due(), at(milliseconds(22))) << "the gap holds though nothing waited meanwhile";
}

TEST(PacerTest, ANewerFrameTakesThePlaceOfTheOneThatWaits) {
    Pacer pacer(milliseconds(10));
    (void)pacer.add(0, 0, artdmx(0, 0), at(milliseconds(0)));
    ASSERT_TRUE(pacer.take(at(milliseconds(0))));
    EXPECT_EQ(pacer.add(0, 0, artdmx(0, 1), at(milliseconds(1))), Pacer::Loss::None) << "the first has gone";
    EXPECT_EQ(pacer.add(0, 1, artdmx(1, 1), at(milliseconds(1))), Pacer::Loss::None);
    EXPECT_EQ(pacer.add(0, 0, artdmx(0, 2), at(milliseconds(2))), Pacer::Loss::Superseded);
    EXPECT_EQ(pacer.add(0, 1, artdmx(1, 2), at(milliseconds(2))), Pacer::Loss::Superseded);
    EXPECT_EQ(pacer.size(), 2U);
    EXPECT_EQ(bytes_of(pacer.take(at(milliseconds(10)))->packet), artdmx(0, 2));
    EXPECT_EQ(bytes_of(pacer.take(at(milliseconds(20)))->packet), artdmx(1, 2));
}

TEST(PacerTest, AnArtSyncStaysBehindItsGroupAndTwoInARowAreOne) {
    Pacer pacer(milliseconds(10));
    (void)pacer.add(0, 0, artdmx(0), at(milliseconds(0)));
    pacer.add_sync(0, at(milliseconds(0)));
    pacer.add_sync(0, at(milliseconds(0)));
    (void)pacer.add(0, 1, artdmx(1), at(milliseconds(0)));
    EXPECT_EQ(pacer.size(), 2U) << "only frames count";
    EXPECT_FALSE(pacer.take(at(milliseconds(0)))->sync);
    EXPECT_TRUE(pacer.take(at(milliseconds(10)))->sync);
    EXPECT_EQ(pacer.take(at(milliseconds(20)))->stream, 1U);
    EXPECT_TRUE(pacer.empty());
}

TEST(PacerTest, TooManyOfOneDestinationCostItsOldest) {
    Pacer pacer(milliseconds(10));
    for (std::size_t stream = 0; stream < Pacer::kMostOfOne; ++stream) {
        ASSERT_EQ(pacer.add(0, stream, artdmx(0), at(milliseconds(0))), Pacer::Loss::None);
    }
    EXPECT_EQ(pacer.add(0, kNoStream, artdmx(7), at(milliseconds(0))), Pacer::Loss::Dropped);
    EXPECT_EQ(pacer.size(), Pacer::kMostOfOne);
    EXPECT_EQ(pacer.take(at(milliseconds(0)))->stream, 1U) << "stream 0 has gone";
    EXPECT_EQ(pacer.add(0, 0, artdmx(0), at(milliseconds(0))), Pacer::Loss::None) << "and may wait anew";
}

TEST(PacerTest, TooManyInAllAreRefusedWhereNothingOfTheDestinationWaits) {
    Pacer pacer(milliseconds(10));
    constexpr std::size_t kDestinations = Pacer::kMostInAll / Pacer::kMostOfOne;
    for (std::size_t destination = 0; destination < kDestinations; ++destination) {
        for (std::size_t i = 0; i < Pacer::kMostOfOne; ++i) {
            ASSERT_EQ(pacer.add(destination, kNoStream, artdmx(0), at(milliseconds(0))), Pacer::Loss::None);
        }
    }
    EXPECT_EQ(pacer.add(kDestinations, 0, artdmx(0), at(milliseconds(0))), Pacer::Loss::Dropped);
    EXPECT_EQ(pacer.size(), Pacer::kMostInAll);
    std::size_t destinations = 0;
    while (const auto forgotten = pacer.forget_one()) {
        EXPECT_EQ(forgotten->frames, Pacer::kMostOfOne);
        ++destinations;
    }
    EXPECT_EQ(destinations, kDestinations);
    EXPECT_TRUE(pacer.empty());
    EXPECT_EQ(pacer.size(), 0U);
}

}  // namespace
