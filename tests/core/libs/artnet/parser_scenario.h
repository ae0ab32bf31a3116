#pragma once
// Random inputs for the recording parser: recordings that are damaged, shifted and cut around the block size.

#include <cstddef>
#include <cstdint>
#include <streambuf>
#include <string>
#include <vector>

/// One input, how it is read, and who listens. All of it follows from the seed.
struct ParserScenario {
    /// What the first parse of the same parser reads; empty mostly, for none.
    std::vector<std::uint8_t> earlier;
    std::vector<std::uint8_t> input;
    /// Most bytes that the stream gives at a time; 0 for all at once.
    std::size_t piece = 0;
    /// Whether the stream, once at its end, would give more bytes to somebody who asks again.
    bool resumes = false;
    /// Kinds of records that are listened to, as letters (see ParserModel::parse()).
    std::string kinds;
    /// Number of the event at which a receiver stops the parser; 0 for none.
    std::size_t stop_after = 0;
};

[[nodiscard]] ParserScenario make_parser_scenario(std::uint64_t seed);

/// Gives its bytes in pieces of different sizes, as a slow pipe would.
class PiecewiseBuffer final : public std::streambuf {
public:
    /// @param piece  most bytes at a time, 0 for all
    /// @param resumes  whether an end that was seen is followed by another packet
    PiecewiseBuffer(const std::vector<std::uint8_t>& bytes, std::size_t piece, bool resumes);

private:
    int_type underflow() override;

    std::string bytes_;
    std::size_t given_ = 0;
    std::size_t piece_;
    bool resumes_;
    bool ended_ = false;
    /// A pseudo-random number; a whole engine would cost more than the reading.
    std::uint64_t random_ = 1;
};
