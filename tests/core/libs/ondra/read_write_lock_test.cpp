#include "ondra/read_write_lock.h"

#include <atomic>
#include <functional>
#include <mutex>
#include <thread>
#include <type_traits>
#include <vector>

#include <sched.h>

#include <gtest/gtest.h>

#include "support/eventually.h"

namespace {

/// Where the current thread counts its yields; none when null.
thread_local std::atomic<int>* yield_counter = nullptr;

}  // namespace

extern "C" {
int __real_sched_yield();
int __wrap_sched_yield();

int __wrap_sched_yield() {
    if (yield_counter != nullptr) {
        ++*yield_counter;
    }
    return __real_sched_yield();
}
}

namespace {

using ondra::ReadWriteLock;

static_assert(static_cast<int>(ReadWriteLock::Type::Reader) == 0);
static_assert(static_cast<int>(ReadWriteLock::Type::Writer) == 1);
static_assert(!std::is_copy_constructible_v<ReadWriteLock> && !std::is_move_constructible_v<ReadWriteLock>);
static_assert(!std::is_copy_assignable_v<ReadWriteLock> && !std::is_move_assignable_v<ReadWriteLock>);
using ReaderHandle = ReadWriteLock::Lock<ReadWriteLock::Type::Reader>;
static_assert(!std::is_copy_constructible_v<ReaderHandle> && !std::is_move_constructible_v<ReaderHandle>);
static_assert(!std::is_copy_constructible_v<ondra::ReaderGuard> &&
              !std::is_copy_constructible_v<ondra::WriterGuard>);

/// A thread that takes the lock in some way and lets it go when told to.
class Contender {
public:
    explicit Contender(std::function<void()> take, std::function<void()> release)
        : thread_([this, take = std::move(take), release = std::move(release)] {
              yield_counter = &yields_;
              take();
              inside_ = true;
              while (!leave_) {
                  std::this_thread::yield();
              }
              inside_ = false;
              release();
              yield_counter = nullptr;
          }) {}
    ~Contender() { leave(); }
    Contender(const Contender&) = delete;
    Contender& operator=(const Contender&) = delete;

    static Contender reader(ReadWriteLock& lock) {
        return Contender([&lock] { lock.reader()->lock(); }, [&lock] { lock.reader()->unlock(); });
    }
    static Contender writer(ReadWriteLock& lock) {
        return Contender([&lock] { lock.writer()->lock(); }, [&lock] { lock.writer()->unlock(); });
    }

    [[nodiscard]] bool inside() const { return inside_; }

    /// True once it holds the lock.
    [[nodiscard]] bool gets_in() const {
        return eventually([this] { return inside(); });
    }

    /// True when it has been spinning for the lock, many times, and does not hold it.
    [[nodiscard]] bool is_held_back() const {
        const int before = yields_;
        return eventually([this, before] { return yields_ - before >= 50; }) && !inside();
    }

    /// Lets the lock go and waits for the thread's end.
    void leave() {
        leave_ = true;
        if (thread_.joinable()) {
            thread_.join();
        }
    }

private:
    std::atomic<bool> inside_{false};
    std::atomic<bool> leave_{false};
    std::atomic<int> yields_{0};
    std::thread thread_;
};

TEST(ReadWriteLockTest, ReadersShare) {
    ReadWriteLock lock;
    Contender first = Contender::reader(lock);
    Contender second = Contender::reader(lock);
    EXPECT_TRUE(first.gets_in());
    EXPECT_TRUE(second.gets_in());
}

TEST(ReadWriteLockTest, WriterWaitsForEveryReader) {
    ReadWriteLock lock;
    Contender first = Contender::reader(lock);
    Contender second = Contender::reader(lock);
    ASSERT_TRUE(first.gets_in());
    ASSERT_TRUE(second.gets_in());
    Contender writer = Contender::writer(lock);
    EXPECT_TRUE(writer.is_held_back());
    first.leave();
    EXPECT_TRUE(writer.is_held_back());
    second.leave();
    EXPECT_TRUE(writer.gets_in());
}

TEST(ReadWriteLockTest, ReaderThatArrivesBehindAWaitingWriterIsHeldBackUntilTheWriterHasFinished) {
    ReadWriteLock lock;
    Contender first = Contender::reader(lock);
    ASSERT_TRUE(first.gets_in());
    Contender writer = Contender::writer(lock);
    ASSERT_TRUE(writer.is_held_back());
    Contender second = Contender::reader(lock);
    EXPECT_TRUE(second.is_held_back());
    first.leave();
    EXPECT_TRUE(writer.gets_in());
    EXPECT_TRUE(second.is_held_back());
    writer.leave();
    EXPECT_TRUE(second.gets_in());
}

TEST(ReadWriteLockTest, SecondWriterSpinsUntilTheFirstHasFinished) {
    ReadWriteLock lock;
    Contender first = Contender::writer(lock);
    ASSERT_TRUE(first.gets_in());
    Contender second = Contender::writer(lock);
    EXPECT_TRUE(second.is_held_back());
    first.leave();
    EXPECT_TRUE(second.gets_in());
}

TEST(ReadWriteLockTest, UncontendedLockNeverYields) {
    ReadWriteLock lock;
    std::atomic<int> yields{0};
    yield_counter = &yields;
    for (int i = 0; i < 1000; ++i) {
        const ondra::WriterGuard guard{lock};
    }
    for (int i = 0; i < 1000; ++i) {
        const ondra::ReaderGuard guard{lock};
    }
    yield_counter = nullptr;
    EXPECT_EQ(yields, 0);
}

TEST(ReadWriteLockTest, HandlesWorkWithStandardGuards) {
    ReadWriteLock lock;
    Contender writer = [&lock] {
        const std::lock_guard first(*lock.reader());
        const std::lock_guard second(*lock.reader());
        return Contender::writer(lock);
    }();
    EXPECT_TRUE(writer.gets_in());
    Contender reader = Contender::reader(lock);
    EXPECT_TRUE(reader.is_held_back());
    writer.leave();
    EXPECT_TRUE(reader.gets_in());
    reader.leave();
    { const std::lock_guard guard(*lock.writer()); }
    Contender last = Contender::writer(lock);
    EXPECT_TRUE(last.gets_in());
}

TEST(ReadWriteLockTest, ResolveWithoutAWriterReturnsAtOnceAndKeepsTheLock) {
    ReadWriteLock lock;
    std::atomic<int> yields{0};
    yield_counter = &yields;
    lock.lock_as_reader();
    lock.resolve_pending_write();
    yield_counter = nullptr;
    EXPECT_EQ(yields, 0);
    Contender writer = Contender::writer(lock);
    EXPECT_TRUE(writer.is_held_back());
    lock.unlock_as_reader();
    EXPECT_TRUE(writer.gets_in());
}

TEST(ReadWriteLockTest, ResolveLetsAWaitingWriterInAndHoldsTheLockAgain) {
    ReadWriteLock lock;
    int written = 0;
    lock.lock_as_reader();
    std::atomic<int> yields{0};
    std::thread writer([&] {
        yield_counter = &yields;
        lock.lock_as_writer();
        written = 1;
        lock.unlock_as_writer();
        yield_counter = nullptr;
    });
    EXPECT_TRUE(eventually([&yields] { return yields > 0; }));
    EXPECT_EQ(written, 0);
    lock.resolve_pending_write();
    EXPECT_EQ(written, 1);
    writer.join();
    Contender next = Contender::writer(lock);
    EXPECT_TRUE(next.is_held_back());
    lock.unlock_as_reader();
    EXPECT_TRUE(next.gets_in());
}

TEST(ReadWriteLockTest, WritersExcludeEachOtherAndAllReaders) {
    constexpr int kRounds = 3000;
    constexpr int kWriters = 2;
    ReadWriteLock lock;
    // Plain on purpose: the thread sanitizer sees a race if the lock does not order the accesses.
    int left = 0;
    int right = 0;
    std::atomic<int> torn{0};
    std::atomic<int> writing{kWriters};
    std::vector<std::thread> threads;
    for (int i = 0; i < kWriters; ++i) {
        threads.emplace_back([&] {
            for (int round = 0; round < kRounds; ++round) {
                const ondra::WriterGuard guard{lock};
                ++left;
                ++right;
            }
            --writing;
        });
    }
    for (int i = 0; i < 2; ++i) {
        threads.emplace_back([&] {
            while (writing > 0) {
                const ondra::ReaderGuard guard{lock};
                torn += left != right ? 1 : 0;
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(torn, 0);
    EXPECT_EQ(left, kWriters * kRounds);
}

TEST(ReadWriteLockTest, LongReaderAndWritersTakeTurnsWithoutTearing) {
    constexpr int kRounds = 1000;
    constexpr int kWriters = 2;
    ReadWriteLock lock;
    int left = 0;
    int right = 0;
    int torn = 0;
    std::atomic<int> writing{kWriters};
    std::thread reader([&] {
        const ondra::ReaderGuard guard{lock};
        while (writing > 0) {
            torn += left != right ? 1 : 0;
            lock.resolve_pending_write();
        }
    });
    std::vector<std::thread> writers;
    for (int i = 0; i < kWriters; ++i) {
        writers.emplace_back([&] {
            for (int round = 0; round < kRounds; ++round) {
                const ondra::WriterGuard guard{lock};
                ++left;
                ++right;
            }
            --writing;
        });
    }
    for (std::thread& writer : writers) {
        writer.join();
    }
    reader.join();
    EXPECT_EQ(torn, 0);
    EXPECT_EQ(left, kWriters * kRounds);
}

}  // namespace
