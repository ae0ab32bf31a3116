#pragma once
// The random numbers of the model tests: the same on every machine and library for a seed.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <utility>
#include <vector>

namespace model {

/// A small generator (splitmix64); quality enough to mix scenarios.
class Random {
public:
    explicit Random(std::uint64_t seed) : state_(seed) {}

    std::uint64_t next() {
        std::uint64_t z = state_ += 0x9E3779B97F4A7C15U;
        z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9U;
        z = (z ^ (z >> 27)) * 0x94D049BB133111EBU;
        return z ^ (z >> 31);
    }
    /// `low` to `high`, both included.
    int between(int low, int high) {
        const auto count = static_cast<std::uint64_t>(std::int64_t{high} - low + 1);
        return static_cast<int>(low + static_cast<std::int64_t>(next() % count));
    }
    bool chance(int percent) { return between(1, 100) <= percent; }
    template <typename Value>
    const Value& of(const std::vector<Value>& values) {
        return values.at(static_cast<std::size_t>(next() % values.size()));
    }

private:
    std::uint64_t state_;
};

/// A number of the environment, `otherwise` without one.
inline std::uint64_t environment_number(const char* name, std::uint64_t otherwise) {
    const char* const text = std::getenv(name);
    return text == nullptr || *text == '\0' ? otherwise : std::strtoull(text, nullptr, 0);
}

/**
 * Which scenarios a run plays: `count` of them, with the seeds first, first + 1, ...
 *
 * The environment's NAME_SEED and NAME_COUNT choose them. A failure names its seed; that seed as the first
 * and a count of 1 replay it.
 */
class Seeds {
public:
    Seeds(std::string name, std::uint64_t default_count)
        : first(environment_number((name + "_SEED").c_str(), 1)),
          // None would pass without a look.
          count(std::max<std::uint64_t>(environment_number((name + "_COUNT").c_str(), default_count), 1)),
          name_(std::move(name)) {}

    [[nodiscard]] std::string replay(std::uint64_t seed) const {
        return "replay with " + name_ + "_SEED=" + std::to_string(seed) + " " + name_ + "_COUNT=1";
    }

    const std::uint64_t first;
    const std::uint64_t count;

private:
    std::string name_;
};

}  // namespace model
