// The recording parser against its model, over random damaged recordings.
//
// PARSER_MODEL_SEED and PARSER_MODEL_COUNT choose the first seed and the number of scenarios; each scenario's
// seed is one more than the last one's, so that a failing one replays alone with a count of 1.
#include <algorithm>
#include <cstdlib>
#include <iomanip>
#include <iostream>
#include <map>
#include <string>
#include <string_view>

#include <gtest/gtest.h>

#include "parser_comparison.h"

namespace {

#if defined(__SANITIZE_THREAD__)
// One thread has no races to be found; the build costs thirty times the time.
constexpr std::uint64_t kCount = 5'000;
#else
constexpr std::uint64_t kCount = 100'000;
#endif

std::uint64_t from_environment(const char* name, std::uint64_t otherwise) {
    const char* const text = std::getenv(name);
    return text != nullptr ? std::strtoull(text, nullptr, 0) : otherwise;
}

/// Part of the scenarios with some property, as the mix is printed.
void print_share(std::string_view name, std::uint64_t part, std::uint64_t all) {
    std::cout << std::setw(12) << part << "  " << name << " (" << part * 100 / all << " in 100)\n";
}

}  // namespace

TEST(ParserModelTest, ParserAndModelTellTheSameOfEveryRecording) {
    const std::uint64_t first = from_environment("PARSER_MODEL_SEED", 1);
    const std::uint64_t count = std::max<std::uint64_t>(from_environment("PARSER_MODEL_COUNT", kCount), 1);
    std::map<std::string_view, int> met;
    std::uint64_t pieces = 0;
    std::uint64_t near_a_block = 0;
    for (std::uint64_t seed = first; seed < first + count; ++seed) {
        const ParserScenario scenario = make_parser_scenario(seed);
        // One model for one parser: it remembers what an earlier recording left.
        ParserModel model;
        const std::string difference = difference_of(scenario, model);
        ASSERT_EQ(difference, "") << "replay with PARSER_MODEL_SEED=" << seed << " PARSER_MODEL_COUNT=1 ("
                                  << scenario.input.size() << " bytes)";
        for (const auto& [name, times] : model.met()) {
            met[name] += times > 0 ? 1 : 0;
        }
        met["parser used twice"] += scenario.earlier.empty() ? 0 : 1;
        pieces += static_cast<std::uint64_t>(scenario.piece > 0);
        near_a_block += static_cast<std::uint64_t>((scenario.input.size() + 24) % 512 <= 48);
    }
    std::cout << count << " scenarios from seed " << first << ", of which\n";
    print_share("size within 24 bytes of a multiple of 512", near_a_block, count);
    print_share("read in pieces", pieces, count);
    for (const auto& [name, scenarios] : met) {
        print_share(name, static_cast<std::uint64_t>(scenarios), count);
    }
    if (count < 100'000) {
        return;
    }
    // A generator that no longer reaches these would prove nothing of them.
    for (const char* name : {"dmx",
                             "ms",
                             "ns",
                             "poll",
                             "pollreply",
                             "trigger",
                             "unknown",
                             "error",
                             "short pollreply",
                             "identifier split between blocks",
                             "record split between blocks",
                             "identifier in the stale tail",
                             "identifier completed by stale bytes",
                             "stale record past the buffer",
                             "identifier hidden by the byte before",
                             "input ends within a record",
                             "no identifier",
                             "empty input",
                             "stopped by a receiver",
                             "parser used twice"}) {
        EXPECT_GE(met[name], 500) << name;
    }
    EXPECT_GE(near_a_block, count / 3);
}
