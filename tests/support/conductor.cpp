#include "support/conductor.h"

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <utility>

#include "ondra/read_write_lock.h"

namespace {

std::mutex mutex;
/// Both guarded by mutex.
Conductor::Condition halt_condition;
bool halted = false;
/// Tells of changes of halted.
std::condition_variable changed;
std::atomic<long long> cycle_count{0};

}  // namespace

void Conductor::reset() {
    let_go();
    cycle_count.store(0);
}

void Conductor::halt_when(Condition condition) {
    const std::lock_guard guard{mutex};
    halt_condition = std::move(condition);
}

bool Conductor::wait_for_halt() {
    constexpr std::chrono::seconds kDeadline{60};
    std::unique_lock guard{mutex};
    return changed.wait_for(guard, kDeadline, [] { return halted; });
}

void Conductor::go_on_until(Condition condition) {
    const std::lock_guard guard{mutex};
    halt_condition = std::move(condition);
    halted = false;
    changed.notify_all();
}

void Conductor::let_go() {
    go_on_until(nullptr);
}

long long Conductor::cycles() {
    return cycle_count.load();
}

// What the linker puts in the place of ReadWriteLock::resolve_pending_write() (--wrap).

void real_resolve_pending_write(ondra::ReadWriteLock* lock) __asm__(
    "__real__ZN5ondra13ReadWriteLock21resolve_pending_writeEv");
void conducted_resolve_pending_write(ondra::ReadWriteLock* lock) __asm__(
    "__wrap__ZN5ondra13ReadWriteLock21resolve_pending_writeEv");
ONDRA_NO_THREAD_SAFETY_ANALYSIS void conducted_resolve_pending_write(ondra::ReadWriteLock* lock) {
    cycle_count.fetch_add(1);
    real_resolve_pending_write(lock);
    std::unique_lock guard{mutex};
    if (!halt_condition || !halt_condition()) {
        return;
    }
    halt_condition = nullptr;
    halted = true;
    changed.notify_all();
    // Outside the engine's lock, as while idle, so that calls get it at once and nobody spins.
    lock->unlock_as_reader();
    changed.wait(guard, [] { return !halted; });
    guard.unlock();
    lock->lock_as_reader();
}
