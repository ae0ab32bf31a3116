#include "support/before_bind.h"

#include <utility>

#include <sys/socket.h>

namespace tests {

std::function<void()> before_bind;

}  // namespace tests

extern "C" {
int __real_bind(int socket, const sockaddr* address, socklen_t size);
int __wrap_bind(int socket, const sockaddr* address, socklen_t size);

int __wrap_bind(int socket, const sockaddr* address, socklen_t size) {
    if (const auto happens = std::exchange(tests::before_bind, nullptr)) {
        happens();
    }
    return __real_bind(socket, address, size);
}
}
