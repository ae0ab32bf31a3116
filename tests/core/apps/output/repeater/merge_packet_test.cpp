// The pure operations on merged frames: key, ownership, writing with brightness.

#include "merge_packet.h"

#include <algorithm>
#include <limits>
#include <numeric>
#include <vector>

#include <gtest/gtest.h>

namespace {

using Address = Playlist::Address;

/// Header bytes 1 to 18, then the channels.
std::vector<unsigned char> data_of(const std::vector<unsigned char>& channels) {
    std::vector<unsigned char> data;
    for (unsigned char byte = 1; byte <= 18; ++byte) {
        data.push_back(byte);
    }
    data.insert(data.end(), channels.begin(), channels.end());
    return data;
}

int channel(const MergePacket& merge_packet, std::size_t number) {
    return merge_packet.packet.at(18 + number);
}

std::int64_t key_of(int universe, const std::string& ip, int port) {
    const Address address(ip, port);
    return merge_packet_key(universe, &address);
}

TEST(MergePacketTest, ANewFrameIsDarkUnownedAndWithoutZones) {
    const MergePacket merge_packet;
    EXPECT_EQ(merge_packet.packet.size(), 530U);
    EXPECT_TRUE(std::all_of(merge_packet.packet.begin(), merge_packet.packet.end(),
                            [](unsigned char byte) { return byte == 0; }));
    EXPECT_TRUE(std::all_of(merge_packet.owners.begin(), merge_packet.owners.end(),
                            [](int owner) { return owner == -1; }));
    EXPECT_TRUE(merge_packet.zones.empty());
}

TEST(MergePacketKeyTest, WithoutADestinationItIsTheUniverse) {
    EXPECT_EQ(merge_packet_key(0, nullptr), 0);
    EXPECT_EQ(merge_packet_key(32767, nullptr), 32767);
}

TEST(MergePacketKeyTest, TheUniverseIsCutTo16Bits) {
    EXPECT_EQ(merge_packet_key(65536 + 5, nullptr), 5);
    EXPECT_EQ(merge_packet_key(-1, nullptr), 0xFFFF);
}

TEST(MergePacketKeyTest, ADestinationAddsPortAndAddress) {
    EXPECT_EQ(key_of(3, "10.0.0.5", 6454), 0x0A00000519360003LL);
}

TEST(MergePacketKeyTest, AnAddressOfTheUpperHalfMakesTheKeyNegative) {
    EXPECT_EQ(key_of(3, "192.0.2.1", 6454), static_cast<std::int64_t>(0xC000020119360003ULL));
}

TEST(MergePacketKeyTest, FromPort32768OnAllAddressesShareOneKey) {
    EXPECT_EQ(key_of(3, "10.0.0.5", 40000), key_of(3, "192.0.2.1", 40000));
    EXPECT_EQ(key_of(3, "10.0.0.5", 32768), static_cast<std::int64_t>(0xFFFFFFFF80000003ULL));
    EXPECT_NE(key_of(3, "10.0.0.5", 32767), key_of(3, "192.0.2.1", 32767));
    EXPECT_NE(key_of(3, "10.0.0.5", 40000), key_of(3, "10.0.0.5", 40001));
    EXPECT_NE(key_of(3, "10.0.0.5", 40000), key_of(4, "10.0.0.5", 40000));
}

TEST(MergePacketKeyTest, ATextThatIsNoAddressCountsAsAllOnes) {
    EXPECT_EQ(key_of(0, "nowhere", 2000), static_cast<std::int64_t>(0xFFFFFFFF07D00000ULL));
}

TEST(MergePacketClaimTest, AZoneOwnsItsChannelsAndNoOthers) {
    MergePacket merge_packet;
    claim_channels(merge_packet, Zone{1, 5, {0, 511, 7}});
    EXPECT_EQ(merge_packet.owners[0], 5);
    EXPECT_EQ(merge_packet.owners[7], 5);
    EXPECT_EQ(merge_packet.owners[511], 5);
    EXPECT_EQ(std::count(merge_packet.owners.begin(), merge_packet.owners.end(), -1), 509);
}

TEST(MergePacketClaimTest, TheHighestPriorityKeepsAChannelWhateverTheOrder) {
    MergePacket merge_packet;
    claim_channels(merge_packet, Zone{1, 3, {0, 1}});
    claim_channels(merge_packet, Zone{2, 5, {1, 2}});
    claim_channels(merge_packet, Zone{3, 4, {0, 1, 2}});
    EXPECT_EQ(merge_packet.owners[0], 4);
    EXPECT_EQ(merge_packet.owners[1], 5);
    EXPECT_EQ(merge_packet.owners[2], 5);
}

TEST(MergePacketClaimTest, APriorityBelowZeroClaimsNothing) {
    MergePacket merge_packet;
    claim_channels(merge_packet, Zone{1, -1, {0}});
    claim_channels(merge_packet, Zone{1, -5, {1}});
    EXPECT_EQ(merge_packet.owners[0], -1);
    EXPECT_EQ(merge_packet.owners[1], -1);
}

TEST(MergePacketClaimTest, ChannelsOutside0To511AreNeverAnIndex) {
    MergePacket merge_packet;
    const std::vector<int> outside{-1, 512, 513, std::numeric_limits<int>::min(),
                                   std::numeric_limits<int>::max()};
    claim_channels(merge_packet, Zone{1, 5, outside});
    EXPECT_EQ(std::count(merge_packet.owners.begin(), merge_packet.owners.end(), -1), 512);
    write_zone_channels(merge_packet, data_of(std::vector<unsigned char>(512, 9)), 100, Zone{1, -1, outside});
    EXPECT_EQ(merge_packet.packet, MergePacket().packet);
}

TEST(MergePacketWriteTest, TheHeaderIsCopiedWholeAndNothingElse) {
    MergePacket merge_packet;
    merge_packet.packet.fill(99);
    write_header(merge_packet, data_of({50}));
    EXPECT_EQ(merge_packet.packet[0], 1);
    EXPECT_EQ(merge_packet.packet[17], 18);
    EXPECT_EQ(merge_packet.packet[18], 99);
}

TEST(MergePacketWriteTest, BrightnessScalesAndCutsTowardZero) {
    MergePacket merge_packet;
    write_unowned_channels(merge_packet, data_of({255, 1, 0, 200}), 50);
    EXPECT_EQ(channel(merge_packet, 0), 127);
    EXPECT_EQ(channel(merge_packet, 1), 0);
    EXPECT_EQ(channel(merge_packet, 2), 0);
    EXPECT_EQ(channel(merge_packet, 3), 100);
}

TEST(MergePacketWriteTest, FullBrightnessKeepsTheLevelsAndZeroMakesThemDark) {
    MergePacket merge_packet;
    write_unowned_channels(merge_packet, data_of({255, 1}), 100);
    EXPECT_EQ(channel(merge_packet, 0), 255);
    EXPECT_EQ(channel(merge_packet, 1), 1);
    write_unowned_channels(merge_packet, data_of({255, 1}), 0);
    EXPECT_EQ(channel(merge_packet, 0), 0);
    EXPECT_EQ(channel(merge_packet, 1), 0);
}

TEST(MergePacketWriteTest, BrightnessBeyondItsRangeIsStoredModulo256) {
    MergePacket merge_packet;
    // 250 * 255 / 100 = 637 = 2 * 256 + 125; -50 * 255 / 100 = -127 = 256 - 127.
    write_unowned_channels(merge_packet, data_of({255}), 250);
    EXPECT_EQ(channel(merge_packet, 0), 125);
    write_unowned_channels(merge_packet, data_of({255}), -50);
    EXPECT_EQ(channel(merge_packet, 0), 129);
    // 2147483647 * 255 / 100 = 5476083299 = 21390950 * 256 + 99.
    write_unowned_channels(merge_packet, data_of({255}), std::numeric_limits<int>::max());
    EXPECT_EQ(channel(merge_packet, 0), 99);
}

TEST(MergePacketWriteTest, ChannelsBehindThePacketKeepWhatTheyWere) {
    MergePacket merge_packet;
    merge_packet.packet.fill(77);
    write_unowned_channels(merge_packet, data_of(std::vector<unsigned char>(10, 5)), 100);
    EXPECT_EQ(channel(merge_packet, 9), 5);
    EXPECT_EQ(channel(merge_packet, 10), 77);
    EXPECT_EQ(channel(merge_packet, 511), 77);
    write_unowned_channels(merge_packet, data_of(std::vector<unsigned char>(10, 50)), 50);
    EXPECT_EQ(channel(merge_packet, 9), 25);
    EXPECT_EQ(channel(merge_packet, 10), 77);
}

TEST(MergePacketWriteTest, All512ChannelsAreWrittenAndWhatIsBeyondIsLeftOut) {
    MergePacket merge_packet;
    write_unowned_channels(merge_packet, data_of(std::vector<unsigned char>(600, 5)), 100);
    EXPECT_EQ(channel(merge_packet, 0), 5);
    EXPECT_EQ(channel(merge_packet, 511), 5);
    write_unowned_channels(merge_packet, data_of(std::vector<unsigned char>(600, 50)), 50);
    EXPECT_EQ(channel(merge_packet, 511), 25);
}

TEST(MergePacketWriteTest, APacketWithoutChannelsWritesNone) {
    MergePacket merge_packet;
    merge_packet.packet.fill(77);
    write_unowned_channels(merge_packet, data_of({}), 100);
    write_zone_channels(merge_packet, data_of({}), 100, Zone{1, -1, {0}});
    EXPECT_EQ(channel(merge_packet, 0), 77);
}

TEST(MergePacketWriteTest, WithoutAZoneOnlyUnownedChannelsAreWritten) {
    for (const int brightness : {100, 50}) {
        MergePacket merge_packet;
        merge_packet.zones = {1};
        claim_channels(merge_packet, Zone{1, 0, {1}});
        write_unowned_channels(merge_packet, data_of({100, 100, 100}), brightness);
        EXPECT_EQ(channel(merge_packet, 0), brightness);
        EXPECT_EQ(channel(merge_packet, 1), 0);
        EXPECT_EQ(channel(merge_packet, 2), brightness);
    }
}

TEST(MergePacketWriteTest, AZoneWritesOnlyChannelsOwnedAtItsPriority) {
    MergePacket merge_packet;
    const Zone low{1, 3, {0, 1}};
    claim_channels(merge_packet, low);
    claim_channels(merge_packet, Zone{2, 5, {1}});
    write_zone_channels(merge_packet, data_of({100, 100, 100}), 50, low);
    EXPECT_EQ(channel(merge_packet, 0), 50);
    EXPECT_EQ(channel(merge_packet, 1), 0);
    EXPECT_EQ(channel(merge_packet, 2), 0);
}

TEST(MergePacketWriteTest, ZonesOfEqualPriorityShareAChannelAndTheLatestWriteWins) {
    MergePacket merge_packet;
    const Zone first{1, 5, {0}};
    const Zone second{2, 5, {0}};
    claim_channels(merge_packet, first);
    claim_channels(merge_packet, second);
    write_zone_channels(merge_packet, data_of({200}), 100, first);
    EXPECT_EQ(channel(merge_packet, 0), 200);
    write_zone_channels(merge_packet, data_of({20}), 100, second);
    EXPECT_EQ(channel(merge_packet, 0), 20);
}

TEST(MergePacketWriteTest, AZoneWritesNoChannelThatThePacketDoesNotHave) {
    MergePacket merge_packet;
    merge_packet.packet.fill(77);
    const Zone zone{1, 5, {1, 2}};
    claim_channels(merge_packet, zone);
    write_zone_channels(merge_packet, data_of({9, 9}), 100, zone);
    EXPECT_EQ(channel(merge_packet, 1), 9);
    EXPECT_EQ(channel(merge_packet, 2), 77);
}

TEST(MergePacketWriteTest, APacketShorterThanItsHeaderWritesNone) {
    MergePacket frame;
    const Zone zone{1, 5, {0, 1}};
    claim_channels(frame, zone);
    frame.packet.fill(7);
    const auto before = frame.packet;
    for (const std::size_t size : {0U, 10U, 18U}) {
        const std::vector<unsigned char> data(size, 99);
        write_zone_channels(frame, data, 50, zone);
        write_unowned_channels(frame, data, 50);
        EXPECT_EQ(frame.packet, before) << size;
    }
}

TEST(MergePacketWriteTest, AZoneOfPriorityMinusOneWritesUnownedChannels) {
    MergePacket merge_packet;
    claim_channels(merge_packet, Zone{2, 0, {1}});
    write_zone_channels(merge_packet, data_of({9, 9}), 100, Zone{1, -1, {0, 1}});
    EXPECT_EQ(channel(merge_packet, 0), 9);
    EXPECT_EQ(channel(merge_packet, 1), 0);
}

}  // namespace

namespace {

/// What one channel must become, by the rule for single channels.
unsigned char expected_level(unsigned char recorded, int brightness) {
    return static_cast<unsigned char>(std::int64_t{brightness} * recorded / 100);
}

/// Levels that differ from channel to channel.
std::vector<unsigned char> uneven_levels(std::size_t count) {
    std::vector<unsigned char> levels(count);
    for (std::size_t i = 0; i < count; ++i) {
        levels[i] = static_cast<unsigned char>(255 - i * 7);
    }
    return levels;
}

/// A frame of 99s in which a zone of priority 5 has every channel but each seventh, which has priority 9.
MergePacket contested_frame() {
    MergePacket frame;
    frame.packet.fill(99);
    frame.zones = {1, 2};
    for (std::size_t channel = 0; channel < frame.owners.size(); ++channel) {
        frame.owners[channel] = channel % 7 == 0 ? 9 : 5;
    }
    return frame;
}

}  // namespace

// Long lists are written several channels at a time; nobody may see that.
TEST(MergePacketWriteTest, AListOfAnyShapeWritesExactlyItsChannelsAtAnyBrightness) {
    std::vector<int> all(512);
    std::iota(all.begin(), all.end(), 0);
    std::vector<int> backwards(all.rbegin(), all.rend());
    std::vector<int> with_hole(all);
    with_hole.erase(with_hole.begin() + 40);
    std::vector<int> past_the_end(40);
    std::iota(past_the_end.begin(), past_the_end.end(), 495);
    std::vector<int> before_the_start(40);
    std::iota(before_the_start.begin(), before_the_start.end(), -8);
    std::vector<int> last_differs(all.begin(), all.begin() + 16);
    last_differs.back() = 300;

    for (const std::vector<int>& channels :
         {all, backwards, with_hole, past_the_end, before_the_start, last_differs}) {
        for (const int brightness : {0, 1, 50, 99, 100, 257, 258, 1000, -1}) {
            for (const std::size_t count : {512U, 500U, 20U, 16U, 15U}) {
                const std::vector<unsigned char> levels = uneven_levels(count);
                MergePacket frame = contested_frame();
                write_zone_channels(frame, data_of(levels), brightness, Zone{1, 5, channels});
                for (std::size_t channel = 0; channel < 512; ++channel) {
                    const bool listed = std::find(channels.begin(), channels.end(),
                                                  static_cast<int>(channel)) != channels.end();
                    const bool written = listed && channel < count && channel % 7 != 0;
                    ASSERT_EQ(frame.packet[18 + channel],
                              written ? expected_level(levels[channel], brightness) : 99)
                        << "channel " << channel << " of " << count << ", brightness " << brightness;
                }
            }
        }
    }
}

TEST(MergePacketWriteTest, UnownedChannelsAreWrittenBetweenOwnedOnesAtAnyBrightness) {
    for (const int brightness : {0, 1, 50, 99, 100, 257, 258, 1000, -1}) {
        for (const std::size_t count : {512U, 500U, 20U, 16U, 15U}) {
            const std::vector<unsigned char> levels = uneven_levels(count);
            MergePacket frame = contested_frame();
            std::replace(frame.owners.begin(), frame.owners.end(), 5, kUnowned);
            write_unowned_channels(frame, data_of(levels), brightness);
            for (std::size_t channel = 0; channel < 512; ++channel) {
                const bool written = channel < count && channel % 7 != 0;
                ASSERT_EQ(frame.packet[18 + channel],
                          written ? expected_level(levels[channel], brightness) : 99)
                    << "channel " << channel << " of " << count << ", brightness " << brightness;
            }
        }
    }
}
