#include <algorithm>
#include <filesystem>
#include <fstream>
#include <limits>
#include <map>
#include <sstream>
#include <system_error>
#include <vector>

#include <sys/timex.h>

#include "checks.h"

namespace fs = std::filesystem;

namespace ctl {

namespace {

constexpr std::uint64_t kKibibyte = 1024;
constexpr std::uint64_t kMebibyte = 1024 * kKibibyte;
/// What the rest of the device has to have.
constexpr std::uint64_t kSpareMemory = 64 * kMebibyte;

std::string first_line(const std::string& path) {
    std::ifstream file(path);
    std::string line;
    std::getline(file, line);
    return line;
}

std::string mebibytes(std::uint64_t bytes) {
    return std::to_string(bytes / kMebibyte) + " MiB";
}

/// "cpu0, cpu1: powersave" and so on, of governors other than the fast one.
std::string slow_governors(const std::string& root, std::size_t& found) {
    std::map<std::string, std::string> processors_of;
    std::vector<fs::path> directories;
    std::error_code failed;
    for (fs::directory_iterator entry(root + "/sys/devices/system/cpu", failed), end; !failed && entry != end;
         entry.increment(failed)) {
        directories.push_back(entry->path());
    }
    std::sort(directories.begin(), directories.end());
    for (const fs::path& directory : directories) {
        const std::string governor = first_line((directory / "cpufreq/scaling_governor").string());
        if (governor.empty()) {
            continue;
        }
        ++found;
        if (governor != "performance") {
            std::string& processors = processors_of[governor];
            processors += (processors.empty() ? "" : ", ") + directory.filename().string();
        }
    }
    std::string text;
    for (const auto& [governor, processors] : processors_of) {
        text.append(text.empty() ? "" : "; ").append(governor).append(" on ").append(processors);
    }
    return text;
}

/// Bytes of a line of /proc/meminfo.
std::optional<std::uint64_t> memory_of(const std::string& root, const std::string& what) {
    std::ifstream file(root + "/proc/meminfo");
    for (std::string line; std::getline(file, line);) {
        std::istringstream words(line);
        std::string name;
        std::uint64_t kibibytes = 0;
        if (words >> name >> kibibytes && name == what + ":") {
            return kibibytes * kKibibyte;
        }
    }
    return std::nullopt;
}

}  // namespace

Finding check_governor(const std::string& root) {
    std::size_t found = 0;
    const std::string slow = slow_governors(root, found);
    if (found == 0) {
        return {"governor", Verdict::Unknown, "the system does not offer to change the processor's frequency",
                ""};
    }
    if (!slow.empty()) {
        return {"governor", Verdict::Problem, "governor " + slow,
                "a processor that has slowed down sends late: as root, run \"echo performance | tee "
                "/sys/devices/system/cpu/cpu*/cpufreq/scaling_governor\" at each start of the system"};
    }
    return {"governor", Verdict::Good, "performance", ""};
}

ClockState read_clock_state() {
    timex state{};
    const int result = adjtimex(&state);
    return {result >= 0 && result != TIME_ERROR && (state.status & STA_UNSYNC) == 0};
}

Finding check_clock(const std::string& root, const ClockState& state) {
    const std::string source =
        first_line(root + "/sys/devices/system/clocksource/clocksource0/current_clocksource");
    // Counts timer interrupts: frames would leave in steps of milliseconds.
    if (source.find("jiffies") != std::string::npos) {
        return {"clock", Verdict::Problem,
                "the monotonic clock is driven by " + source + ", in steps of milliseconds",
                "boot the system with a finer clock source; \"cat "
                "/sys/devices/system/clocksource/clocksource0/available_clocksource\" lists what there is"};
    }
    const std::string driven = source.empty() ? "" : ", monotonic clock from " + source;
    if (!state.synchronised) {
        return {"clock", Verdict::Problem, "the system time is not synchronised" + driven,
                "playback does not need the time of day, but logs and recordings of several devices can then "
                "not be compared: run a time service, such as systemd-timesyncd or chrony; where no network "
                "time is "
                "to be had, leave this check out with --skip clock"};
    }
    return {"clock", Verdict::Good, "synchronised" + driven, ""};
}

Finding check_memory(const std::string& root, std::uint64_t needed) {
    const std::optional<std::uint64_t> total = memory_of(root, "MemTotal");
    const std::optional<std::uint64_t> available = memory_of(root, "MemAvailable");
    if (!total || !available) {
        return {"memory", Verdict::Unknown, "/proc/meminfo cannot be read", ""};
    }
    const std::string text = mebibytes(*available) + " of " + mebibytes(*total) + " available";
    // A stored packet takes up to a fifth more than its bytes.
    const std::uint64_t held =
        needed > std::numeric_limits<std::uint64_t>::max() / 2 ? needed : needed + needed / 5;
    if (held > *total - std::min(*total, kSpareMemory)) {
        return {"memory", Verdict::Problem,
                text + "; the largest playlist needs about " + mebibytes(held) + " once it plays",
                "a playlist lies in memory as a whole: divide it, or shorten its recordings "
                "(\"cuewright-recording "
                "cut\")"};
    }
    if (*available < kSpareMemory) {
        return {"memory", Verdict::Problem, text,
                "end what is not needed (\"ps -e -o rss,comm --sort -rss\" lists what takes most), or stop "
                "playlists that have ended: they stay in memory until then"};
    }
    return {"memory", Verdict::Good, text, ""};
}

}  // namespace ctl
