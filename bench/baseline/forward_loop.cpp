// Baseline of the forwarder scenario: one thread that receives a batch of datagrams and sends what lies
// behind their 24-byte headers, unchecked, to one fixed address. Usage: forward_loop LISTEN-PORT TO-PORT.
// Ends by a signal. Prints "ready" once it listens.

#include <arpa/inet.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>

namespace {

constexpr std::size_t kBatch = 64;
constexpr std::size_t kDatagram = 554;
constexpr std::size_t kHeader = 24;

sockaddr_in loopback(const char* port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<unsigned short>(atoi(port)));
    inet_pton(AF_INET, "127.0.0.1", &address.sin_addr);
    return address;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 3) {
        return 2;
    }
    const sockaddr_in from = loopback(argv[1]);
    sockaddr_in to = loopback(argv[2]);
    const int input = socket(AF_INET, SOCK_DGRAM, 0);
    const int output = socket(AF_INET, SOCK_DGRAM, 0);
    const int buffer = 64 * 1024 * 1024;
    if (setsockopt(input, SOL_SOCKET, SO_RCVBUFFORCE, &buffer, sizeof buffer) != 0) {
        setsockopt(input, SOL_SOCKET, SO_RCVBUF, &buffer, sizeof buffer);
    }
    if (bind(input, reinterpret_cast<const sockaddr*>(&from), sizeof from) != 0) {
        return 1;
    }
    puts("ready");
    fflush(stdout);

    static std::array<std::array<unsigned char, kDatagram>, kBatch> data;
    std::array<iovec, kBatch> in{};
    std::array<iovec, kBatch> out{};
    std::array<mmsghdr, kBatch> received{};
    std::array<mmsghdr, kBatch> sent{};
    for (std::size_t i = 0; i < kBatch; ++i) {
        in[i] = {data[i].data(), kDatagram};
        out[i] = {data[i].data() + kHeader, kDatagram - kHeader};
        received[i].msg_hdr.msg_iov = &in[i];
        received[i].msg_hdr.msg_iovlen = 1;
        sent[i].msg_hdr.msg_iov = &out[i];
        sent[i].msg_hdr.msg_iovlen = 1;
        sent[i].msg_hdr.msg_name = &to;
        sent[i].msg_hdr.msg_namelen = sizeof to;
    }
    for (;;) {
        const int count = recvmmsg(input, received.data(), kBatch, MSG_WAITFORONE, nullptr);
        if (count < 0) {
            return 1;
        }
        for (int done = 0; done < count;) {
            const int result = sendmmsg(output, sent.data() + done, static_cast<unsigned>(count - done), 0);
            if (result < 0) {
                return 1;
            }
            done += result;
        }
    }
}
