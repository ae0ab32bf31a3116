#pragma once
// What a thread changes while it holds a read-write lock as writer, for tests that link it over the lock.

#include <functional>
#include <iosfwd>
#include <string>
#include <vector>

#include "ondra/read_write_lock.h"

/**
 * One hold of the lock: what was seen right after it was taken and right before it was given back.
 *
 * A change made without the lock shows in neither, and one made before or after the hold shows as no change.
 */
struct WriterHold {
    /// Shows what the lock guards. Called with the lock held.
    using Look = std::function<std::string()>;

    std::string taken;
    std::string released;

    bool operator==(const WriterHold&) const = default;

    /// The holds of `lock` by this thread while `call` runs, in order.
    static std::vector<WriterHold> during(const ondra::ReadWriteLock& lock, const Look& look,
                                          const std::function<void()>& call);
};

/// For the messages of failing tests.
std::ostream& operator<<(std::ostream& out, const WriterHold& hold);
