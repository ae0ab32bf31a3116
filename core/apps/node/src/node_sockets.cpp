#include "node_sockets.h"

#include <cstring>
#include <string>
#include <system_error>

#include <ifaddrs.h>
#include <net/if.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include "cli/failure.h"

namespace node {

namespace {

/// Batches taken from one socket before the others and the signals get their turn.
constexpr int kBatchesPerTurn = 4;

std::unique_ptr<capture::Source> open_source(std::uint32_t address, std::uint16_t port) {
    try {
        return capture::open_udp({.address = address, .port = port});
    } catch (const capture::SourceError& error) {
        // Without the advice, which is for who may also watch the wire.
        throw cli::Failure("cannot listen at " + capture::endpoint_text({address, port}) + ": " +
                           std::generic_category().message(error.reason()));
    }
}

/// The broadcast address of the interface that has this address; 0 where there is none.
std::uint32_t broadcast_of(std::uint32_t address) {
    ifaddrs* list = nullptr;
    if (getifaddrs(&list) != 0) {
        return 0;
    }
    const std::unique_ptr<ifaddrs, decltype(&freeifaddrs)> owner(list, &freeifaddrs);
    const auto number = [](const sockaddr* text) {
        sockaddr_in inet{};
        std::memcpy(&inet, text, sizeof inet);
        return ntohl(inet.sin_addr.s_addr);
    };
    for (const ifaddrs* interface = list; interface != nullptr; interface = interface->ifa_next) {
        if (interface->ifa_addr != nullptr && interface->ifa_addr->sa_family == AF_INET &&
            interface->ifa_netmask != nullptr && (interface->ifa_flags & IFF_BROADCAST) != 0 &&
            number(interface->ifa_addr) == address) {
            const std::uint32_t broadcast = address | ~number(interface->ifa_netmask);
            return broadcast == address ? 0 : broadcast;
        }
    }
    return 0;
}

}  // namespace

NodeSockets::NodeSockets(std::optional<std::uint32_t> address, std::uint16_t port) : address_(address) {
    sources_.push_back(open_source(address.value_or(INADDR_ANY), port));
    if (address) {
        if (const std::uint32_t broadcast = broadcast_of(*address); broadcast != 0) {
            sources_.push_back(open_source(broadcast, port));
            sources_.push_back(open_source(INADDR_BROADCAST, port));
        }
    }
}

std::vector<int> NodeSockets::descriptors() const {
    std::vector<int> result;
    for (const auto& source : sources_) {
        result.push_back(source->descriptor());
    }
    return result;
}

bool NodeSockets::receive(const std::function<void(const capture::Datagram&)>& take) {
    const auto take_as_own = [&](capture::Datagram datagram) {
        datagram.own_address = address_.value_or(datagram.own_address);
        take(datagram);
    };
    bool any = false;
    for (const auto& source : sources_) {
        for (int batch = 0; batch < kBatchesPerTurn && source->receive(take_as_own) > 0; ++batch) {
            any = true;
        }
    }
    return any;
}

bool NodeSockets::send(std::span<const std::uint8_t> bytes, std::uint32_t address, std::uint16_t port) const {
    const sockaddr_in target = capture::to_sockaddr({address, port});
    return sendto(sources_.front()->descriptor(), bytes.data(), bytes.size(), MSG_NOSIGNAL,
                  reinterpret_cast<const sockaddr*>(&target),
                  sizeof target) == static_cast<ssize_t>(bytes.size());
}

std::uint64_t NodeSockets::kernel_drops() const {
    std::uint64_t drops = 0;
    for (const auto& source : sources_) {
        drops += source->kernel_drops();
    }
    return drops;
}

}  // namespace node
