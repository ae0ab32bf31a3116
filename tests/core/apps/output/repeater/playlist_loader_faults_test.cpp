// What becomes of a load whose recording is replaced, deleted or cut short meanwhile.

#include <atomic>
#include <filesystem>
#include <thread>

#include <gtest/gtest.h>

#include "ondra/logger.h"
#include "playlist_loader.h"
#include "support/captured_log.h"
#include "support/eventually.h"
#include "support/playlist_access.h"
#include "support/recording.h"
#include "support/show_directory.h"

using namespace std::chrono_literals;

namespace {

/// While set, the loader stays where it is about to store its fourth packet.
std::atomic<bool> halt{false};
std::atomic<bool> halted{false};
constexpr int kHaltBefore = 3;

}  // namespace

// Stands between the loader and the playlist (--wrap).
void library_add_packet(Playlist* playlist,
                        Playlist::Packet&& packet) __asm__("__real__ZN8Playlist10add_packetEONS_6PacketE");
void add_packet(Playlist* playlist,
                Playlist::Packet&& packet) __asm__("__wrap__ZN8Playlist10add_packetEONS_6PacketE");
void add_packet(Playlist* playlist, Playlist::Packet&& packet) {
    if (playlist->packets_loaded() == kHaltBefore) {
        halted.store(halt.load());
        while (halt.load()) {
            std::this_thread::sleep_for(1ms);
        }
    }
    library_add_packet(playlist, std::move(packet));
}

namespace {

constexpr std::size_t kBlock = 512;
/// Far more than a file stream reads ahead.
constexpr int kPackets = 200;

/// A packet and its timing fill a block of the parser's.
std::vector<std::uint8_t> blocks(int packets, std::uint8_t level) {
    Recording recording;
    for (int i = 0; i < packets; ++i) {
        recording.dmx(0, std::vector<std::uint8_t>(476, level)).frame_delay(1ms);
    }
    EXPECT_EQ(recording.size(), static_cast<std::size_t>(packets) * kBlock);
    return recording.bytes();
}

class PlaylistLoaderFaultsTest : public testing::Test {
protected:
    PlaylistLoaderFaultsTest() {
        show_.recording("1.rec", blocks(kPackets, 1));
        playlist_.set_root_dir(show_.root());
        Playlist::Effect effect;
        effect.path = QStringLiteral("1.rec");
        PlaylistAccess::effects(playlist_) = {effect};
    }
    ~PlaylistLoaderFaultsTest() override { halt.store(false); }

    /// Starts the load and waits until it halts in its midst.
    void start_and_halt() {
        halted.store(false);
        halt.store(true);
        loader_.start(playlist_);
        ASSERT_TRUE(eventually([] { return halted.load(); }));
    }
    void finish() {
        halt.store(false);
        ASSERT_TRUE(eventually([this] { return loader_.done(); }));
    }
    void load_again() {
        loader_.start(playlist_);
        ASSERT_TRUE(eventually([this] { return loader_.done(); }));
    }
    /// Number of stored packets, all of which must show this level.
    [[nodiscard]] int packets_of(std::uint8_t level) const {
        Playlist::Packet packet;
        for (int i = 0; i < playlist_.packets_loaded(); ++i) {
            EXPECT_TRUE(playlist_.packet(i, packet));
            EXPECT_EQ(packet.data.back(), level) << i;
        }
        return playlist_.packets_loaded();
    }
    [[nodiscard]] std::vector<std::string> errors() const {
        return log_.lines_starting("[PlaylistLoader::load_effect] Cue");
    }
    [[nodiscard]] std::vector<std::string> error_with_code(int code) const {
        return {"[PlaylistLoader::load_effect] Cue (" + path_ + ") parse error (" + std::to_string(code) +
                ")"};
    }

    const CapturedLog log_{ondra::kNormal};
    ShowDirectory show_;
    const std::string path_ = show_.path("1.rec");
    Playlist playlist_;
    PlaylistLoader loader_;
};

TEST_F(PlaylistLoaderFaultsTest, AReplacedRecordingIsLoadedToItsEndAndTheNewOneNextTime) {
    start_and_halt();
    show_.recording("new.rec", blocks(5, 2));
    std::filesystem::rename(show_.path("new.rec"), path_);
    finish();
    EXPECT_EQ(packets_of(1), kPackets);
    load_again();
    EXPECT_EQ(packets_of(2), 5);
    EXPECT_EQ(errors(), std::vector<std::string>{});
}

TEST_F(PlaylistLoaderFaultsTest, ADeletedRecordingIsLoadedToItsEndAndMissingNextTime) {
    start_and_halt();
    std::filesystem::remove(path_);
    finish();
    EXPECT_EQ(packets_of(1), kPackets);
    EXPECT_EQ(errors(), std::vector<std::string>{});
    load_again();
    EXPECT_EQ(playlist_.packets_loaded(), 0);
    EXPECT_EQ(errors(), error_with_code(1));
}

TEST_F(PlaylistLoaderFaultsTest, ARecordingCutWithinAPacketEndsThereWithoutTheLastWholePacket) {
    start_and_halt();
    std::filesystem::resize_file(path_, 100 * kBlock + 50);
    finish();
    EXPECT_EQ(packets_of(1), 99);
    EXPECT_EQ(errors(), error_with_code(2));
}

TEST_F(PlaylistLoaderFaultsTest, ARecordingCutBetweenPacketsEndsThereAsAlways) {
    start_and_halt();
    std::filesystem::resize_file(path_, 100 * kBlock);
    finish();
    EXPECT_EQ(packets_of(1), 100);
    EXPECT_EQ(errors(), std::vector<std::string>{});
}

TEST_F(PlaylistLoaderFaultsTest, OfARecordingThatLosesEverythingWhatWasReadAheadIsLeft) {
    start_and_halt();
    std::filesystem::resize_file(path_, 0);
    finish();
    const int packets = packets_of(1);
    EXPECT_GE(packets, kHaltBefore + 1);
    EXPECT_LE(packets, 16);
    EXPECT_TRUE(errors().empty() || errors() == error_with_code(2));
}

TEST_F(PlaylistLoaderFaultsTest, ARecordingWrittenAnewInPlaceIsAMixtureOfBoth) {
    start_and_halt();
    // Written over, not beside and renamed: as many packets, each other from some block on.
    show_.recording("1.rec", blocks(kPackets, 2));
    finish();
    ASSERT_EQ(playlist_.packets_loaded(), kPackets);
    Playlist::Packet packet;
    ASSERT_TRUE(playlist_.packet(0, packet));
    EXPECT_EQ(packet.data.back(), 1);
    ASSERT_TRUE(playlist_.packet(kPackets - 1, packet));
    EXPECT_EQ(packet.data.back(), 2);
    EXPECT_EQ(errors(), std::vector<std::string>{});
}

}  // namespace
