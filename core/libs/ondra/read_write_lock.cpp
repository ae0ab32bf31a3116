#include "ondra/read_write_lock.h"

#include <sched.h>

// The lock is made here of two atomics, which the analysis of its users cannot see into.
// All operations are sequentially consistent: a reader registers and then looks at the flag, a writer
// raises the flag and then looks at the readers, and one of the two must see the other.

namespace ondra {

ONDRA_NO_THREAD_SAFETY_ANALYSIS void ReadWriteLock::lock_as_reader() {
    for (;;) {
        std::uint32_t seen = readers_.load();
        if (!readers_.compare_exchange_weak(seen, seen + 1)) {
            continue;
        }
        if (!writer_flag_.load()) {
            return;
        }
        // A writer came first: withdraw, so that it waits only for the readers already inside.
        readers_.fetch_sub(1);
        while (writer_flag_.load()) {
            sched_yield();
        }
    }
}

ONDRA_NO_THREAD_SAFETY_ANALYSIS void ReadWriteLock::unlock_as_reader() {
    readers_.fetch_sub(1);
}

ONDRA_NO_THREAD_SAFETY_ANALYSIS void ReadWriteLock::lock_as_writer() {
    for (;;) {
        bool taken = writer_flag_.load();
        if (!writer_flag_.compare_exchange_weak(taken, true)) {
            continue;
        }
        if (!taken) {
            break;
        }
        sched_yield();
    }
    while (readers_.load() != 0) {
        sched_yield();
    }
}

ONDRA_NO_THREAD_SAFETY_ANALYSIS void ReadWriteLock::unlock_as_writer() {
    writer_flag_.store(false);
}

ONDRA_NO_THREAD_SAFETY_ANALYSIS void ReadWriteLock::resolve_pending_write() {
    if (!writer_flag_.load()) {
        return;
    }
    unlock_as_reader();
    while (writer_flag_.load()) {
        sched_yield();
    }
    lock_as_reader();
}

}  // namespace ondra
