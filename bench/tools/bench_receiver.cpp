// Takes in datagrams and notes for each when the kernel received it, which on loopback is when it was sent.
//
// Usage: bench_receiver [ADDRESS:]PORT ROWS FILE. Listens on PORT of all addresses or of one, keeps up to
// ROWS rows in memory; prints "ready BUFFER" (bytes of receive buffer), and for each line of standard input
// how many it has taken in. When its standard input ends it writes the rows to FILE and prints "RECEIVED
// DROPPED STEP": datagrams taken in, datagrams that the kernel dropped for want of room, and by how many
// nanoseconds the wall clock moved against the monotonic one.
//
// With ROWS 0 it keeps nothing: rows are written to FILE, which may be a pipe, as they come, for a run of any
// length. The clocks are then compared at every look, so that a wall clock that is set does no harm.
//
// It looks every 2 ms instead of blocking, so that no sender ever pays for waking it.

#include <arpa/inet.h>
#include <linux/sock_diag.h>
#include <poll.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

namespace {

constexpr std::size_t kBatch = 64;
constexpr std::size_t kLargest = 600;
/// Bytes before the Art-Net packet in a datagram from the service; what a forwarder or a peer sends has none.
constexpr std::size_t kForwardingHeader = 24;
constexpr std::size_t kForwardingDatagram = 554;
constexpr int kPollMilliseconds = 2;

/// One datagram, as it lies in the file.
struct Row {
    std::int64_t time;     ///< kernel receive time, nanoseconds of CLOCK_MONOTONIC
    std::uint32_t serial;  ///< channels 0 to 3 as they came
    std::uint16_t universe;
    std::uint8_t sequence;  ///< ArtDmx sequence: names the playlist
    std::uint8_t length;    ///< size of the datagram in units of 4 bytes
};
static_assert(sizeof(Row) == 16);

std::int64_t clock_time(clockid_t clock) {
    timespec time{};
    clock_gettime(clock, &time);
    return std::int64_t{time.tv_sec} * 1'000'000'000 + time.tv_nsec;
}

/// Wall clock minus monotonic clock; the middle of the closest of a few readings.
std::int64_t clock_offset() {
    std::int64_t best = 0;
    std::int64_t shortest = INT64_MAX;
    for (int i = 0; i < 20; ++i) {
        const std::int64_t before = clock_time(CLOCK_MONOTONIC);
        const std::int64_t wall = clock_time(CLOCK_REALTIME);
        const std::int64_t after = clock_time(CLOCK_MONOTONIC);
        if (after - before < shortest) {
            shortest = after - before;
            best = wall - (before + (after - before) / 2);
        }
    }
    return best;
}

struct Input {
    std::array<mmsghdr, kBatch> messages{};
    std::array<iovec, kBatch> parts{};
    std::array<std::array<unsigned char, kLargest>, kBatch> data{};
    struct alignas(cmsghdr) Control {
        std::array<unsigned char, 128> bytes;
    };
    std::array<Control, kBatch> controls{};

    int receive(int descriptor) {
        for (std::size_t i = 0; i < kBatch; ++i) {
            parts[i] = {data[i].data(), data[i].size()};
            messages[i].msg_hdr = {};
            messages[i].msg_hdr.msg_iov = &parts[i];
            messages[i].msg_hdr.msg_iovlen = 1;
            messages[i].msg_hdr.msg_control = controls[i].bytes.data();
            messages[i].msg_hdr.msg_controllen = controls[i].bytes.size();
        }
        return recvmmsg(descriptor, messages.data(), kBatch, MSG_DONTWAIT, nullptr);
    }
};

Row make_row(const Input& input, std::size_t i, std::int64_t offset) {
    Row row{};
    msghdr header = input.messages[i].msg_hdr;
    for (cmsghdr* c = CMSG_FIRSTHDR(&header); c != nullptr; c = CMSG_NXTHDR(&header, c)) {
        if (c->cmsg_level == SOL_SOCKET && c->cmsg_type == SCM_TIMESTAMPNS) {
            timespec time{};
            memcpy(&time, CMSG_DATA(c), sizeof time);
            row.time = std::int64_t{time.tv_sec} * 1'000'000'000 + time.tv_nsec - offset;
        }
    }
    const std::size_t size = input.messages[i].msg_len;
    const unsigned char* const packet =
        input.data[i].data() + (size == kForwardingDatagram ? kForwardingHeader : 0);
    row.sequence = packet[12];
    row.universe = static_cast<std::uint16_t>(packet[14] | packet[15] << 8);
    memcpy(&row.serial, packet + 18, sizeof row.serial);
    row.length = static_cast<std::uint8_t>((size + 3) / 4);
    return row;
}

/// Datagrams that the kernel has dropped so far. What it says beside each datagram knows nothing of those
/// that were dropped after the last one.
std::uint32_t drops_so_far(int descriptor) {
    std::array<std::uint32_t, SK_MEMINFO_VARS> figures{};
    socklen_t length = sizeof figures;
    if (getsockopt(descriptor, SOL_SOCKET, SO_MEMINFO, figures.data(), &length) != 0) {
        perror("bench_receiver: SO_MEMINFO");
        exit(1);
    }
    return figures[SK_MEMINFO_DROPS];
}

/// True once standard input has ended; waits the polling time. Answers a line with `received`.
bool input_ended(std::size_t received) {
    pollfd wait{0, POLLIN, 0};
    if (poll(&wait, 1, kPollMilliseconds) <= 0) {
        return false;
    }
    char byte = 0;
    if (read(0, &byte, 1) != 1) {
        return true;
    }
    if (byte == '\n') {
        printf("%zu\n", received);
        fflush(stdout);
    }
    return false;
}

/// `where`: PORT, or ADDRESS:PORT.
sockaddr_in read_address(const char* where) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    const std::string text(where);
    const std::size_t colon = text.find(':');
    if (colon == std::string::npos) {
        address.sin_port = htons(static_cast<std::uint16_t>(atoi(where)));
    } else {
        address.sin_port = htons(static_cast<std::uint16_t>(atoi(where + colon + 1)));
        inet_pton(AF_INET, text.substr(0, colon).c_str(), &address.sin_addr);
    }
    return address;
}

int open_socket(const sockaddr_in& address) {
    const int descriptor = socket(AF_INET, SOCK_DGRAM, 0);
    const int on = 1;
    const int buffer = 512 * 1024 * 1024;
    setsockopt(descriptor, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    setsockopt(descriptor, SOL_SOCKET, SO_TIMESTAMPNS, &on, sizeof on);
    // Beyond the system's limit where the user may, and up to it otherwise.
    if (setsockopt(descriptor, SOL_SOCKET, SO_RCVBUFFORCE, &buffer, sizeof buffer) != 0) {
        setsockopt(descriptor, SOL_SOCKET, SO_RCVBUF, &buffer, sizeof buffer);
    }
    if (bind(descriptor, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        perror("bench_receiver: bind");
        exit(1);
    }
    return descriptor;
}

/// Where rows go: a table in memory that is written at the end, or at once into the file.
class Rows {
public:
    Rows(std::size_t capacity, const char* file) : capacity_(capacity), file_(fopen(file, "wb")) {
        if (file_ == nullptr) {
            perror(file);
            exit(1);
        }
        if (streaming()) {
            return;
        }
        // Touched beforehand, so that taking in waits for no page.
        table_ = static_cast<Row*>(mmap(nullptr, capacity * sizeof(Row), PROT_READ | PROT_WRITE,
                                        MAP_PRIVATE | MAP_ANONYMOUS | MAP_POPULATE, -1, 0));
        if (table_ == MAP_FAILED) {
            perror("bench_receiver: mmap");
            exit(1);
        }
    }

    [[nodiscard]] bool streaming() const { return capacity_ == 0; }
    [[nodiscard]] std::size_t received() const { return received_; }

    void add(const Row& row) {
        if (streaming()) {
            fwrite(&row, sizeof row, 1, file_);
        } else if (received_ < capacity_) {
            table_[received_] = row;
        }
        ++received_;
    }

    void flush() { fflush(file_); }

    void finish() {
        if (!streaming()) {
            fwrite(table_, sizeof(Row), std::min(received_, capacity_), file_);
        }
        fclose(file_);
    }

private:
    std::size_t capacity_;
    std::size_t received_ = 0;
    Row* table_ = nullptr;
    FILE* file_;
};

}  // namespace

int main(int argc, char** argv) {
    if (argc != 4) {
        fputs("usage: bench_receiver [ADDRESS:]PORT ROWS FILE\n", stderr);
        return 2;
    }
    const int descriptor = open_socket(read_address(argv[1]));
    Rows rows(static_cast<std::size_t>(atoll(argv[2])), argv[3]);
    int buffer = 0;
    socklen_t length = sizeof buffer;
    getsockopt(descriptor, SOL_SOCKET, SO_RCVBUF, &buffer, &length);
    const std::int64_t first_offset = clock_offset();
    printf("ready %d\n", buffer);
    fflush(stdout);

    static Input input;
    std::int64_t offset = first_offset;
    for (bool ended = false; !ended;) {
        ended = input_ended(rows.received());
        if (rows.streaming()) {
            offset = clock_offset();
        }
        for (int count = 0; (count = input.receive(descriptor)) > 0;) {
            for (std::size_t i = 0; i < static_cast<std::size_t>(count); ++i) {
                rows.add(make_row(input, i, offset));
            }
        }
        if (rows.streaming()) {
            rows.flush();
        }
    }
    rows.finish();
    printf("%zu %u %lld\n", rows.received(), drops_so_far(descriptor),
           static_cast<long long>(clock_offset() - first_offset));
    return 0;
}
