// Log lines between threads, in bounded memory.
#include "log_queue.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>

namespace {

using forwarder::LogQueue;
using testing::ElementsAre;
using testing::IsEmpty;

bool readable(const LogQueue& queue) {
    pollfd wait{queue.descriptor(), POLLIN, 0};
    return poll(&wait, 1, 0) == 1;
}

TEST(LogQueueTest, LinesComeOutOnceAndInOrder) {
    LogQueue queue;
    EXPECT_FALSE(readable(queue));
    queue.push("one");
    queue.push("two");
    EXPECT_TRUE(readable(queue));
    EXPECT_THAT(queue.take(), ElementsAre("one", "two"));
    EXPECT_FALSE(readable(queue));
    EXPECT_THAT(queue.take(), IsEmpty());
}

TEST(LogQueueTest, FullQueueDropsAndSaysSo) {
    LogQueue queue;
    for (std::size_t i = 0; i < LogQueue::kMostLines + 3; ++i) {
        queue.push("line");
    }
    const std::vector<std::string> lines = queue.take();
    ASSERT_EQ(lines.size(), LogQueue::kMostLines + 1);
    EXPECT_EQ(lines.back(), "3 lines dropped");
    queue.push("after");
    EXPECT_THAT(queue.take(), ElementsAre("after"));
}

}  // namespace
