#include "memory.h"

#include <array>
#include <cerrno>
#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <optional>
#include <sstream>
#include <string_view>
#include <system_error>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "posix/file_descriptor.h"
#include "posix/ipv4.h"

namespace netsurvey {

namespace {

/// Far more than a full table; what is longer is not ours.
constexpr off_t kMaxFileSize = off_t{16} * 1024 * 1024;

std::optional<std::uint16_t> parse_number(std::string_view text) {
    std::uint16_t value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc() || end != text.data() + text.size()) {
        return std::nullopt;
    }
    return value;
}

/// Reads "UNIVERSE:ADDRESS:PORT".
std::optional<NodeRecord> parse_record(std::string_view line) {
    const std::size_t first = line.find(':');
    const std::size_t second = line.find(':', first + 1);
    if (first == std::string_view::npos || second == std::string_view::npos) {
        return std::nullopt;
    }
    const auto universe = parse_number(line.substr(0, first));
    const auto address = posix::parse_ipv4(std::string(line.substr(first + 1, second - first - 1)));
    const auto port = parse_number(line.substr(second + 1));
    if (!universe || !address || !port) {
        return std::nullopt;
    }
    return NodeRecord{*universe, *address, *port};
}

std::string reason(const std::string& path) {
    return path + ": " + std::generic_category().message(errno);
}

bool write_all(int descriptor, std::string_view text) {
    while (!text.empty()) {
        const ssize_t part = write(descriptor, text.data(), text.size());
        if (part < 0 && errno == EINTR) {
            continue;
        }
        if (part <= 0) {
            return false;
        }
        text.remove_prefix(static_cast<std::size_t>(part));
    }
    return true;
}

}  // namespace

std::string Memory::default_path(const std::string& bus_id) {
    const char* const runtime = std::getenv("XDG_RUNTIME_DIR");
    std::error_code none;
    const std::filesystem::path directory = runtime != nullptr && *runtime == '/'
                                                ? std::filesystem::path(runtime)
                                                : std::filesystem::temp_directory_path(none);
    return directory / ("cuewright-netsurvey-" + bus_id + ".nodes");
}

std::vector<NodeRecord> Memory::load() const {
    // In a directory that others may write to, a file of this name may be another's, or a link, or a pipe.
    const posix::FileDescriptor file(open(path_.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK));
    struct stat status {};
    if (!file || fstat(file.get(), &status) != 0 || !S_ISREG(status.st_mode) || status.st_uid != geteuid() ||
        status.st_size > kMaxFileSize) {
        return {};
    }
    std::string text;
    std::array<char, 4096> part{};
    for (ssize_t size = 0; (size = read(file.get(), part.data(), part.size())) > 0;) {
        text.append(part.data(), static_cast<std::size_t>(size));
    }
    std::vector<NodeRecord> records;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        if (const std::optional<NodeRecord> record = parse_record(line)) {
            records.push_back(*record);
        }
    }
    return records;
}

std::string Memory::store(std::span<const NodeRecord> records) const {
    std::string text;
    for (const NodeRecord& record : records) {
        // The announced form without its state.
        text += to_text({true, record}).substr(2) + "\n";
    }
    std::string temporary = path_ + ".XXXXXX";
    const posix::FileDescriptor file(mkostemp(temporary.data(), O_CLOEXEC));
    if (!file) {
        return reason(path_);
    }
    if (!write_all(file.get(), text) || rename(temporary.c_str(), path_.c_str()) != 0) {
        std::string why = reason(path_);
        unlink(temporary.c_str());
        return why;
    }
    return {};
}

}  // namespace netsurvey
