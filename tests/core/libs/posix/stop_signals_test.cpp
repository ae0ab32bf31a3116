// Signals as something to read, and descriptors that close themselves. The signals stay blocked afterwards.
#include "posix/stop_signals.h"

#include <array>
#include <cerrno>
#include <csignal>
#include <optional>
#include <utility>

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "posix/file_descriptor.h"

using namespace std::chrono_literals;

namespace {

bool is_open(int descriptor) {
    return fcntl(descriptor, F_GETFD) != -1;
}

bool is_readable(int descriptor) {
    pollfd wait{descriptor, POLLIN, 0};
    return poll(&wait, 1, 0) == 1;
}

}  // namespace

TEST(StopSignalsTest, TheSignalsThatEndAProgramAreTakenOnceAndDoNotEndIt) {
    // nohup has it ignored, and what starts this test may run under it.
    std::signal(SIGHUP, SIG_DFL);
    posix::StopSignals signals;
    EXPECT_EQ(signals.take(), std::nullopt);
    EXPECT_EQ(signals.wait_for(0ms), std::nullopt);
    for (const int number : {SIGTERM, SIGINT, SIGHUP}) {
        EXPECT_FALSE(is_readable(signals.descriptor()));
        std::raise(number);
        EXPECT_TRUE(is_readable(signals.descriptor()));
        EXPECT_EQ(signals.wait_for(60s), number);
        EXPECT_EQ(signals.take(), std::nullopt);
    }
}

TEST(StopSignalsTest, AHangupThatIsIgnoredStaysIgnored) {
    std::signal(SIGHUP, SIG_IGN);
    posix::StopSignals signals;
    std::raise(SIGHUP);
    EXPECT_EQ(signals.take(), std::nullopt);
    std::signal(SIGHUP, SIG_DFL);
    // It has taken nothing from the others.
    std::raise(SIGTERM);
    EXPECT_EQ(signals.take(), SIGTERM);
}

TEST(StopSignalsTest, AReaderThatGoesAwayIsAnErrorOfTheWrite) {
    const posix::StopSignals signals;
    std::array<int, 2> ends{};
    ASSERT_EQ(pipe(ends.data()), 0);
    const posix::FileDescriptor write_end(ends[1]);
    close(ends[0]);
    EXPECT_EQ(write(write_end.get(), "x", 1), -1);
    EXPECT_EQ(errno, EPIPE);
}

TEST(FileDescriptorTest, ClosesWhatItOwnsOnce) {
    const int descriptor = open("/dev/null", O_RDONLY | O_CLOEXEC);
    ASSERT_GE(descriptor, 0);
    {
        const posix::FileDescriptor owner(descriptor);
        EXPECT_TRUE(owner);
        EXPECT_TRUE(is_open(descriptor));
    }
    EXPECT_FALSE(is_open(descriptor));
}

TEST(FileDescriptorTest, MovingHandsOverAndAssignmentClosesWhatWasHeld) {
    posix::FileDescriptor first(open("/dev/null", O_RDONLY | O_CLOEXEC));
    posix::FileDescriptor second(open("/dev/null", O_RDONLY | O_CLOEXEC));
    const int kept = first.get();
    const int closed = second.get();
    second = std::move(first);
    EXPECT_EQ(second.get(), kept);
    EXPECT_FALSE(first);  // NOLINT(bugprone-use-after-move): empty is what it is to be
    EXPECT_TRUE(is_open(kept));
    EXPECT_FALSE(is_open(closed));
    const posix::FileDescriptor third(std::move(second));
    EXPECT_EQ(third.get(), kept);
    EXPECT_FALSE(posix::FileDescriptor());
}
