// Targets to destinations, within bounds.
#include "destination_table.h"

#include <gtest/gtest.h>

namespace {

using forwarder::DestinationTable;
using forwarder::Endpoint;
using forwarder::Rewrite;

TEST(DestinationTableTest, SameTargetIsTheSameDestination) {
    DestinationTable table({});
    EXPECT_EQ(table.size(), 0U);
    const std::size_t first = table.find({1, 6454});
    EXPECT_EQ(table.find({1, 6454}), first);
    EXPECT_NE(table.find({1, 6455}), first);
    EXPECT_NE(table.find({2, 6454}), first);
    EXPECT_EQ(table.size(), 3U);
}

TEST(DestinationTableTest, DestinationKnowsItsTargetAndWhereThatIsSent) {
    const std::vector<Rewrite> rewrites{{0xC0000200, 0xFFFFFF00, 0x7F000002}};
    DestinationTable table(rewrites);
    const std::size_t inside = table.find({0xC0000205, 6454});
    EXPECT_EQ(table[inside].target(), (Endpoint{0xC0000205, 6454}));
    EXPECT_EQ(table[inside].sent_to(), (Endpoint{0x7F000002, 6454}));
    const std::size_t outside = table.find({0x0A000005, 6454});
    EXPECT_EQ(table[outside].sent_to(), (Endpoint{0x0A000005, 6454}));
}

TEST(DestinationTableTest, FullTableSendsNewcomersToTheSharedDestinationAndKeepsTheOthers) {
    DestinationTable table({});
    for (std::uint32_t i = 0; i < DestinationTable::kMostDestinations; ++i) {
        EXPECT_EQ(table.find({i, 1}), i);
    }
    for (std::uint32_t i = 0; i < 10'000; ++i) {
        EXPECT_EQ(table.find({0x0A000000 + i, 1}), DestinationTable::kMostDestinations);
    }
    EXPECT_EQ(table.size(), DestinationTable::kMostDestinations);
    EXPECT_EQ(table.find({7, 1}), 7U);
}

}  // namespace
