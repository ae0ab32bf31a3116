// Loads that fail: for want of a thread, which the system refuses, and what becomes of the record.

#include <atomic>
#include <functional>
#include <memory>
#include <system_error>
#include <thread>

#include "support/engine_test.h"

namespace {

std::atomic<bool> no_threads{false};

/// Called, if there is one, before a record's loader is destroyed. Main thread.
std::function<void()> on_record_end;

}  // namespace

// Stands between std::thread and its library (--wrap), to refuse like a system without threads to give.
using State = std::unique_ptr<std::thread::_State>;
void library_start_thread(std::thread* thread, State state, void (*depend)()) __asm__(
    "__real__ZNSt6thread15_M_start_threadESt10unique_ptrINS_6_StateESt14default_deleteIS1_EEPFvvE");
void start_thread(std::thread* thread, State state, void (*depend)()) __asm__(
    "__wrap__ZNSt6thread15_M_start_threadESt10unique_ptrINS_6_StateESt14default_deleteIS1_EEPFvvE");
void start_thread(std::thread* thread, State state, void (*depend)()) {
    if (no_threads.load()) {
        // As the C++ library does it.
        throw std::system_error(std::make_error_code(std::errc::resource_unavailable_try_again));
    }
    library_start_thread(thread, std::move(state), depend);
}

// Stands between a record and the end of its loader, the first of its parts to go (--wrap). Compilers call
// either of the destructor's two names. On 32-bit ARM a destructor gives back its object, elsewhere nobody
// looks at what these give back.
void real_end(PlaylistLoader* loader) __asm__("__real__ZN14PlaylistLoaderD1Ev");
PlaylistLoader* end_complete(PlaylistLoader* loader) __asm__("__wrap__ZN14PlaylistLoaderD1Ev");
PlaylistLoader* end_complete(PlaylistLoader* loader) {
    if (on_record_end) {
        on_record_end();
    }
    real_end(loader);
    return loader;
}
PlaylistLoader* end_base(PlaylistLoader* loader) __asm__("__wrap__ZN14PlaylistLoaderD2Ev");
PlaylistLoader* end_base(PlaylistLoader* loader) {
    return end_complete(loader);
}

namespace {

using RepeaterLoadFailureTest = EngineTest;

TEST_F(RepeaterLoadFailureTest, WithoutAThreadForTheLoaderThePlayIsRefusedWithTheSystemsText) {
    start();
    show.playlist(steady(1, 0, {1}));
    show.playlist(steady(2, 5, {1}));
    ASSERT_TRUE(engine().play_playlist(2));
    no_threads.store(true);
    EXPECT_FALSE(engine().play_playlist(1));
    EXPECT_TRUE(wait_for_more(5, 3)) << "what plays plays on";
    no_threads.store(false);
    EXPECT_TRUE(
        log().has("[Repeater::load_playlist] Failed to load cuelist (err:Resource temporarily unavailable)"));
    EXPECT_TRUE(log().has("[Repeater::play_playlist] Failed to load cuelist"));
    EXPECT_EQ(RepeaterAccess::playlist_ids(engine()), std::vector<int>{2});
    EXPECT_TRUE(engine().play_playlist(1));
}

TEST_F(RepeaterLoadFailureTest, TheReasonIsLoggedBeforeTheRecordGoesAndTheRefusalAfterwards) {
    start();
    const std::string reason =
        "[Repeater::load_playlist] Failed to load cuelist (err:Playlist desc file not found)";
    const std::string refusal = "[Repeater::play_playlist] Failed to load cuelist";
    int ends = 0;
    on_record_end = [&, this] {
        ++ends;
        EXPECT_TRUE(log().has(reason));
        EXPECT_FALSE(log().has(refusal));
    };
    EXPECT_FALSE(engine().play_playlist(5));
    on_record_end = nullptr;
    EXPECT_EQ(ends, 1);
    EXPECT_TRUE(log().has(refusal));
}

}  // namespace
