#include "ondra/net/host_address.h"

#include <utility>

#include <arpa/inet.h>

namespace ondra::net {

HostAddress::HostAddress(std::string text) : text_(std::move(text)) {
    in_addr address{};
    if (inet_pton(AF_INET, text_.c_str(), &address) == 1) {
        ipv4_ = address;
    }
}

}  // namespace ondra::net
