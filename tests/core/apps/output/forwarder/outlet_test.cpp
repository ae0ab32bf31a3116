// The outlet's steps together, with times of the test's own and a sink that writes down what it is given.
#include "outlet.h"

#include <map>
#include <utility>

#include <gtest/gtest.h>

#include "udp_peer.h"

namespace {

using forwarder::Outlet;
using forwarder::OutletSettings;
using std::chrono::milliseconds;
using tests::artdmx;
using tests::Bytes;
using Time = Outlet::Time;

constexpr Time at(milliseconds time) {
    return Time(std::chrono::hours(1)) + time;
}

const Bytes kSync{'A', 'r', 't', '-', 'N', 'e', 't', 0, 0x00, 0x52, 0, 14, 0, 0};

class Recorder final : public forwarder::PacketSink {
public:
    void deliver(std::size_t destination, std::span<const iovec> packets, Time) override {
        EXPECT_FALSE(packets.empty());
        EXPECT_LE(packets.size(), Outlet::kMostAtOnce);
        for (const iovec& packet : packets) {
            const auto* begin = static_cast<const unsigned char*>(packet.iov_base);
            sent_[destination].emplace_back(begin, begin + packet.iov_len);
        }
    }
    void lose(std::size_t destination, std::size_t packets) override { lost_[destination] += packets; }

    /// What came for the destination since this was called before.
    std::vector<Bytes> take(std::size_t destination) { return std::exchange(sent_[destination], {}); }
    std::size_t lost(std::size_t destination) { return lost_[destination]; }

private:
    std::map<std::size_t, std::vector<Bytes>> sent_;
    std::map<std::size_t, std::size_t> lost_;
};

class OutletTest : public testing::Test {
protected:
    Outlet& make(const OutletSettings& settings) { return outlet_.emplace(settings, sink_); }

    /// Packets of one destination that arrive together, and what is due then.
    void arrive(std::size_t destination, const std::vector<Bytes>& packets, milliseconds time) {
        for (const Bytes& packet : packets) {
            outlet_->arrive(destination, packet, at(time), at(time));
        }
        outlet_->flush(at(time));
        outlet_->serve(at(time), at(time));
    }
    void serve(milliseconds time) { outlet_->serve(at(time), at(time)); }

    Recorder sink_;
    std::optional<Outlet> outlet_;
};

TEST_F(OutletTest, SequenceNumbersAreOfOneUniverseAndDestinationAndTheGivenPacketsStayAsTheyAre) {
    make({.sequence = true});
    const std::vector<Bytes> given{artdmx(1, 0, 77), artdmx(2, 0, 77), artdmx(1, 5, 70)};
    arrive(0, given, milliseconds(0));
    arrive(3, {artdmx(1, 0, 77)}, milliseconds(0));
    EXPECT_EQ(sink_.take(0), (std::vector<Bytes>{artdmx(1, 0, 1), artdmx(2, 0, 1), artdmx(1, 5, 2)}));
    EXPECT_EQ(sink_.take(3), (std::vector<Bytes>{artdmx(1, 0, 1)}));
    EXPECT_EQ(given[0], artdmx(1, 0, 77)) << "others look at the same bytes";
    EXPECT_EQ(outlet_->next_due(), Time::max()) << "nothing is done by time";
}

TEST_F(OutletTest, PacketsThatAreNotArtDmxPassThroughAllSteps) {
    make({.sequence = true, .sync = true, .trim = true, .keep_alive = milliseconds(900)});
    Bytes other = artdmx(1, 0, 77);
    other[9] = 0x99;
    arrive(0, {other}, milliseconds(0));
    EXPECT_EQ(sink_.take(0), (std::vector<Bytes>{other}));
    EXPECT_EQ(outlet_->next_due(), Time::max());
    EXPECT_EQ(outlet_->counters().streams, 0U);
}

TEST_F(OutletTest, MoreThanTheSinkTakesAtOnceComesInParts) {
    make({.sequence = true, .sync = true});
    // Each packet but the first ends a group, so that twice as many leave.
    arrive(0, std::vector<Bytes>(Outlet::kMostAtOnce, artdmx(1)), milliseconds(0));
    const auto sent = sink_.take(0);
    ASSERT_EQ(sent.size(), 2 * Outlet::kMostAtOnce - 1);
    EXPECT_EQ(sent[0], artdmx(1, 0, 1));
    EXPECT_EQ(sent[1], kSync);
    EXPECT_EQ(sent.back(), artdmx(1, 0, 1)) << "number 256 is 1 again";
}

TEST_F(OutletTest, FramesOfASilentUniverseAreSentAgainWithNewNumbersShortAndWithAnArtSync) {
    make({.sequence = true, .sync = true, .trim = true, .keep_alive = milliseconds(900)});
    Bytes small = artdmx(4, 8, 99);
    small[16] = 0;
    small[17] = 3;
    arrive(0, {small}, milliseconds(0));
    Bytes expected(small.begin(), small.begin() + 22);
    expected[12] = 1;
    EXPECT_EQ(sink_.take(0), (std::vector<Bytes>{expected}));
    EXPECT_EQ(outlet_->next_due(), at(milliseconds(2)));
    serve(milliseconds(2));
    EXPECT_EQ(sink_.take(0), (std::vector<Bytes>{kSync}));
    EXPECT_EQ(outlet_->next_due(), at(milliseconds(900)));
    serve(milliseconds(899));
    EXPECT_TRUE(sink_.take(0).empty()) << "never early";
    for (const int round : {1, 2}) {
        serve(milliseconds(900 * round));
        serve(milliseconds(900 * round + 2));
        expected[12] = static_cast<unsigned char>(1 + round);
        EXPECT_EQ(sink_.take(0), (std::vector<Bytes>{expected, kSync}));
    }
    EXPECT_EQ(outlet_->counters().resent, 2U);
    EXPECT_EQ(outlet_->counters().syncs, 3U);
    outlet_->finish(at(milliseconds(2000)));
    EXPECT_EQ(outlet_->next_due(), Time::max()) << "the end is not to be waited for";
}

TEST_F(OutletTest, WithoutSequenceARepeatedFrameIsTheSameToTheByte) {
    make({.keep_alive = milliseconds(800)});
    arrive(0, {artdmx(4, 8, 99), artdmx(4, 9, 100)}, milliseconds(0));
    EXPECT_EQ(sink_.take(0).size(), 2U);
    serve(milliseconds(800));
    EXPECT_EQ(sink_.take(0), (std::vector<Bytes>{artdmx(4, 9, 100)}));
}

TEST_F(OutletTest, WhatIsOnlyRepeatedComesInPartsToo) {
    make({.keep_alive = milliseconds(900)});
    for (unsigned universe = 0; universe < Outlet::kMostAtOnce + 10; ++universe) {
        arrive(0, {artdmx(universe)}, milliseconds(0));
    }
    (void)sink_.take(0);
    serve(milliseconds(900));
    EXPECT_EQ(sink_.take(0).size(), Outlet::kMostAtOnce);
    EXPECT_LE(outlet_->next_due(), at(milliseconds(900))) << "the rest is due at once";
    serve(milliseconds(900));
    EXPECT_EQ(sink_.take(0).size(), 10U);
}

TEST_F(OutletTest, PacedPacketsTakeTheirNumbersWhenTheyLeaveAndTheArtSyncIsPacedToo) {
    make({.sequence = true, .sync = true, .pace = milliseconds(10)});
    arrive(0, {artdmx(1, 1), artdmx(2, 1)}, milliseconds(0));
    EXPECT_EQ(sink_.take(0), (std::vector<Bytes>{artdmx(1, 1, 1)}));
    // The next frame: what waits of universe 2 is replaced, and takes no number.
    arrive(0, {artdmx(1, 2), artdmx(2, 2)}, milliseconds(5));
    EXPECT_TRUE(sink_.take(0).empty());
    EXPECT_EQ(outlet_->counters().waiting, 2U);
    std::vector<Bytes> sent;
    for (milliseconds time(6); time < milliseconds(60); time += milliseconds(1)) {
        serve(time);
        for (Bytes& packet : sink_.take(0)) {
            EXPECT_GE(time, milliseconds(10) * static_cast<int>(sent.size() + 1));
            sent.push_back(std::move(packet));
        }
    }
    EXPECT_EQ(sent, (std::vector<Bytes>{artdmx(2, 2, 1), kSync, artdmx(1, 2, 2), kSync}));
    EXPECT_EQ(outlet_->counters().superseded, 1U);
    EXPECT_EQ(outlet_->counters().syncs, 2U);
    EXPECT_EQ(sink_.lost(0), 1U);
    EXPECT_TRUE(outlet_->idle());
}

TEST_F(OutletTest, AFrameThatWaitsForItsTurnIsNotRepeatedMeanwhile) {
    make({.keep_alive = milliseconds(900), .pace = milliseconds(1000)});
    arrive(0, {artdmx(1), artdmx(2), artdmx(3)}, milliseconds(0));
    for (milliseconds time(100); time <= milliseconds(5000); time += milliseconds(100)) {
        serve(time);
    }
    EXPECT_EQ(sink_.take(0),
              (std::vector<Bytes>{artdmx(1), artdmx(2), artdmx(3), artdmx(1), artdmx(2), artdmx(3)}));
    EXPECT_EQ(outlet_->counters().superseded, 0U);
    EXPECT_EQ(sink_.lost(0), 0U);
}

TEST_F(OutletTest, WhatStillWaitsAtTheEndIsCountedAsLost) {
    make({.trim = true, .pace = milliseconds(10)});
    arrive(2, {artdmx(1), artdmx(2), artdmx(3)}, milliseconds(0));
    EXPECT_EQ(sink_.take(2).size(), 1U);
    outlet_->finish(at(milliseconds(1)));
    EXPECT_FALSE(outlet_->idle());
    outlet_->give_up();
    EXPECT_TRUE(outlet_->idle());
    EXPECT_EQ(sink_.lost(2), 2U);
    EXPECT_EQ(outlet_->counters().dropped, 2U);
    EXPECT_EQ(outlet_->counters().waiting, 0U);
}

TEST_F(OutletTest, PairsBeyondTheLimitAreSentAsTheyCameAndCounted) {
    make({.sequence = true, .keep_alive = milliseconds(900)});
    for (std::size_t i = 0; i < forwarder::StreamTable::kMostStreams; ++i) {
        outlet_->arrive(0, artdmx(static_cast<unsigned>(i)), at(milliseconds(0)), at(milliseconds(0)));
    }
    serve(milliseconds(0));
    (void)sink_.take(0);
    arrive(1, {artdmx(1, 0, 77)}, milliseconds(1));
    EXPECT_EQ(sink_.take(1), (std::vector<Bytes>{artdmx(1, 0, 77)}));
    EXPECT_EQ(outlet_->pass(artdmx(1)).size(), 530U);
    EXPECT_EQ(outlet_->counters().untracked, 2U);
    EXPECT_EQ(outlet_->counters().streams, forwarder::StreamTable::kMostStreams);
}

TEST_F(OutletTest, TrimmingAloneFollowsNothing) {
    make({.trim = true});
    Bytes small = artdmx(4, 8, 99);
    small[16] = 0;
    small[17] = 2;
    arrive(0, {small}, milliseconds(0));
    EXPECT_EQ(sink_.take(0), (std::vector<Bytes>{Bytes(small.begin(), small.begin() + 20)}));
    EXPECT_EQ(outlet_->pass(small).size(), 20U);
    EXPECT_EQ(outlet_->counters().untracked, 0U);
    EXPECT_EQ(outlet_->counters().streams, 0U);
}

}  // namespace
