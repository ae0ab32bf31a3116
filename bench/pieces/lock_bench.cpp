// The read-write lock: alone, and with one reader and one writer.

#include <benchmark/benchmark.h>

#include "ondra/read_write_lock.h"

namespace {

void LockUncontendedReader(benchmark::State& state) {
    ondra::ReadWriteLock lock;
    for (auto _ : state) {
        const ondra::ReaderGuard guard{lock};
        benchmark::ClobberMemory();
    }
}
BENCHMARK(LockUncontendedReader);

void LockUncontendedWriter(benchmark::State& state) {
    ondra::ReadWriteLock lock;
    for (auto _ : state) {
        const ondra::WriterGuard guard{lock};
        benchmark::ClobberMemory();
    }
}
BENCHMARK(LockUncontendedWriter);

/// Thread 0 writes, thread 1 reads.
void LockReaderAndWriter(benchmark::State& state) {
    static ondra::ReadWriteLock lock;
    static long value = 0;
    for (auto _ : state) {
        if (state.thread_index() == 0) {
            const ondra::WriterGuard guard{lock};
            ++value;
        } else {
            const ondra::ReaderGuard guard{lock};
            benchmark::DoNotOptimize(value);
        }
    }
}
BENCHMARK(LockReaderAndWriter)->Threads(2)->UseRealTime();

void LockResolveWithoutWriter(benchmark::State& state) {
    ondra::ReadWriteLock lock;
    const ondra::ReaderGuard guard{lock};
    for (auto _ : state) {
        lock.resolve_pending_write();
        benchmark::ClobberMemory();
    }
}
BENCHMARK(LockResolveWithoutWriter);

}  // namespace
