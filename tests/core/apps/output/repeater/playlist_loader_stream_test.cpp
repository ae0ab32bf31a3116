// The loader while its recording still arrives, through a FIFO: when it is ready, how it stops.

#include "playlist_loader.h"

#include <atomic>
#include <csignal>
#include <memory>
#include <thread>

#include <gtest/gtest.h>

#include "ondra/logger.h"
#include "support/captured_log.h"
#include "support/eventually.h"
#include "support/fifo.h"
#include "support/playlist_access.h"
#include "support/recording.h"
#include "support/show_directory.h"
#include "support/virtual_clock.h"

using namespace std::chrono_literals;

namespace {

/// The parser takes blocks of this size, so packets arrive with the block that ends them.
constexpr std::size_t kBlock = 512;

std::vector<std::uint8_t> block(Recording recording) {
    return recording.fill_to(kBlock).bytes();
}

class PlaylistLoaderStreamTest : public testing::Test {
protected:
    PlaylistLoaderStreamTest() : fifo_(show_.path("live.rec")) {
        VirtualClock::reset();
        playlist_.set_root_dir(show_.root());
        Playlist::Effect effect;
        effect.path = QStringLiteral("live.rec");
        PlaylistAccess::effects(playlist_) = {effect};
        loader_ = std::make_unique<PlaylistLoader>();
    }
    ~PlaylistLoaderStreamTest() override {
        fifo_.close();
        loader_.reset();
    }
    void start() {
        loader_->start(playlist_);
        fifo_.open();
    }
    [[nodiscard]] bool wait_for_packets(int count) {
        return eventually([=, this] { return playlist_.packets_loaded() >= count; });
    }
    [[nodiscard]] Playlist::Packet packet(int index) const {
        Playlist::Packet result;
        EXPECT_TRUE(playlist_.packet(index, result)) << index;
        return result;
    }

    /// True when wait_ready() of another thread has been told to wait; false when it returned instead.
    [[nodiscard]] bool blocks_in_wait_ready() {
        const long long turns = VirtualClock::turns();
        waiter_ = std::thread([this] {
            loader_->wait_ready();
            returned_.store(true);
        });
        return eventually([=, this] { return returned_.load() || VirtualClock::turns() > turns; }) &&
               !returned_.load();
    }
    void join_waiter() {
        const bool returned = eventually([this] { return returned_.load(); });
        EXPECT_TRUE(returned);
        if (!returned) {
            // The end of the load makes ready whatever was loaded.
            fifo_.close();
        }
        waiter_.join();
    }
    /// In the place of the one effect that the FIFO is.
    void set_effects(const std::vector<QString>& paths) {
        std::vector<Playlist::Effect>& effects = PlaylistAccess::effects(playlist_);
        effects.assign(paths.size(), Playlist::Effect());
        for (std::size_t index = 0; index < paths.size(); ++index) {
            effects[index].path = paths[index];
        }
    }

    const CapturedLog log_{ondra::kNormal};
    ShowDirectory show_;
    Fifo fifo_;
    Playlist playlist_;
    std::unique_ptr<PlaylistLoader> loader_;

private:
    std::thread waiter_;
    std::atomic<bool> returned_{false};
};

TEST_F(PlaylistLoaderStreamTest, PacketsAreThereAsSoonAsTheBlockThatHoldsThemIsRead) {
    start();
    fifo_.write(block(Recording{}.dmx(0, {1}).frame_delay_ms(10).dmx(0, {2})));
    ASSERT_TRUE(wait_for_packets(1));
    EXPECT_EQ(packet(0).delay, 10ms);
    EXPECT_FALSE(loader_->done());
}

TEST_F(PlaylistLoaderStreamTest, Exactly50MsAreNotYetReadyAndTheNextNanosecondIs) {
    start();
    // The packet with 50 ms and one without a delay are stored, the third is pending.
    fifo_.write(block(Recording{}.dmx(0, {1}).frame_delay(50ms).dmx(0, {2}).dmx(0, {3}).frame_delay(1ns)));
    ASSERT_TRUE(wait_for_packets(2));
    EXPECT_TRUE(blocks_in_wait_ready());
    fifo_.write(block(Recording{}.dmx(0, {4})));
    join_waiter();
    EXPECT_EQ(playlist_.packets_loaded(), 3);
    EXPECT_FALSE(loader_->done());
}

TEST_F(PlaylistLoaderStreamTest, NegativeDelaysDoNotPutOffReadiness) {
    start();
    fifo_.write(block(Recording{}.dmx(0, {1}).frame_delay(-40ms).dmx(0, {2}).frame_delay(51ms).dmx(0, {3})));
    loader_->wait_ready();
    EXPECT_EQ(playlist_.packets_loaded(), 2);
    EXPECT_FALSE(loader_->done());
}

TEST_F(PlaylistLoaderStreamTest, TheEndOfAShortRecordingMakesReady) {
    start();
    fifo_.write(block(Recording{}.dmx(0, {1}).dmx(0, {2})));
    ASSERT_TRUE(wait_for_packets(1));
    EXPECT_TRUE(blocks_in_wait_ready());
    fifo_.close();
    join_waiter();
    EXPECT_TRUE(eventually([this] { return loader_->done(); }));
    EXPECT_EQ(playlist_.packets_loaded(), 2);
}

TEST_F(PlaylistLoaderStreamTest, TheTimeOfAllEffectsTogetherMakesReady) {
    // 30 ms from the first effect; the second brings 21 ms and then waits for more.
    show_.recording("first.rec", Recording{}.dmx(0, {1}).bytes());
    set_effects({QStringLiteral("first.rec"), QStringLiteral("live.rec")});
    start();
    ASSERT_TRUE(wait_for_packets(1));
    EXPECT_TRUE(blocks_in_wait_ready());
    fifo_.write(block(Recording{}.dmx(0, {2}).frame_delay_ms(21).dmx(0, {3})));
    join_waiter();
    EXPECT_EQ(playlist_.packets_loaded(), 2);
    EXPECT_FALSE(loader_->done());
}

TEST_F(PlaylistLoaderStreamTest, ASecondLoadBecomesReadyAndDoneOnlyByWhatItLoadsItself) {
    show_.recording("first.rec", Recording{}.dmx(0, {1}).frame_delay_ms(60).dmx(0, {2}).bytes());
    set_effects({QStringLiteral("first.rec")});
    loader_->start(playlist_);
    loader_->wait_ready();
    ASSERT_TRUE(eventually([this] { return loader_->done(); }));
    set_effects({QStringLiteral("live.rec")});
    start();
    EXPECT_FALSE(loader_->done());
    // 10 ms and a packet without a delay are stored, the third is pending: little by itself, and nothing of
    // the 90 ms before counts.
    fifo_.write(block(Recording{}.dmx(0, {3}).frame_delay_ms(10).dmx(0, {4}).dmx(0, {5})));
    ASSERT_TRUE(wait_for_packets(2));
    EXPECT_TRUE(blocks_in_wait_ready());
    fifo_.write(block(Recording{}.frame_delay_ms(41).dmx(0, {6})));
    join_waiter();
    EXPECT_EQ(playlist_.packets_loaded(), 3);
    EXPECT_FALSE(loader_->done());
}

TEST_F(PlaylistLoaderStreamTest, AfterAStopAtMostTwoMorePacketsAreStoredAndTheEffectEndsAsItsFile) {
    PlaylistAccess::effects(playlist_).push_back(PlaylistAccess::effects(playlist_).front());
    start();
    fifo_.write(block(Recording{}.dmx(0, {1}).dmx(0, {2})));
    ASSERT_TRUE(wait_for_packets(1));
    // The stop must find the loader waiting for more, not still at the end of the second packet, where it
    // looks whether it may go on.
    fifo_.write(block(Recording{}));
    ASSERT_TRUE(fifo_.wait_until_taken());
    loader_->stop();
    fifo_.write(block(Recording{}.dmx(0, {3}).dmx(0, {4}).dmx(0, {5})));
    ASSERT_TRUE(eventually([this] { return loader_->done(); }));
    ASSERT_EQ(playlist_.packets_loaded(), 3);
    EXPECT_EQ(packet(2).data.back(), 3);
    EXPECT_EQ(packet(2).delay, 30ms);
    EXPECT_EQ(PlaylistAccess::loaded_effects(playlist_), 1);
    EXPECT_EQ(log_.lines_starting("[PlaylistLoader::load_effect] Load effect").size(), 1U);
}

TEST_F(PlaylistLoaderStreamTest, AStoppedLoadCountsAsReady) {
    start();
    fifo_.write(block(Recording{}.dmx(0, {1})));
    loader_->stop();
    fifo_.write(block(Recording{}.dmx(0, {2})));
    loader_->wait_ready();
    EXPECT_TRUE(eventually([this] { return loader_->done(); }));
}

TEST_F(PlaylistLoaderStreamTest, WhileAnEffectLoadsItsPacketsHaveItsRouting) {
    PlaylistAccess::effects(playlist_)[0].universes = {{0, 5}};
    start();
    fifo_.write(block(Recording{}.dmx(0, {1}).dmx(0, {2})));
    ASSERT_TRUE(wait_for_packets(1));
    EXPECT_EQ(PlaylistAccess::loaded_effects(playlist_), 0);
    const Playlist::Address* addresses = nullptr;
    int count = 0;
    int zone = 0;
    ASSERT_TRUE(playlist_.packet_info(0, &addresses, count, zone));
    EXPECT_EQ(zone, 5);
}

/// Feeds the FIFO from a thread of its own until nobody reads it any more.
class Feeder {
public:
    explicit Feeder(Fifo& fifo)
        : thread_([this, &fifo] {
              while (!stop_.load() && fifo.write(block(Recording{}.dmx(0, {9})))) {
              }
          }) {}
    ~Feeder() {
        stop_.store(true);
        thread_.join();
    }

private:
    std::atomic<bool> stop_{false};
    std::thread thread_;
};

TEST_F(PlaylistLoaderStreamTest, TheDestructorEndsALoadThatIsGoingOn) {
    start();
    fifo_.write(block(Recording{}.dmx(0, {1}).dmx(0, {2})));
    ASSERT_TRUE(wait_for_packets(1));
    const Feeder feeder(fifo_);
    loader_.reset();
    EXPECT_EQ(PlaylistAccess::loaded_effects(playlist_), 1);
}

TEST_F(PlaylistLoaderStreamTest, StartingAgainFirstEndsTheLoadThatIsGoingOn) {
    start();
    fifo_.write(block(Recording{}.dmx(0, {1}).dmx(0, {2})));
    ASSERT_TRUE(wait_for_packets(1));
    // The old load still reads the FIFO; the new one finds a file in its place.
    fifo_.unlink();
    show_.recording("live.rec", Recording{}.dmx(8, {1}).frame_delay_ms(5).dmx(8, {2}).bytes());
    {
        const Feeder feeder(fifo_);
        loader_->start(playlist_);
    }
    ASSERT_TRUE(eventually([this] { return loader_->done(); }));
    ASSERT_EQ(playlist_.packets_loaded(), 2);
    EXPECT_EQ(packet(0).universe, 8);
    EXPECT_EQ(packet(0).delay, 5ms);
    EXPECT_EQ(PlaylistAccess::effect_end(playlist_), (std::vector<int>{1}));
}

}  // namespace
