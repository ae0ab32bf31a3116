#pragma once
// A progress bar on a terminal. Our own: Debian's package archive holds no C++ library for it.

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <string>

namespace cli {

/**
 * Shows how far a piece of work has come, on a line of a terminal that goes away at the end.
 *
 * Nothing is shown where `out` is no terminal, and nothing within the first second, so that short work leaves
 * no trace. Not for several threads.
 */
class Progress {
public:
    /// @param what   a few words, such as a file's name
    /// @param total  amount of work in any unit; 0: not known, only what is done is shown
    Progress(std::string what, std::uint64_t total, std::FILE* out = stderr);
    /// Takes the line away.
    ~Progress();
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    /// @param done  0 to total. Draws ten times a second at most; costs a clock's reading otherwise.
    void update(std::uint64_t done);
    /// Takes the line away, so that something else can be printed; a later update() shows it again.
    void clear();

private:
    using Clock = std::chrono::steady_clock;

    std::string what_;
    std::uint64_t total_;
    std::FILE* out_;
    bool on_terminal_;
    bool shown_ = false;
    Clock::time_point next_;
};

}  // namespace cli
