// Playing, pausing, stopping, brightness and speed boost: the states of a playlist and the results of calls.

#include <limits>

#include "support/engine_test.h"
#include "support/fifo.h"

using namespace std::chrono_literals;

namespace {

class RepeaterControlTest : public EngineTest {
protected:
    RepeaterControlTest() {
        start();
        // 20 packets of one channel each that count up, 40 ms apart.
        Recording counting;
        for (std::uint8_t number = 0; number < 20; ++number) {
            counting.dmx(0, {number});
        }
        show.recording("counting.rec", counting.bytes());
    }
    /// Playlist `id` counts from 0 to 19 on universe 0.
    void add_counting(int id, bool loop) {
        show.playlist(ShowPlaylist(id).loop(loop).effect(
            ShowEffect("counting.rec").fps(25).ppf(1).output("0:192.0.2.1:6454")));
    }
    /// One packet, then its end.
    void play_until_ended(int id) {
        show.recording("once.rec", Recording{}.dmx(1, {1}).bytes());
        show.playlist(ShowPlaylist(id).loop(false).effect(ShowEffect("once.rec").output("1:192.0.2.1:6454")));
        ASSERT_TRUE(engine().play_playlist(id));
        ASSERT_TRUE(eventually([=, this] { return flags(id) == "1,0,1"; }));
    }
    [[nodiscard]] std::vector<int> loaded() { return RepeaterAccess::playlist_ids(engine()); }
};

TEST_F(RepeaterControlTest, PlayingLoadsThePlaylistAndTheWorkerStartsIt) {
    add_counting(1, true);
    EXPECT_TRUE(engine().play_playlist(1));
    EXPECT_EQ(loaded(), (std::vector<int>{1}));
    EXPECT_TRUE(eventually([this] { return flags(1) == "1,0,0"; }));
    EXPECT_TRUE(wait_for_sent(1));
}

TEST_F(RepeaterControlTest, APlayIsFirstARequestThatTheWorkerTakesUpAtNow) {
    add_counting(1, true);
    ASSERT_TRUE(engine().play_playlist(1));
    ASSERT_TRUE(engine().pause_playlist(1));
    VirtualClock::advance(10s);
    const auto before = VirtualClock::now();
    ASSERT_TRUE(engine().play_playlist(1));
    ASSERT_TRUE(eventually([this] { return flags(1) == "1,0,0"; }));
    EXPECT_GE(RepeaterAccess::due_time(engine(), 1), before);
}

TEST_F(RepeaterControlTest, PlayingTwiceIsFineAndSaysSo) {
    add_counting(1, true);
    ASSERT_TRUE(engine().play_playlist(1));
    EXPECT_TRUE(engine().play_playlist(1));
    EXPECT_TRUE(log().has("[Repeater::play_playlist] Cuelist already playing"));
    EXPECT_EQ(loaded(), (std::vector<int>{1}));
}

TEST_F(RepeaterControlTest, PlayingTwiceTakesOwnershipOnce) {
    ASSERT_TRUE(engine().add_zone({3, 5, {0}}));
    show.playlist(ShowPlaylist(1).effect(
        ShowEffect("counting.rec").fps(25).ppf(1).output("0:192.0.2.1:6454").zone(0, 3)));
    const Playlist::Address address("192.0.2.1", 6454);
    ASSERT_TRUE(engine().play_playlist(1));
    ASSERT_TRUE(engine().play_playlist(1));
    EXPECT_EQ(RepeaterAccess::get_merge_packet(engine(), 0, &address).zones, (std::vector<int>{3}));
    ASSERT_TRUE(engine().pause_playlist(1));
    EXPECT_EQ(RepeaterAccess::get_merge_packet(engine(), 0, &address).zones, (std::vector<int>{3}));
    ASSERT_TRUE(engine().play_playlist(1));
    EXPECT_EQ(RepeaterAccess::get_merge_packet(engine(), 0, &address).zones, (std::vector<int>{3}));
    engine().stop_playlist(1);
    EXPECT_EQ(RepeaterAccess::merge_packet_count(engine()), 0U);
    EXPECT_TRUE(log().lines_starting("[Repeater::remove_merge_packet_owner]").empty());
}

TEST_F(RepeaterControlTest, PausingHaltsAndPlayingResumesAtTheSamePacket) {
    add_counting(1, true);
    ASSERT_TRUE(engine().play_playlist(1));
    ASSERT_TRUE(wait_for_sent(5));
    // Time will stand, and no packet that is not loaded by then would ever be sent.
    ASSERT_TRUE(wait_until_loaded(1));
    EXPECT_TRUE(engine().pause_playlist(1));
    EXPECT_EQ(flags(1), "0,0,0");
    const std::size_t sent = FakeUdpSocket::sent_count();
    const int position = RepeaterAccess::position(engine(), 1);
    const auto due = RepeaterAccess::due_time(engine(), 1);
    const int sleeps = VirtualClock::sleeps();
    ASSERT_TRUE(eventually([=] { return VirtualClock::sleeps() > sleeps + 10; }));
    EXPECT_EQ(FakeUdpSocket::sent_count(), sent);
    EXPECT_EQ(RepeaterAccess::position(engine(), 1), position);
    EXPECT_EQ(RepeaterAccess::due_time(engine(), 1), due);
    // Time stands: what is sent now is sent as soon as it is taken up.
    VirtualClock::set_step(0ns);
    EXPECT_TRUE(engine().play_playlist(1));
    ASSERT_TRUE(wait_for_sent(sent + 1));
    EXPECT_EQ(FakeUdpSocket::sent().at(sent).channel(0), position % 20);
}

TEST_F(RepeaterControlTest, UntilTheWorkerTakesItUpAPlayIsARequestAndCountsAsPlaying) {
    add_counting(1, true);
    ASSERT_NO_FATAL_FAILURE(hold_idle_worker());
    const int sleeps = VirtualClock::sleeps();
    ASSERT_TRUE(engine().play_playlist(1));
    EXPECT_EQ(flags(1), "0,1,0");
    EXPECT_TRUE(engine().play_playlist(1));
    EXPECT_TRUE(log().has("[Repeater::play_playlist] Cuelist already playing"));
    ASSERT_TRUE(engine().pause_playlist(1));
    EXPECT_EQ(flags(1), "0,0,0");
    VirtualClock::hold_sleeps(false);
    ASSERT_TRUE(eventually([=] { return VirtualClock::sleeps() > sleeps + 5; }));
    EXPECT_EQ(flags(1), "0,0,0");
    EXPECT_EQ(FakeUdpSocket::attempts(), 0U);
}

TEST_F(RepeaterControlTest, PausingNothingOrAnotherPlaylistIsRefused) {
    EXPECT_FALSE(engine().pause_playlist(1));
    EXPECT_TRUE(log().has("[Repeater::pause_playlist] No active cuelists"));
    EXPECT_FALSE(log().has("[Repeater::pause_playlist] Cuelist is not active"));
    add_counting(1, true);
    ASSERT_TRUE(engine().play_playlist(1));
    EXPECT_FALSE(engine().pause_playlist(2));
    EXPECT_TRUE(log().has("[Repeater::pause_playlist] Cuelist is not active"));
}

TEST_F(RepeaterControlTest, StoppingRemovesThePlaylistAndTheOthersKeepTheirOrder) {
    for (const int id : {1, 2, 3}) {
        add_counting(id, true);
        ASSERT_TRUE(engine().play_playlist(id));
    }
    engine().stop_playlist(2);
    EXPECT_EQ(loaded(), (std::vector<int>{1, 3}));
    engine().stop_playlist(1);
    EXPECT_EQ(loaded(), (std::vector<int>{3}));
}

TEST_F(RepeaterControlTest, AnExplicitStopEmitsNoSignal) {
    std::vector<int> stopped;
    QObject::connect(&engine(), &Repeater::OnPlaylistStopped, [&stopped](int id) { stopped.push_back(id); });
    // Its recording still arrives when it is stopped, so that it cannot come to its end before.
    Fifo fifo(show.path("live.rec"));
    show.playlist(ShowPlaylist(1).loop(false).effect(ShowEffect("live.rec").output("0:192.0.2.1:6454")));
    std::thread feeder([&fifo] {
        fifo.open();
        fifo.write(Recording{}.dmx(0, {1}).frame_delay_ms(60).dmx(0, {2}).fill_to(512).bytes());
    });
    EXPECT_TRUE(engine().play_playlist(1));
    feeder.join();
    EXPECT_TRUE(wait_for_sent(1));
    std::thread end_of_input([this, &fifo] {
        EXPECT_TRUE(eventually([this] { return flags(1) == "1,0,1"; }));
        fifo.close();
    });
    engine().stop_playlist(1);
    end_of_input.join();
    // A playlist that ends afterwards shows that the queue has been served.
    play_until_ended(2);
    ASSERT_TRUE(eventually([&stopped] { return !stopped.empty(); }));
    EXPECT_EQ(stopped, (std::vector<int>{2}));
}

TEST_F(RepeaterControlTest, AStoppedPlaylistStartsAnewFromItsFiles) {
    add_counting(1, true);
    ASSERT_TRUE(engine().play_playlist(1));
    ASSERT_TRUE(wait_for_sent(3));
    engine().stop_playlist(1);
    show.recording("counting.rec", Recording{}.dmx(0, {99}).bytes());
    const std::size_t sent = FakeUdpSocket::sent_count();
    ASSERT_TRUE(engine().play_playlist(1));
    ASSERT_TRUE(wait_for_sent(sent + 1));
    EXPECT_EQ(FakeUdpSocket::sent().at(sent).channel(0), 99);
}

TEST_F(RepeaterControlTest, StoppingWhatIsNotLoadedOnlySaysSo) {
    engine().stop_playlist(1);
    EXPECT_TRUE(log().has("[Repeater::stop_playlist] No active cuelists"));
    EXPECT_FALSE(log().has("[Repeater::stop_playlist] Cuelist is not active"));
    add_counting(1, true);
    ASSERT_TRUE(engine().play_playlist(1));
    engine().stop_playlist(2);
    EXPECT_TRUE(log().has("[Repeater::stop_playlist] Cuelist is not active"));
    EXPECT_EQ(loaded(), (std::vector<int>{1}));
}

TEST_F(RepeaterControlTest, AnEndedPlaylistStaysLoadedAndKeepsItsOwnership) {
    ASSERT_TRUE(engine().add_zone({3, 5, {0}}));
    show.recording("once.rec", Recording{}.dmx(1, {1}).bytes());
    show.playlist(
        ShowPlaylist(7).loop(false).effect(ShowEffect("once.rec").output("1:192.0.2.1:6454").zone(1, 3)));
    ASSERT_TRUE(engine().play_playlist(7));
    ASSERT_TRUE(eventually([this] { return flags(7) == "1,0,1"; }));
    EXPECT_EQ(loaded(), (std::vector<int>{7}));
    EXPECT_EQ(RepeaterAccess::merge_packet_count(engine()), 1U);
    engine().stop_playlist(7);
    EXPECT_EQ(RepeaterAccess::merge_packet_count(engine()), 0U);
}

TEST_F(RepeaterControlTest, PlayingAnEndedPlaylistDoesNotRestartIt) {
    play_until_ended(1);
    const std::size_t sent = FakeUdpSocket::sent_count();
    EXPECT_TRUE(engine().play_playlist(1));
    EXPECT_TRUE(log().has("[Repeater::play_playlist] Cuelist already playing"));
    const int sleeps = VirtualClock::sleeps();
    ASSERT_TRUE(eventually([=] { return VirtualClock::sleeps() > sleeps + 5; }));
    EXPECT_EQ(flags(1), "1,0,1");
    EXPECT_EQ(FakeUdpSocket::sent_count(), sent);
}

TEST_F(RepeaterControlTest, EndedPausedAndPlayedAgainIsAcceptedSendsNothingAndThenCountsAsPlaying) {
    play_until_ended(1);
    const std::size_t sent = FakeUdpSocket::sent_count();
    EXPECT_TRUE(engine().pause_playlist(1));
    EXPECT_EQ(flags(1), "0,0,1");
    EXPECT_TRUE(engine().play_playlist(1));
    EXPECT_FALSE(log().has("[Repeater::play_playlist] Cuelist already playing"));
    ASSERT_TRUE(eventually([this] { return flags(1) == "1,0,1"; }));
    const int sleeps = VirtualClock::sleeps();
    ASSERT_TRUE(eventually([=] { return VirtualClock::sleeps() > sleeps + 5; }));
    EXPECT_EQ(FakeUdpSocket::sent_count(), sent);
    EXPECT_TRUE(engine().play_playlist(1));
    EXPECT_TRUE(log().has("[Repeater::play_playlist] Cuelist already playing"));
}

TEST_F(RepeaterControlTest, AnUnknownPlaylistIsRefusedWithTheParsersMessage) {
    EXPECT_FALSE(engine().play_playlist(5));
    const std::vector<std::string> lines = log().lines_starting("[Repeater::");
    const std::vector<std::string> expected{
        "[Repeater::play_playlist] Play playlist (playlist_id:5)",
        "[Repeater::load_playlist] Load playlist (playlist_id:5)",
        "[Repeater::load_playlist] Failed to load cuelist (err:Playlist desc file not found)",
        "[Repeater::play_playlist] Failed to load cuelist"};
    ASSERT_GE(lines.size(), expected.size());
    EXPECT_EQ(std::vector<std::string>(lines.end() - 4, lines.end()), expected);
    EXPECT_TRUE(loaded().empty());
}

TEST_F(RepeaterControlTest, ABadFileIsRefusedWithItsMessage) {
    add_counting(1, true);
    EXPECT_FALSE(engine().play_playlist(5));
    EXPECT_TRUE(log().has("[Repeater::load_playlist] Failed to load cuelist (err:Playlist desc not found)"));
    show.file("playlists/1.json", "[{}]");
    EXPECT_FALSE(engine().play_playlist(1));
    EXPECT_TRUE(log().has(
        "[Repeater::load_playlist] Failed to load cuelist (err:Playlist effects file format invalid)"));
    EXPECT_TRUE(loaded().empty());
}

TEST_F(RepeaterControlTest, APlaylistWithoutPacketsIsRefusedAndRemoved) {
    show.playlist(ShowPlaylist(1).effect(ShowEffect("missing.rec").output("0:192.0.2.1:6454")));
    EXPECT_FALSE(engine().play_playlist(1));
    EXPECT_TRUE(log().has("[Repeater::load_playlist] Playlist loaded (playlist_id:1)"));
    EXPECT_TRUE(log().has("[Repeater::play_playlist] Cuelist data is absent"));
    EXPECT_TRUE(loaded().empty());
}

TEST_F(RepeaterControlTest, ARefusedPlaylistLeavesTheOthersAlone) {
    add_counting(1, true);
    show.playlist(ShowPlaylist(2).effect(ShowEffect("missing.rec").output("0:192.0.2.1:6454")));
    ASSERT_TRUE(engine().play_playlist(1));
    EXPECT_FALSE(engine().play_playlist(2));
    EXPECT_EQ(loaded(), (std::vector<int>{1}));
    EXPECT_TRUE(wait_for_more(0, 2));
}

TEST_F(RepeaterControlTest, APlaylistWithoutEffectsHasNoPackets) {
    show.playlist(ShowPlaylist(1));
    EXPECT_FALSE(engine().play_playlist(1));
    EXPECT_TRUE(log().has("[Repeater::play_playlist] Cuelist data is absent"));
}

TEST_F(RepeaterControlTest, LoadingDoesNotLookWhetherThePlaylistIsLoadedAndTheFirstRecordIsUsed) {
    add_counting(1, true);
    ASSERT_TRUE(RepeaterAccess::load_playlist(engine(), 1));
    ASSERT_TRUE(RepeaterAccess::load_playlist(engine(), 1));
    EXPECT_EQ(loaded(), (std::vector<int>{1, 1}));
    EXPECT_EQ(flags(1), "0,0,0");
    engine().set_brightness(1, 7);
    EXPECT_EQ(RepeaterAccess::brightness(engine(), 1), 7);
    engine().stop_playlist(1);
    EXPECT_EQ(loaded(), (std::vector<int>{1}));
    EXPECT_EQ(RepeaterAccess::brightness(engine(), 1), 100);
}

TEST_F(RepeaterControlTest, BrightnessAndSpeedBoostAreClamped) {
    add_counting(1, true);
    ASSERT_TRUE(engine().play_playlist(1));
    struct Case {
        int given;
        int stored;
    };
    for (const Case& one :
         {Case{250, 100}, Case{-5, 0}, Case{0, 0}, Case{100, 100}, Case{37, 37},
          Case{std::numeric_limits<int>::max(), 100}, Case{std::numeric_limits<int>::min(), 0}}) {
        engine().set_brightness(1, one.given);
        EXPECT_EQ(RepeaterAccess::brightness(engine(), 1), one.stored) << one.given;
        engine().set_speed_boost(1, one.given);
        EXPECT_EQ(RepeaterAccess::speed_boost(engine(), 1), one.stored) << one.given;
    }
}

TEST_F(RepeaterControlTest, BothSettersActOnPausedAndEndedPlaylistsToo) {
    play_until_ended(1);
    engine().set_brightness(1, 40);
    engine().set_speed_boost(1, 50);
    EXPECT_EQ(RepeaterAccess::brightness(engine(), 1), 40);
    EXPECT_EQ(RepeaterAccess::speed_boost(engine(), 1), 50);
    add_counting(2, true);
    ASSERT_TRUE(engine().play_playlist(2));
    ASSERT_TRUE(engine().pause_playlist(2));
    engine().set_brightness(2, 40);
    EXPECT_EQ(RepeaterAccess::brightness(engine(), 2), 40);
    EXPECT_EQ(RepeaterAccess::brightness(engine(), 1), 40);
    EXPECT_TRUE(log().lines_starting("[Repeater::set_brightness] Cuelist is not active").empty());
}

TEST_F(RepeaterControlTest, TheDescriptionFilesValuesAreUsedAsTheyAre) {
    show.playlist(ShowPlaylist(1).brightness(250).speed_boost(-100).effect(
        ShowEffect("counting.rec").fps(25).ppf(1).output("0:192.0.2.1:6454")));
    ASSERT_NO_FATAL_FAILURE(play_loaded(1));
    EXPECT_EQ(RepeaterAccess::brightness(engine(), 1), 250);
    EXPECT_EQ(RepeaterAccess::speed_boost(engine(), 1), -100);
    ASSERT_TRUE(wait_for_sent(3));
    const std::vector<SentDatagram> sent = FakeUdpSocket::sent();
    // 250 * 1 / 100 and 250 * 2 / 100, a doubled delay apart.
    EXPECT_EQ(sent[1].channel(0), 2);
    EXPECT_EQ(sent[2].channel(0), 5);
    EXPECT_EQ(sent[2].time - sent[1].time, 80ms);
}

TEST_F(RepeaterControlTest, ABrightnessOf250FromTheDescriptionFileWrapsAt256) {
    show.recording("full.rec", Recording{}.dmx(0, {255}).bytes());
    show.playlist(ShowPlaylist(1).brightness(250).effect(
        ShowEffect("full.rec").fps(25).ppf(1).output("0:192.0.2.1:6454")));
    ASSERT_TRUE(engine().play_playlist(1));
    ASSERT_TRUE(wait_for_sent(1));
    EXPECT_EQ(last_sent(0).channel(0), 125);
}

TEST_F(RepeaterControlTest, PlayingWaitsForTheFirst50MsOnlyAndTheRestLoadsMeanwhile) {
    Fifo fifo(show.path("live.rec"));
    show.playlist(ShowPlaylist(1).effect(ShowEffect("live.rec").output("0:192.0.2.1:6454")));
    std::thread feeder([&fifo] {
        fifo.open();
        fifo.write(Recording{}.dmx(0, {1}).frame_delay_ms(60).dmx(0, {2}).fill_to(512).bytes());
    });
    EXPECT_TRUE(engine().play_playlist(1));
    feeder.join();
    EXPECT_FALSE(RepeaterAccess::loader_done(engine(), 1));
    EXPECT_TRUE(wait_for_sent(1));
    fifo.close();
    EXPECT_TRUE(eventually([this] { return RepeaterAccess::loader_done(engine(), 1); }));
}

}  // namespace
