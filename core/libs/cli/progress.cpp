#include "cli/progress.h"

#include <algorithm>
#include <utility>

#include <unistd.h>

namespace cli {

namespace {

constexpr std::chrono::seconds kQuietTime{1};
constexpr std::chrono::milliseconds kPeriod{100};
constexpr std::uint64_t kBarWidth = 40;

}  // namespace

Progress::Progress(std::string what, std::uint64_t total, std::FILE* out)
    : what_(std::move(what)),
      total_(total),
      out_(out),
      on_terminal_(isatty(fileno(out)) == 1),
      next_(Clock::now() + kQuietTime) {}

Progress::~Progress() {
    clear();
}

void Progress::update(std::uint64_t done) {
    if (!on_terminal_) {
        return;
    }
    const Clock::time_point now = Clock::now();
    if (now < next_) {
        return;
    }
    next_ = now + kPeriod;
    shown_ = true;
    if (total_ == 0) {
        std::fprintf(out_, "\r\033[K%s  %llu", what_.c_str(), static_cast<unsigned long long>(done));
    } else {
        const double share = static_cast<double>(std::min(done, total_)) / static_cast<double>(total_);
        const auto filled = static_cast<std::size_t>(share * static_cast<double>(kBarWidth));
        const std::string bar = std::string(filled, '#') + std::string(kBarWidth - filled, '.');
        std::fprintf(out_, "\r\033[K%s  [%s] %3.0f %%", what_.c_str(), bar.c_str(), 100.0 * share);
    }
    std::fflush(out_);
}

void Progress::clear() {
    if (shown_) {
        std::fputs("\r\033[K", out_);
        std::fflush(out_);
        shown_ = false;
    }
}

}  // namespace cli
