#include "process_watch.h"

#include <filesystem>
#include <fstream>
#include <iterator>
#include <system_error>

namespace stress {

std::size_t ProcessWatch::entries(const char* what) const {
    std::error_code gone;
    const std::filesystem::directory_iterator all(directory_ + "/" + what, gone);
    std::size_t count = 0;
    for (auto entry = begin(all); entry != end(all); entry.increment(gone)) {
        ++count;
    }
    return count;
}

long ProcessWatch::memory() const {
    std::ifstream file(directory_ + "/status");
    for (std::string line; std::getline(file, line);) {
        if (line.starts_with("VmRSS:")) {
            return std::stol(line.substr(6));
        }
    }
    return 0;
}

double ProcessWatch::slope() const {
    const std::size_t first = samples_.size() / 2;
    const auto count = static_cast<double>(samples_.size() - first);
    double mean_x = 0;
    double mean_y = 0;
    for (std::size_t i = first; i < samples_.size(); ++i) {
        mean_x += static_cast<double>(samples_[i].first) / count;
        mean_y += static_cast<double>(samples_[i].second) / count;
    }
    double xy = 0;
    double xx = 0;
    for (std::size_t i = first; i < samples_.size(); ++i) {
        const double x = static_cast<double>(samples_[i].first) - mean_x;
        xy += x * (static_cast<double>(samples_[i].second) - mean_y);
        xx += x * x;
    }
    constexpr double kCalls = 1000;
    return xx > 0 ? xy / xx * kCalls : 0;
}

}  // namespace stress
