#include "poll_targets.h"

#include <algorithm>
#include <cstring>
#include <memory>

#include <ifaddrs.h>
#include <net/if.h>
#include <netinet/in.h>

namespace netsurvey {

namespace {

std::uint32_t address_in(const sockaddr* address) {
    if (address == nullptr || address->sa_family != AF_INET) {
        return 0;
    }
    sockaddr_in inet{};
    std::memcpy(&inet, address, sizeof inet);
    return ntohl(inet.sin_addr.s_addr);
}

/// The address that all hosts of an interface's network listen to; 0 where there is none.
std::uint32_t broadcast_of(const ifaddrs& interface) {
    const std::uint32_t own = address_in(interface.ifa_addr);
    const std::uint32_t mask = address_in(interface.ifa_netmask);
    std::uint32_t broadcast = address_in(interface.ifa_broadaddr);
    if (broadcast == 0 || broadcast == own) {
        // Addresses that were added by hand often lack it.
        broadcast = own | ~mask;
    }
    return broadcast == own ? 0 : broadcast;
}

}  // namespace

std::vector<PollTarget> broadcast_targets(std::span<const std::string> wanted) {
    ifaddrs* list = nullptr;
    if (getifaddrs(&list) != 0) {
        return {};
    }
    const std::unique_ptr<ifaddrs, decltype(&freeifaddrs)> owner(list, &freeifaddrs);
    std::vector<PollTarget> targets;
    for (const ifaddrs* interface = list; interface != nullptr; interface = interface->ifa_next) {
        constexpr unsigned kNeeded = IFF_UP | IFF_BROADCAST;
        if (address_in(interface->ifa_addr) == 0 || (interface->ifa_flags & kNeeded) != kNeeded ||
            (!wanted.empty() && std::ranges::find(wanted, interface->ifa_name) == wanted.end())) {
            continue;
        }
        const std::uint32_t broadcast = broadcast_of(*interface);
        if (broadcast != 0 && std::ranges::find(targets, broadcast, &PollTarget::address) == targets.end()) {
            targets.push_back({interface->ifa_name, broadcast});
        }
    }
    return targets;
}

}  // namespace netsurvey
