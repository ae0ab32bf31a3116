#include "artnet/universe.h"

#include <array>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using testing::ElementsAre;

namespace {

std::array<int, 3> address_of(unsigned short universe) {
    unsigned char sw = 0;
    unsigned char sub = 0;
    unsigned char net = 0;
    universe_to_addr(universe, sw, sub, net);
    return {sw, sub, net};
}

}  // namespace

TEST(UniverseTest, SwapWordExchangesTheTwoBytes) {
    EXPECT_EQ(swap_word(0x1234), 0x3412);
    EXPECT_EQ(swap_word(0x00FF), 0xFF00);
    EXPECT_EQ(swap_word(0xFF00), 0x00FF);
}

TEST(UniverseTest, UniversesCountFromOneAndCarryTheProgrammingBit) {
    EXPECT_THAT(address_of(1), ElementsAre(0x80, 0x80, 0x80));
    EXPECT_THAT(address_of(2), ElementsAre(0x81, 0x80, 0x80));
    EXPECT_THAT(address_of(17), ElementsAre(0x80, 0x81, 0x80));
    EXPECT_THAT(address_of(257), ElementsAre(0x80, 0x80, 0x81));
    EXPECT_THAT(address_of(32768), ElementsAre(0x8F, 0x8F, 0xFF));
}

TEST(UniverseTest, UniversesOutsideTheRangeWrapAround) {
    EXPECT_THAT(address_of(0), ElementsAre(0x8F, 0x8F, 0xFF));
    EXPECT_THAT(address_of(32769), ElementsAre(0x80, 0x80, 0x80));
}

TEST(UniverseTest, AddressesJoinWithoutMasking) {
    EXPECT_EQ(addr_to_universe(0, 0, 0), 1);
    EXPECT_EQ(addr_to_universe(1, 2, 3), 1 + 0x10 * 2 + 0x100 * 3 + 1);
    EXPECT_EQ(addr_to_universe(0x0F, 0x0F, 0x7F), 32768);
    EXPECT_EQ(addr_to_universe(0x80, 0x80, 0x80), 2177) << "not the inverse, on purpose";
    EXPECT_EQ(addr_to_universe(0, 0, 0xFF), 0x7F00 + 1) << "15 bits";
}
