// Every seed of every fuzz target, replayed in this build: in two programs, one for those that read JSON.
#include <algorithm>
#include <set>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "replayed_kind.h"
#include "target.h"

namespace {

class CorpusReplayTest : public testing::TestWithParam<fuzz::Target> {};

std::vector<fuzz::Target> replayed() {
    std::vector<fuzz::Target> targets = fuzz::all_targets();
    std::erase_if(targets,
                  [](const fuzz::Target& target) { return fuzz::reads_json(target.name) != replays_json; });
    return targets;
}

std::string name_of(const testing::TestParamInfo<fuzz::Target>& info) {
    return info.param.name;
}

}  // namespace

TEST_P(CorpusReplayTest, EverySeedIsTakenOrRefusedByTheRules) {
    const fuzz::Target& target = GetParam();
    int past = 0;
    std::set<std::string> names;
    for (const fuzz::Seed& seed : target.seeds()) {
        SCOPED_TRACE(seed.name);
        EXPECT_TRUE(names.insert(seed.name).second) << "two seeds would be one file";
        EXPECT_LE(seed.bytes.size(), target.longest) << "the fuzzer would cut it";
        const std::vector<std::uint8_t> bytes(seed.bytes.begin(), seed.bytes.end());
        past += target.run(bytes) ? 1 : 0;
    }
    EXPECT_GE(names.size(), 10U);
    // Both sides of the first check.
    EXPECT_GT(past, 0);
    EXPECT_LT(past, static_cast<int>(names.size()));
}

TEST_P(CorpusReplayTest, EverySeedWithOneByteChangedOrMissingIsHandledToo) {
    const fuzz::Target& target = GetParam();
    for (const fuzz::Seed& seed : target.seeds()) {
        const std::size_t step = seed.bytes.size() / 40 + 1;
        for (std::size_t at = 0; at < seed.bytes.size(); at += step) {
            std::vector<std::uint8_t> bytes(seed.bytes.begin(), seed.bytes.end());
            bytes[at] = static_cast<std::uint8_t>(bytes[at] + 1);
            target.run(bytes);
            bytes.resize(at);
            target.run(bytes);
        }
    }
    SUCCEED() << "a broken rule would have ended the process";
}

INSTANTIATE_TEST_SUITE_P(Targets, CorpusReplayTest, testing::ValuesIn(replayed()), name_of);
