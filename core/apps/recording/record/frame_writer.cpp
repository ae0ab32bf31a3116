#include "frame_writer.h"

#include <cerrno>
#include <system_error>
#include <utility>

#include <pthread.h>
#include <sys/eventfd.h>

#include "artnet/recording_timing.h"
#include "cli/failure.h"

namespace recording {

FrameWriter::FrameWriter(RecordingFile& file, std::chrono::nanoseconds sync_period, std::size_t most_behind)
    : file_(file),
      sync_period_(sync_period),
      most_behind_(most_behind),
      failed_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
    if (!failed_) {
        throw std::system_error(errno, std::generic_category(), "eventfd");
    }
    thread_ = std::thread(&FrameWriter::run, this);
    pthread_setname_np(thread_.native_handle(), "writer");
}

FrameWriter::~FrameWriter() {
    join();
}

void FrameWriter::push(EncodedFrame frame) {
    const std::scoped_lock guard(mutex_);
    if (failure_) {
        return;
    }
    if (behind_ + frame.bytes.size() > most_behind_) {
        report(std::make_exception_ptr(
            cli::Failure(file_.path() + ": the disk does not keep up; it was behind by " +
                         std::to_string(behind_) + " bytes, and the recording ends early")));
        return;
    }
    behind_ += frame.bytes.size();
    waiting_.push_back(std::move(frame));
    changed_.notify_one();
}

void FrameWriter::finish() {
    join();
    if (failure_) {
        std::rethrow_exception(failure_);
    }
}

void FrameWriter::join() {
    if (!thread_.joinable()) {
        return;
    }
    {
        const std::scoped_lock guard(mutex_);
        finishing_ = true;
    }
    changed_.notify_one();
    thread_.join();
}

void FrameWriter::run() noexcept {
    try {
        write_until_finished();
    } catch (...) {
        const std::scoped_lock guard(mutex_);
        report(std::current_exception());
    }
}

void FrameWriter::write_until_finished() {
    Clock::time_point next_sync = Clock::now();
    bool unsynced = false;
    while (true) {
        std::deque<EncodedFrame> frames;
        bool last = false;
        {
            std::unique_lock guard(mutex_);
            const auto something = [this] { return finishing_ || failure_ || !waiting_.empty(); };
            if (unsynced) {
                changed_.wait_until(guard, next_sync, something);
            } else {
                changed_.wait(guard, something);
            }
            // What has been written is to be kept, also when no more can be.
            last = finishing_ || failure_;
            frames.swap(waiting_);
        }
        for (; !frames.empty(); frames.pop_front()) {
            const EncodedFrame& frame = frames.front();
            file_.append(frame.bytes);
            ++written_.frames;
            // Whatever its timing packet says: as long as nothing follows, it is the last.
            written_.duration = frame.begin + kLastFrameTime;
            note_written(frame.bytes.size());
            unsynced = true;
        }
        if (last) {
            file_.finish();
            return;
        }
        if (unsynced && Clock::now() >= next_sync) {
            file_.sync();
            unsynced = false;
            next_sync = Clock::now() + sync_period_;
        }
    }
}

void FrameWriter::note_written(std::size_t bytes) {
    const std::scoped_lock guard(mutex_);
    behind_ -= bytes;
}

void FrameWriter::report(std::exception_ptr failure) noexcept {
    if (!failure_) {
        failure_ = std::move(failure);
        eventfd_write(failed_.get(), 1);
    }
    // Nothing is pushed any more, so that behind_ is done with.
    waiting_.clear();
    changed_.notify_one();
}

}  // namespace recording
