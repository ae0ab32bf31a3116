// Sends forwarding datagrams to a forwarder and takes in what it delivers, both from one thread.
//
// Usage: forward_probe TO-PORT IN-PORT flood COUNT WINDOW   at most WINDOW on the way; prints "SECONDS LOST"
//        forward_probe TO-PORT IN-PORT burst COUNT          as fast as possible; prints the number lost
//        forward_probe TO-PORT IN-PORT latency COUNT        one each 2 ms; prints each one's nanoseconds
//
// Latency runs from just before the send call to the kernel's receive time of what comes out. With TO-PORT
// equal to IN-PORT nobody is in between: what the probe itself costs.

#include <arpa/inet.h>
#include <sys/socket.h>
#include <time.h>
#include <unistd.h>

#include <array>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

namespace {

constexpr std::size_t kBatch = 64;
constexpr std::size_t kDatagram = 554;
constexpr std::int64_t kGiveUpAfter = 200'000'000;

std::int64_t clock_time(clockid_t clock) {
    timespec time{};
    clock_gettime(clock, &time);
    return std::int64_t{time.tv_sec} * 1'000'000'000 + time.tv_nsec;
}

sockaddr_in loopback(int port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<std::uint16_t>(port));
    inet_pton(AF_INET, "127.0.0.1", &address.sin_addr);
    return address;
}

/// The two sockets, and batches of one prepared datagram.
class Probe {
public:
    Probe(int to_port, int in_port) : to_(loopback(to_port)) {
        const sockaddr_in in = loopback(in_port);
        const int on = 1;
        const int buffer = 64 * 1024 * 1024;
        setsockopt(in_, SOL_SOCKET, SO_TIMESTAMPNS, &on, sizeof on);
        if (setsockopt(in_, SOL_SOCKET, SO_RCVBUFFORCE, &buffer, sizeof buffer) != 0) {
            setsockopt(in_, SOL_SOCKET, SO_RCVBUF, &buffer, sizeof buffer);
        }
        const timeval patience{0, kGiveUpAfter / 1000};
        setsockopt(in_, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
        if (bind(in_, reinterpret_cast<const sockaddr*>(&in), sizeof in) != 0) {
            perror("forward_probe: bind");
            exit(1);
        }
        memcpy(datagram_.data() + 4, "127.0.0.1", 9);
        datagram_[20] = static_cast<unsigned char>(in_port & 0xFF);
        datagram_[21] = static_cast<unsigned char>(in_port >> 8);
        memcpy(datagram_.data() + 24, "Art-Net\0\0\x50\0\x0e", 12);
        datagram_[24 + 16] = 2;
        for (std::size_t i = 0; i < kBatch; ++i) {
            out_part_[i] = {datagram_.data(), datagram_.size()};
            out_[i].msg_hdr = {&to_, sizeof to_, &out_part_[i], 1, nullptr, 0, 0};
            in_part_[i] = {data_[i].data(), data_[i].size()};
        }
    }

    /// Sends up to a batch; the number sent.
    long send(long count) {
        const auto batch = static_cast<unsigned>(count < long{kBatch} ? count : long{kBatch});
        const int result = sendmmsg(socket_, out_.data(), batch, 0);
        return result < 0 ? 0 : result;
    }

    /// Takes in up to a batch; the number taken. Blocking, it waits for the first one, kGiveUpAfter at most.
    long take(bool blocking = false) {
        for (std::size_t i = 0; i < kBatch; ++i) {
            in_messages_[i].msg_hdr = {nullptr, 0, &in_part_[i], 1, controls_[i].bytes.data(), 64, 0};
        }
        const int result =
            recvmmsg(in_, in_messages_.data(), kBatch, blocking ? MSG_WAITFORONE : MSG_DONTWAIT, nullptr);
        return result < 0 ? 0 : result;
    }

    /// Takes in until `count` have come or none comes any more; the number taken.
    long take_all(long count) {
        long taken = 0;
        std::int64_t last = clock_time(CLOCK_MONOTONIC);
        while (taken < count && clock_time(CLOCK_MONOTONIC) - last < kGiveUpAfter) {
            const long batch = take();
            taken += batch;
            if (batch > 0) {
                last = clock_time(CLOCK_MONOTONIC);
            } else {
                usleep(100);
            }
        }
        return taken;
    }

    /// Kernel receive time of the first datagram of the last batch.
    [[nodiscard]] std::int64_t first_time() {
        const cmsghdr* const c = CMSG_FIRSTHDR(&in_messages_[0].msg_hdr);
        timespec time{};
        if (c != nullptr && c->cmsg_type == SCM_TIMESTAMPNS) {
            memcpy(&time, CMSG_DATA(c), sizeof time);
        }
        return std::int64_t{time.tv_sec} * 1'000'000'000 + time.tv_nsec;
    }

private:
    struct alignas(cmsghdr) Control {
        std::array<unsigned char, 64> bytes;
    };
    int socket_ = socket(AF_INET, SOCK_DGRAM, 0);
    int in_ = socket(AF_INET, SOCK_DGRAM, 0);
    sockaddr_in to_;
    std::array<unsigned char, kDatagram> datagram_{};
    std::array<mmsghdr, kBatch> out_{};
    std::array<iovec, kBatch> out_part_{};
    std::array<mmsghdr, kBatch> in_messages_{};
    std::array<iovec, kBatch> in_part_{};
    std::array<std::array<unsigned char, 600>, kBatch> data_{};
    std::array<Control, kBatch> controls_{};
};

/// Waits whenever the window is full, so that the forwarder has the processor's cores when it needs them.
void flood(Probe& probe, long count, long window) {
    const std::int64_t begin = clock_time(CLOCK_MONOTONIC);
    long sent = 0;
    long taken = 0;
    while (taken < count) {
        const bool room = sent < count && window - (sent - taken) >= long{kBatch};
        if (room) {
            sent += probe.send(count - sent);
        }
        const long batch = probe.take(!room);
        if (!room && batch == 0) {
            break;
        }
        taken += batch;
    }
    const std::int64_t end = clock_time(CLOCK_MONOTONIC);
    printf("%.9f %ld\n", static_cast<double>(end - begin) * 1e-9, count - taken);
}

void burst(Probe& probe, long count) {
    for (long sent = 0; sent < count;) {
        sent += probe.send(count - sent);
    }
    printf("%ld\n", count - probe.take_all(count));
}

void latency(Probe& probe, long count) {
    for (long i = 0; i < count; ++i) {
        usleep(2000);
        const std::int64_t begin = clock_time(CLOCK_REALTIME);
        probe.send(1);
        if (probe.take_all(1) == 1) {
            printf("%lld\n", static_cast<long long>(probe.first_time() - begin));
        }
    }
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 5) {
        fputs("usage: forward_probe TO-PORT IN-PORT flood|burst|latency COUNT [WINDOW]\n", stderr);
        return 2;
    }
    Probe probe(atoi(argv[1]), atoi(argv[2]));
    const std::string mode = argv[3];
    const long count = atol(argv[4]);
    if (mode == "flood" && argc == 6) {
        flood(probe, count, atol(argv[5]));
    } else if (mode == "burst") {
        burst(probe, count);
    } else if (mode == "latency") {
        latency(probe, count);
    } else {
        return 2;
    }
    return 0;
}
