#include "socket_filter.h"

#include <linux/filter.h>
#include <sys/socket.h>

namespace forwarder {

void refuse_datagrams(int socket) noexcept {
    sock_filter nothing_passes{BPF_RET | BPF_K, 0, 0, 0};
    const sock_fprog filter{1, &nothing_passes};
    setsockopt(socket, SOL_SOCKET, SO_ATTACH_FILTER, &filter, sizeof filter);
}

}  // namespace forwarder
