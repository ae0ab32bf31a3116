#include "ondra/thread_name.h"

#include <array>
#include <string>
#include <thread>

#include <pthread.h>

#include <gtest/gtest.h>

namespace {

std::string name_given_as(const char* name) {
    std::array<char, 16> text{};
    std::thread([&] {
        ondra::name_this_thread(name);
        pthread_getname_np(pthread_self(), text.data(), text.size());
    }).join();
    return text.data();
}

}  // namespace

TEST(ThreadNameTest, ANameIsShownAsItIs) {
    EXPECT_EQ(name_given_as("cue-render"), "cue-render");
}

TEST(ThreadNameTest, ALongNameIsCutTo15Characters) {
    EXPECT_EQ(name_given_as("a-very-long-thread-name"), "a-very-long-thr");
}
