#pragma once
// Fixture of the engine's tests: a Repeater with fake socket, device facts and clock, and a data directory.

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <QCoreApplication>

#include <gtest/gtest.h>

#include "ondra/logger.h"
#include "repeater.h"
#include "support/captured_log.h"
#include "support/eventually.h"
#include "support/fake_device.h"
#include "support/fake_udp_socket.h"
#include "support/recording.h"
#include "support/repeater_access.h"
#include "support/show_directory.h"
#include "support/virtual_clock.h"

/**
 * Has an application object, so that queued signals arrive in eventually(), and captures the log.
 *
 * start() builds the engine on the data directory; the show may be written before or after it. Time flows by
 * itself (VirtualClock).
 */
class EngineTest : public testing::Test {
protected:
    EngineTest() {
        VirtualClock::reset();
        FakeUdpSocket::reset();
        FakeDevice::reset();
        log_.emplace(ondra::kNormal);
    }
    /// A worker that waits in standing time would never end.
    ~EngineTest() override {
        VirtualClock::set_step(VirtualClock::kStep);
        VirtualClock::hold_sleeps(false);
        engine_.reset();
    }

    /// Captures anew, at another level.
    void capture(int level) {
        log_.reset();
        log_.emplace(level);
    }
    /// Ends the capture, for functions that make their own.
    void release_log() { log_.reset(); }
    [[nodiscard]] const CapturedLog& log() const { return *log_; }

    /// Builds the engine and waits until its worker is up and idle.
    Repeater& start() {
        engine_ = std::make_unique<Repeater>();
        engine_->set_root_dir(show.root());
        engine_->set_playlist_desc_path(QString::fromLatin1(ShowDirectory::kDescriptionPath));
        EXPECT_TRUE(eventually([] { return VirtualClock::sleeps() > 0; }));
        return *engine_;
    }
    Repeater& engine() { return *engine_; }
    void destroy_engine() { engine_.reset(); }

    [[nodiscard]] std::string flags(int id) { return RepeaterAccess::flags(*engine_, id); }
    [[nodiscard]] bool wait_for_sent(std::size_t count) {
        return eventually([count] { return FakeUdpSocket::sent_count() >= count; });
    }
    /// Keeps the idle worker asleep, outside all locks, until VirtualClock::hold_sleeps(false). Nothing
    /// plays.
    void hold_idle_worker() {
        VirtualClock::hold_sleeps(true);
        ASSERT_TRUE(eventually([] { return VirtualClock::sleeper_is_held(); }));
    }
    /// Plays a playlist once all of it is loaded; nothing else plays yet. A loader that the system keeps
    /// waiting puts packets off by 10 ms at a time, and does not say at once that it is done: where exact
    /// moments matter, it must have ended before the worker begins.
    void play_loaded(int id) {
        ASSERT_NO_FATAL_FAILURE(hold_idle_worker());
        ASSERT_TRUE(engine().play_playlist(id));
        ASSERT_TRUE(wait_until_loaded(id));
        VirtualClock::hold_sleeps(false);
    }
    [[nodiscard]] bool wait_until_loaded(int id) {
        return eventually([=, this] { return RepeaterAccess::loader_done(*engine_, id); });
    }
    /// Waits until the worker is seen turning in its wait for a due time. While time stands it then stays
    /// there until time is advanced: not even its end takes it out. Any thread.
    [[nodiscard]] static bool worker_is_waiting() {
        const long long turns = VirtualClock::turns();
        return eventually([turns] { return VirtualClock::turns() > turns + 10; });
    }
    /// What was sent for one universe.
    [[nodiscard]] static std::vector<SentDatagram> sent_to(int universe) {
        std::vector<SentDatagram> all = FakeUdpSocket::sent();
        std::erase_if(all, [universe](const SentDatagram& sent) { return sent.universe() != universe; });
        return all;
    }
    /// Waits until `count` datagrams for `universe` have gone out that were not there before the call.
    [[nodiscard]] bool wait_for_more(int universe, std::size_t count = 1) {
        const std::size_t before = sent_to(universe).size();
        return eventually([=] { return sent_to(universe).size() >= before + count; });
    }
    [[nodiscard]] static SentDatagram last_sent(int universe) {
        const std::vector<SentDatagram> all = sent_to(universe);
        return all.at(all.size() - 1);
    }

    /// A playlist that shows `levels` on one universe at 192.0.2.1 for ever, a frame each 40 ms.
    ShowPlaylist steady(int id, int universe, const std::vector<std::uint8_t>& levels) {
        const std::string path = "steady" + std::to_string(id) + ".rec";
        show.recording(path, Recording{}.dmx(universe, levels).bytes());
        return ShowPlaylist(id).effect(
            ShowEffect(path).fps(25).ppf(1).output(std::to_string(universe) + ":192.0.2.1:6454"));
    }

    ShowDirectory show;

private:
    int argc_ = 1;
    char name_[7] = "engine";
    char* argv_[2] = {name_, nullptr};
    QCoreApplication application_{argc_, argv_};
    std::optional<CapturedLog> log_;
    std::unique_ptr<Repeater> engine_;
};
