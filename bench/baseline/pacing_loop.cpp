// Baseline of the pacing scenario: prebuilt datagrams, sent frame by frame at absolute deadlines that a
// sched_yield() loop waits for. Usage: pacing_loop PORT UNIVERSES INTERVAL_NS FRAMES.

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

long long now() {
    timespec time{};
    clock_gettime(CLOCK_MONOTONIC, &time);
    return static_cast<long long>(time.tv_sec) * 1'000'000'000 + time.tv_nsec;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 5) {
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

    std::vector<unsigned char> datagrams(universes * kDatagram, 0x55);
    for (std::size_t universe = 0; universe < universes; ++universe) {
        unsigned char* const packet = &datagrams[universe * kDatagram + kHeader];
        packet[12] = 1;  // sequence: where the service's recordings name their playlist
        packet[14] = static_cast<unsigned char>(universe & 0xFF);
        packet[15] = static_cast<unsigned char>(universe >> 8);
    }

    long long due = now();
    for (long frame = 0; frame < frames; ++frame) {
        while (now() < due) {
            sched_yield();
        }
        for (std::size_t universe = 0; universe < universes; ++universe) {
            if (sendto(descriptor, &datagrams[universe * kDatagram], kDatagram, 0,
                       reinterpret_cast<const sockaddr*>(&to), sizeof to) < 0) {
                return 1;
            }
        }
        due += interval;
    }
    return 0;
}
