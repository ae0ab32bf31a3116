// A load that fails for want of a thread: what the system refuses, the engine refuses.

#include <atomic>
#include <memory>
#include <system_error>
#include <thread>

#include "support/engine_test.h"

namespace {

std::atomic<bool> no_threads{false};

}  // namespace

// Stands between std::thread and its library (--wrap), to refuse like a system without threads to give.
using State = std::unique_ptr<std::thread::_State>;
void library_start_thread(std::thread* thread, State state, void (*depend)()) __asm__(
    "__real__ZNSt6thread15_M_start_threadESt10unique_ptrINS_6_StateESt14default_deleteIS1_EEPFvvE");
void start_thread(std::thread* thread, State state, void (*depend)()) __asm__(
    "__wrap__ZNSt6thread15_M_start_threadESt10unique_ptrINS_6_StateESt14default_deleteIS1_EEPFvvE");
void start_thread(std::thread* thread, State state, void (*depend)()) {
    if (no_threads.load()) {
        throw std::system_error(std::make_error_code(std::errc::resource_unavailable_try_again), "no thread");
    }
    library_start_thread(thread, std::move(state), depend);
}

namespace {

using RepeaterLoadFailureTest = EngineTest;

TEST_F(RepeaterLoadFailureTest, WithoutAThreadForTheLoaderThePlayIsRefusedWithTheSystemsText) {
    start();
    show.playlist(steady(1, 0, {1}));
    no_threads.store(true);
    EXPECT_FALSE(engine().play_playlist(1));
    no_threads.store(false);
    EXPECT_TRUE(
        log().has("[Repeater::load_playlist] Failed to load cuelist (err:no thread: Resource temporarily "
                  "unavailable)"));
    EXPECT_TRUE(log().has("[Repeater::play_playlist] Failed to load cuelist"));
    EXPECT_TRUE(RepeaterAccess::playlist_ids(engine()).empty());
    EXPECT_TRUE(engine().play_playlist(1));
}

}  // namespace
