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
    // Stays open once there has been a reader: closed behind one, it might end the input of the next, who
    // has come in that moment. What the first one has left of a frame is skipped by the other.
    int pipe = -1;
    bool read = false;
    while (!stopping_.load()) {
        if (pipe == -1) {
            pipe = open(path_.c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC);
        }
        const int frames = read ? 1 : kFirstFrames;
        read = pipe != -1;
        for (int i = 0; i < frames && read; ++i) {
            read = put(pipe, frame_);
        }
        std::this_thread::sleep_for(kInterval);
    }
    if (pipe != -1) {
        close(pipe);
    }
}

}  // namespace stress
