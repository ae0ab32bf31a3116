#include "support/writer_holds.h"

#include <ostream>

namespace {

using ondra::ReadWriteLock;

/// What the thread watches; null for most.
struct Watch {
    const ReadWriteLock* lock;
    const WriterHold::Look& look;
    std::vector<WriterHold> holds;
};
thread_local Watch* watch = nullptr;

}  // namespace

std::vector<WriterHold> WriterHold::during(const ReadWriteLock& lock, const Look& look,
                                           const std::function<void()>& call) {
    Watch own{&lock, look, {}};
    watch = &own;
    call();
    watch = nullptr;
    return own.holds;
}

std::ostream& operator<<(std::ostream& out, const WriterHold& hold) {
    return out << "\"" << hold.taken << "\" -> \"" << hold.released << "\"";
}

// What the linker puts in the place of the lock's own functions (--wrap).

void real_lock_as_writer(ReadWriteLock* lock) __asm__("__real__ZN5ondra13ReadWriteLock14lock_as_writerEv");
void watched_lock_as_writer(ReadWriteLock* lock) __asm__("__wrap__ZN5ondra13ReadWriteLock14lock_as_writerEv");
void watched_lock_as_writer(ReadWriteLock* lock) {
    real_lock_as_writer(lock);
    if (watch != nullptr && watch->lock == lock) {
        watch->holds.push_back({watch->look(), "never released"});
    }
}

void real_unlock_as_writer(ReadWriteLock* lock) __asm__(
    "__real__ZN5ondra13ReadWriteLock16unlock_as_writerEv");
void watched_unlock_as_writer(ReadWriteLock* lock) __asm__(
    "__wrap__ZN5ondra13ReadWriteLock16unlock_as_writerEv");
void watched_unlock_as_writer(ReadWriteLock* lock) {
    if (watch != nullptr && watch->lock == lock) {
        watch->holds.back().released = watch->look();
    }
    real_unlock_as_writer(lock);
}
