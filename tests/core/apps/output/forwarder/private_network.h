#pragma once
// A network namespace for a whole test program.

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>

#include <net/if.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

namespace tests {

/// Moves the process into a network of its own with nothing but the loopback interface; must come before any
/// thread. Returns an empty text, or why that is impossible here.
inline std::string enter_private_network() {
    const std::string user = std::to_string(geteuid());
    const std::string group = std::to_string(getegid());
    if (unshare(CLONE_NEWNET) != 0) {
        if (unshare(CLONE_NEWUSER | CLONE_NEWNET) != 0) {
            return std::string("no private network here: ") + std::strerror(errno);
        }
        std::ofstream("/proc/self/setgroups") << "deny";
        std::ofstream("/proc/self/uid_map") << "0 " + user + " 1";
        std::ofstream("/proc/self/gid_map") << "0 " + group + " 1";
    }
    const int descriptor = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    ifreq request{};
    std::strcpy(request.ifr_name, "lo");
    request.ifr_flags = IFF_UP | IFF_RUNNING;
    const bool up = ioctl(descriptor, SIOCSIFFLAGS, &request) == 0;
    close(descriptor);
    return up ? "" : std::string("cannot bring up the loopback interface: ") + std::strerror(errno);
}

/// Runs iproute2 with these arguments; false when that fails.
inline bool run_ip(const std::string& arguments) {
    return std::system(("PATH=\"$PATH:/usr/sbin:/sbin\" ip " + arguments + " 2>/dev/null").c_str()) == 0;
}

}  // namespace tests
