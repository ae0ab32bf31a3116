// Baseline of the pacing scenario: prebuilt datagrams, sent frame by frame at absolute deadlines that a
// sched_yield() loop waits for. Usage: pacing_loop PORT UNIVERSES INTERVAL_NS FRAMES [OFFSET_NS...]. Each
// offset, in ascending order and less than an interval, is a playlist whose frames are due that long behind
// the grid; without any there is one playlist, on the grid.

#include <arpa/inet.h>
#include <sched.h>
#include <sys/socket.h>
#include <time.h>

#include <cstdlib>
#include <cstring>
#include <vector>

namespace {

constexpr std::size_t kDatagram = 554;
constexpr std::size_t kHeader = 24;
constexpr int kFirstOffset = 5;

long long now() {
    timespec time{};
    clock_gettime(CLOCK_MONOTONIC, &time);
    return static_cast<long long>(time.tv_sec) * 1'000'000'000 + time.tv_nsec;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < kFirstOffset) {
        return 2;
    }
    const int descriptor = socket(AF_INET, SOCK_DGRAM | SOCK_NONBLOCK, 0);
    sockaddr_in to{};
    to.sin_family = AF_INET;
    to.sin_port = htons(static_cast<unsigned short>(atoi(argv[1])));
    inet_pton(AF_INET, "127.0.0.1", &to.sin_addr);
    const auto universes = static_cast<std::size_t>(atoi(argv[2]));
    const long long interval = atoll(argv[3]);
    const long frames = atol(argv[4]);

    std::vector<long long> offsets;
    for (int argument = kFirstOffset; argument < argc; ++argument) {
        offsets.push_back(atoll(argv[argument]));
    }
    if (offsets.empty()) {
        offsets.push_back(0);
    }

    const std::size_t frame_bytes = universes * kDatagram;
    std::vector<unsigned char> datagrams(offsets.size() * frame_bytes, 0x55);
    for (std::size_t index = 0; index < offsets.size() * universes; ++index) {
        unsigned char* const packet = &datagrams[index * kDatagram + kHeader];
        // Sequence: where the service's recordings name their playlist.
        packet[12] = static_cast<unsigned char>(1 + index / universes);
        packet[14] = static_cast<unsigned char>(index % universes & 0xFF);
        packet[15] = static_cast<unsigned char>(index % universes >> 8);
    }

    long long grid = now();
    for (long frame = 0; frame < frames; ++frame) {
        const unsigned char* datagram = datagrams.data();
        for (const long long offset : offsets) {
            while (now() < grid + offset) {
                sched_yield();
            }
            for (const unsigned char* const end = datagram + frame_bytes; datagram != end;
                 datagram += kDatagram) {
                if (sendto(descriptor, datagram, kDatagram, 0, reinterpret_cast<const sockaddr*>(&to),
                           sizeof to) < 0) {
                    return 1;
                }
            }
        }
        grid += interval;
    }
    return 0;
}
