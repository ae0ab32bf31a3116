#pragma once
// A spinning reader-writer lock with writer preference, and its scoped guards.

#include <atomic>
#include <cstdint>

#include "ondra/thread_annotations.h"

struct ReadWriteLockAccess;

namespace ondra {

/**
 * Reader-writer lock for short critical sections and few threads.
 *
 * Waiting yields the processor and never blocks in the kernel. A writer announces itself before it waits,
 * and arriving readers withdraw, so it waits only for the readers already inside. Not recursive; misuse is
 * not detected. Any thread.
 */
class ONDRA_CAPABILITY("ReadWriteLock") ReadWriteLock final {
public:
    enum class Type { Reader = 0, Writer = 1 };

    /// A handle with lock() and unlock(), for scoped guards that want such an object.
    template <Type type>
    class Lock final {
    public:
        explicit Lock(ReadWriteLock* lock) : lock_(lock) {}
        Lock(const Lock&) = delete;
        Lock& operator=(const Lock&) = delete;
        void lock() ONDRA_NO_THREAD_SAFETY_ANALYSIS {
            if constexpr (type == Type::Reader) {
                lock_->lock_as_reader();
            } else {
                lock_->lock_as_writer();
            }
        }
        void unlock() ONDRA_NO_THREAD_SAFETY_ANALYSIS {
            if constexpr (type == Type::Reader) {
                lock_->unlock_as_reader();
            } else {
                lock_->unlock_as_writer();
            }
        }

    private:
        ReadWriteLock* lock_;
    };

    ReadWriteLock() = default;
    ReadWriteLock(const ReadWriteLock&) = delete;
    ReadWriteLock& operator=(const ReadWriteLock&) = delete;

    Lock<Type::Reader>* reader() { return &reader_lock_; }
    Lock<Type::Writer>* writer() { return &writer_lock_; }

    void lock_as_reader() ONDRA_ACQUIRE_SHARED();
    void unlock_as_reader() ONDRA_RELEASE_SHARED();
    void lock_as_writer() ONDRA_ACQUIRE();
    void unlock_as_writer() ONDRA_RELEASE();

    /// Lets a waiting writer in, and returns with the lock held as reader again. For a long-running reader.
    void resolve_pending_write() ONDRA_REQUIRES_SHARED(this);

private:
    friend struct ::ReadWriteLockAccess;  // test support

    /// Set while a writer holds the lock or waits for the readers to leave.
    std::atomic<bool> writer_flag_{false};
    /// Readers that hold the lock now.
    std::atomic<std::uint32_t> readers_{0};
    Lock<Type::Reader> reader_lock_{this};
    Lock<Type::Writer> writer_lock_{this};
};

/// Holds a ReadWriteLock as reader for a scope.
class ONDRA_SCOPED_CAPABILITY ReaderGuard final {
public:
    explicit ReaderGuard(ReadWriteLock& lock) ONDRA_ACQUIRE_SHARED(lock) : lock_(lock) {
        lock_.lock_as_reader();
    }
    ~ReaderGuard() ONDRA_RELEASE_GENERIC() { lock_.unlock_as_reader(); }
    ReaderGuard(const ReaderGuard&) = delete;
    ReaderGuard& operator=(const ReaderGuard&) = delete;

private:
    ReadWriteLock& lock_;
};

/// Holds a ReadWriteLock as writer for a scope.
class ONDRA_SCOPED_CAPABILITY WriterGuard final {
public:
    explicit WriterGuard(ReadWriteLock& lock) ONDRA_ACQUIRE(lock) : lock_(lock) { lock_.lock_as_writer(); }
    ~WriterGuard() ONDRA_RELEASE() { lock_.unlock_as_writer(); }
    WriterGuard(const WriterGuard&) = delete;
    WriterGuard& operator=(const WriterGuard&) = delete;

private:
    ReadWriteLock& lock_;
};

}  // namespace ondra
