#pragma once
// Writes frames on a thread of its own, so that a slow disk does not keep the socket waiting.

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <exception>
#include <mutex>
#include <thread>
#include <vector>

#include "frame_encoder.h"
#include "posix/file_descriptor.h"
#include "recording_file.h"

namespace recording {

/**
 * Owns the writer thread. It sleeps on a condition without a bound; a frame or finish() ends that. A call of
 * the disk may take as long as it likes.
 *
 * The thread writes all frames that wait and then brings them to the disk at once: a disk that keeps up gets
 * every frame for itself, a slow one several together. The file is borrowed, outlives this object, and is
 * the thread's alone until finish() has returned.
 */
class FrameWriter {
public:
    /// Frames that may wait or be in writing, in bytes; a disk that stays behind by more has failed.
    static constexpr std::size_t kMostBehind = std::size_t{256} * 1024 * 1024;

    /// @param sync_period  shortest time between two times that data are brought to the disk
    FrameWriter(RecordingFile& file, std::chrono::nanoseconds sync_period,
                std::size_t most_behind = kMostBehind);
    /// Writes what waits and joins.
    ~FrameWriter();
    FrameWriter(const FrameWriter&) = delete;
    FrameWriter& operator=(const FrameWriter&) = delete;

    /// Hands over a frame. Main thread. Takes mutex_.
    void push(EncodedFrame frame);
    /// Writes what waits, joins the thread and throws what went wrong, at any time. Main thread.
    void finish();

    /// Frames in the file.
    struct Written {
        std::uint64_t frames = 0;
        /// What the loader makes of them.
        std::chrono::nanoseconds duration{0};
    };
    /// Once finish() has returned or thrown. Main thread.
    [[nodiscard]] const Written& written() const noexcept { return written_; }

    /// Readable once something has gone wrong; nothing is written from then on.
    [[nodiscard]] int failure_descriptor() const noexcept { return failed_.get(); }

private:
    using Clock = std::chrono::steady_clock;

    void run() noexcept;
    void write_until_finished();
    /// Takes a frame that is written off what the disk is behind by. Takes mutex_.
    void note_written(std::size_t bytes);
    void join();
    void report(std::exception_ptr failure) noexcept;

    RecordingFile& file_;
    std::chrono::nanoseconds sync_period_;
    std::size_t most_behind_;
    posix::FileDescriptor failed_;
    std::mutex mutex_;
    std::condition_variable changed_;
    /// Guarded by `mutex_`, as the three below.
    std::deque<EncodedFrame> waiting_;
    /// Of the frames that wait and of those that the thread has taken and not yet written.
    std::size_t behind_ = 0;
    bool finishing_ = false;
    std::exception_ptr failure_;
    /// The thread's alone until it is joined.
    Written written_;
    std::thread thread_;
};

}  // namespace recording
