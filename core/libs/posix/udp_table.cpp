#include "posix/udp_table.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string_view>
#include <system_error>

#include <netinet/in.h>

namespace fs = std::filesystem;

namespace posix {

namespace {

// Places of the words of a line.
constexpr std::size_t kLocal = 1;
constexpr std::size_t kRemote = 2;
constexpr std::size_t kInode = 9;
constexpr int kHexadecimal = 16;
/// Characters that the system keeps of a process's name.
constexpr std::size_t kNameLimit = 15;

template <typename Number>
bool read_hexadecimal(std::string_view text, Number& number) {
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number, kHexadecimal);
    return error == std::errc() && end == text.data() + text.size();
}

bool is_number(const std::string& name) {
    return !name.empty() &&
           std::all_of(name.begin(), name.end(), [](char c) { return c >= '0' && c <= '9'; });
}

std::string first_line(const fs::path& path) {
    std::ifstream file(path);
    std::string line;
    std::getline(file, line);
    return line;
}

/// The name of a process. The system cuts it; where the program's file may be seen, its name is whole.
std::string name_of(const fs::path& process) {
    const std::string name = first_line(process / "comm");
    std::error_code failed;
    const std::string file = fs::read_symlink(process / "exe", failed).filename().string();
    const std::string whole = file.substr(0, file.find(" (deleted)"));
    // A script's file is its interpreter's.
    return !failed && name.size() == kNameLimit && whole.starts_with(name) ? whole : name;
}

bool holds(const fs::path& process, const std::string& link) {
    std::error_code failed;
    for (fs::directory_iterator entry(process / "fd", failed), end; !failed && entry != end;
         entry.increment(failed)) {
        std::error_code unreadable;
        if (fs::read_symlink(entry->path(), unreadable).string() == link) {
            return true;
        }
    }
    return false;
}

}  // namespace

std::vector<UdpSocket> parse_udp_table(const std::string& table) {
    std::vector<UdpSocket> sockets;
    std::istringstream lines(table);
    for (std::string line; std::getline(lines, line);) {
        std::istringstream words(line);
        std::array<std::string, kInode + 1> word;
        for (std::string& each : word) {
            words >> each;
        }
        // Address as the raw 32-bit value, port as a plain number.
        const std::string_view local = word[kLocal];
        const std::size_t colon = local.find(':');
        UdpSocket socket;
        std::uint32_t raw = 0;
        if (colon == std::string_view::npos || !read_hexadecimal(local.substr(0, colon), raw) ||
            !read_hexadecimal(local.substr(colon + 1), socket.port)) {
            continue;
        }
        socket.address = ntohl(raw);
        socket.connected = word[kRemote] != "00000000:0000";
        socket.inode = word[kInode];
        sockets.push_back(socket);
    }
    return sockets;
}

std::optional<std::vector<UdpSocket>> read_udp_table(const std::string& root) {
    std::ifstream file(root + "/proc/net/udp");
    if (!file) {
        return std::nullopt;
    }
    return parse_udp_table({std::istreambuf_iterator<char>(file), {}});
}

std::optional<SocketHolder> holder_of(const std::string& inode, const std::string& root) {
    const std::string link = "socket:[" + inode + "]";
    std::error_code failed;
    for (fs::directory_iterator entry(root + "/proc", failed), end; !failed && entry != end;
         entry.increment(failed)) {
        const std::string name = entry->path().filename().string();
        if (is_number(name) && holds(entry->path(), link)) {
            return SocketHolder{std::stoi(name), name_of(entry->path())};
        }
    }
    return std::nullopt;
}

std::string text_of(const std::optional<SocketHolder>& holder) {
    return holder ? holder->name + " (process " + std::to_string(holder->process) + ")"
                  : "a process that this user may not look into";
}

}  // namespace posix
