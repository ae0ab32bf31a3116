#include "live_recording.h"

#include <cerrno>
#include <chrono>

#include <fcntl.h>
#include <unistd.h>

namespace stress {

namespace {

constexpr std::chrono::milliseconds kInterval{1};

/// Some more than the 50 ms that playback begins after, in frames of 2 ms.
constexpr int kFirstFrames = 40;

/// False when nobody reads any more. What a full pipe does not take is left out.
bool put(int pipe, const std::vector<std::uint8_t>& bytes) {
    return write(pipe, bytes.data(), bytes.size()) >= 0 || errno == EAGAIN;
}

}  // namespace

LiveRecording::LiveRecording(const std::string& path, const std::vector<std::uint8_t>& frame)
    : path_(path), frame_(frame), fifo_(path), thread_([this] { feed(); }) {}

LiveRecording::~LiveRecording() {
    stopping_.store(true);
    thread_.join();
}

void LiveRecording::feed() {
    while (!stopping_.load()) {
        const int pipe = open(path_.c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC);
        bool read = pipe != -1;
        for (int i = 0; i < kFirstFrames && read; ++i) {
            read = put(pipe, frame_);
        }
        while (read && !stopping_.load()) {
            std::this_thread::sleep_for(kInterval);
            read = put(pipe, frame_);
        }
        if (pipe != -1) {
            close(pipe);
        }
        std::this_thread::sleep_for(kInterval);
    }
}

}  // namespace stress
