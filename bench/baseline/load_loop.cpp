// Baseline of the load scenario: the least work that loading in this design allows. On a thread of its own,
// 512-byte reads through a stream, and one exactly-sized heap copy per packet appended to a deque. It trusts
// the recording (full ArtDmx packets of 530 bytes, nothing else), so it neither searches nor checks.
// Usage: load_loop FILE [STEP]. With STEP its heap grows by that many bytes at a time. Prints seconds,
// packets, resident kilobytes before and after, and the thread's CPU seconds.

#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <fstream>
#include <memory>
#include <thread>
#include <utility>

namespace {

constexpr std::size_t kBlock = 512;
constexpr std::size_t kPacket = 530;

struct Packet {
    int universe = 0;
    std::unique_ptr<unsigned char[]> data;
    std::size_t size = 0;
    long long delay = 0;
};

double now(clockid_t clock = CLOCK_MONOTONIC) {
    timespec time{};
    clock_gettime(clock, &time);
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

long resident_kilobytes() {
    long total = 0;
    long resident = 0;
    if (FILE* const file = fopen("/proc/self/statm", "r")) {
        if (fscanf(file, "%ld %ld", &total, &resident) != 2) {
            resident = 0;
        }
        fclose(file);
    }
    return resident * (sysconf(_SC_PAGESIZE) / 1024);
}

void load(const char* path, std::deque<Packet>& packets, std::size_t step) {
    std::ifstream file(path, std::ios::binary);
    char block[kBlock];
    auto data = std::make_unique_for_overwrite<unsigned char[]>(kPacket);
    std::size_t filled = 0;
    for (;;) {
        file.read(block, kBlock);
        const auto count = static_cast<std::size_t>(file.gcount());
        if (count == 0) {
            return;
        }
        for (std::size_t taken = 0; taken < count;) {
            const std::size_t part = std::min(kPacket - filled, count - taken);
            memcpy(data.get() + filled, block + taken, part);
            filled += part;
            taken += part;
            if (filled == kPacket) {
                const int universe = data[14] | data[15] << 8;
                packets.push_back({universe, std::move(data), kPacket, 0});
                if (step != 0 && packets.size() % (step / (kPacket + 24)) == 0) {
                    operator delete(operator new(step));
                }
                data = std::make_unique_for_overwrite<unsigned char[]>(kPacket);
                filled = 0;
            }
        }
    }
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2 && argc != 3) {
        return 2;
    }
    std::deque<Packet> packets;
    const long before = resident_kilobytes();
    const double begin = now();
    double cpu = 0;
    std::thread loader([&] {
        load(argv[1], packets, argc == 3 ? strtoul(argv[2], nullptr, 10) : 0);
        cpu = now(CLOCK_THREAD_CPUTIME_ID);
    });
    loader.join();
    const double end = now();
    printf("%.9f %zu %ld %ld %.9f\n", end - begin, packets.size(), before, resident_kilobytes(), cpu);
    return 0;
}
