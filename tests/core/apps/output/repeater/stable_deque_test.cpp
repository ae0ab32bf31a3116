// The packet store: nothing in it moves, and a reader without a lock sees whole elements.

#include "stable_deque.h"

#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

namespace {

TEST(StableDequeTest, ANewStoreIsEmpty) {
    const StableDeque<int> store;
    EXPECT_EQ(store.size(), 0);
}

TEST(StableDequeTest, ElementsKeepTheirOrderAcrossBlocks) {
    StableDeque<int> store;
    for (int value = 0; value < 5000; ++value) {
        store.push_back(value);
    }
    ASSERT_EQ(store.size(), 5000);
    for (int index = 0; index < 5000; ++index) {
        ASSERT_EQ(store.at(index), index);
    }
}

TEST(StableDequeTest, AnElementStaysWhereItIsWhileOthersAreAppended) {
    StableDeque<std::string> store;
    std::vector<const std::string*> places;
    // 255 to 256 and 767 to 768 are the ends of the first two blocks.
    for (int value = 0; value < 1000; ++value) {
        store.push_back(std::to_string(value));
        places.push_back(&store.at(value));
    }
    for (int value = 0; value < 20000; ++value) {
        store.push_back(std::string("more"));
    }
    for (std::size_t index = 0; index < places.size(); ++index) {
        ASSERT_EQ(&store.at(static_cast<int>(index)), places[index]);
        ASSERT_EQ(*places[index], std::to_string(index));
    }
}

TEST(StableDequeTest, ElementsThatCanOnlyBeMovedAreTaken) {
    StableDeque<std::unique_ptr<int>> store;
    store.push_back(std::make_unique<int>(7));
    EXPECT_EQ(*store.at(0), 7);
}

TEST(StableDequeTest, ClearDestroysEveryElementAndTheStoreCanBeFilledAgain) {
    const auto element = std::make_shared<int>(1);
    StableDeque<std::shared_ptr<int>> store;
    for (int count = 0; count < 1000; ++count) {
        store.push_back(element);
    }
    EXPECT_EQ(element.use_count(), 1001);
    store.clear();
    EXPECT_EQ(element.use_count(), 1);
    EXPECT_EQ(store.size(), 0);
    store.push_back(element);
    ASSERT_EQ(store.size(), 1);
    EXPECT_EQ(store.at(0), element);
}

TEST(StableDequeTest, TheDestructorDestroysEveryElement) {
    const auto element = std::make_shared<int>(1);
    {
        StableDeque<std::shared_ptr<int>> store;
        for (int count = 0; count < 300; ++count) {
            store.push_back(element);
        }
    }
    EXPECT_EQ(element.use_count(), 1);
}

TEST(StableDequeTest, AReaderWithoutALockSeesWholeElementsWhileOthersAreAppended) {
    constexpr int kElements = 20000;
    StableDeque<std::string> store;
    std::thread writer([&store] {
        for (int value = 0; value < kElements; ++value) {
            store.push_back("element number " + std::to_string(value));
        }
    });
    int wrong = 0;
    for (int seen = 0; seen < kElements; seen = store.size()) {
        if (seen > 0 && store.at(seen - 1) != "element number " + std::to_string(seen - 1)) {
            ++wrong;
        }
        if (seen > 0 && store.at(0) != "element number 0") {
            ++wrong;
        }
    }
    writer.join();
    EXPECT_EQ(wrong, 0);
}

}  // namespace
