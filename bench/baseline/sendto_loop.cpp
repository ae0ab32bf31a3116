// Baseline of the burst scenario: the least that sending N forwarding datagrams costs, one sendto() each from
// one thread. Usage: sendto_loop PORT COUNT. Prints seconds.

#include <arpa/inet.h>
#include <sys/socket.h>
#include <time.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

int main(int argc, char** argv) {
    if (argc != 3) {
        return 2;
    }
    const int descriptor = socket(AF_INET, SOCK_DGRAM | SOCK_NONBLOCK, 0);
    sockaddr_in to{};
    to.sin_family = AF_INET;
    to.sin_port = htons(static_cast<unsigned short>(atoi(argv[1])));
    inet_pton(AF_INET, "127.0.0.1", &to.sin_addr);
    unsigned char datagram[554];
    memset(datagram, 0x55, sizeof datagram);
    const long count = atol(argv[2]);
    timespec begin{};
    timespec end{};
    clock_gettime(CLOCK_MONOTONIC, &begin);
    for (long i = 0; i < count; ++i) {
        if (sendto(descriptor, datagram, sizeof datagram, 0, reinterpret_cast<const sockaddr*>(&to),
                   sizeof to) < 0) {
            return 1;
        }
    }
    clock_gettime(CLOCK_MONOTONIC, &end);
    printf("%.9f\n", static_cast<double>(end.tv_sec - begin.tv_sec) +
                         static_cast<double>(end.tv_nsec - begin.tv_nsec) * 1e-9);
    close(descriptor);
    return 0;
}
