#pragma once
// Runs a piece of a test in a child process, with namespaces of its own where the kernel allows that.

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <functional>
#include <initializer_list>
#include <stdexcept>
#include <string>

#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace tests {

/// Thrown by the body of a child for what this machine does not offer; the test is then skipped.
struct Unavailable : std::runtime_error {
    using std::runtime_error::runtime_error;
};

/// What became of a child.
struct ChildReport {
    /// Empty, or why the child could not do its work here.
    std::string unavailable;
    /// What the body returned; a text naming the wait status when the child did not get that far.
    std::string text;
};

namespace child_process_detail {

inline void write_file(const char* path, const std::string& text) {
    std::ofstream file(path);
    file << text;
}

/// Unshares as root, and as anybody else within a user namespace.
inline void enter_namespaces(int namespaces) {
    if (namespaces == 0) {
        return;
    }
    const std::string user = std::to_string(getuid());
    const std::string group = std::to_string(getgid());
    if (unshare(namespaces) != 0) {
        if (unshare(CLONE_NEWUSER | namespaces) != 0) {
            throw Unavailable(std::string("no private namespaces here: ") + std::strerror(errno));
        }
        write_file("/proc/self/setgroups", "deny");
        write_file("/proc/self/uid_map", "0 " + user + " 1");
        write_file("/proc/self/gid_map", "0 " + group + " 1");
    }
    // Without this a mount would show up outside.
    if ((namespaces & CLONE_NEWNS) != 0 && mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) {
        throw Unavailable(std::string("no private mounts here: ") + std::strerror(errno));
    }
}

[[noreturn]] inline void run_child(int output, int namespaces, const std::function<std::string()>& body) {
    std::string report;
    try {
        enter_namespaces(namespaces);
        report = "T" + body();
    } catch (const Unavailable& reason) {
        report = std::string("U") + reason.what();
    } catch (const std::exception& error) {
        report = std::string("Tthrown: ") + error.what();
    }
    std::size_t written = 0;
    while (written < report.size()) {
        const ssize_t part = write(output, report.data() + written, report.size() - written);
        if (part <= 0) {
            _exit(1);
        }
        written += static_cast<std::size_t>(part);
    }
    _exit(0);
}

}  // namespace child_process_detail

/**
 * Runs `body` in a forked child and hands back the text that it returns.
 *
 * @param namespaces  CLONE_NEWNET, CLONE_NEWNS or both, or 0 for none
 */
inline ChildReport run_in_child(int namespaces, const std::function<std::string()>& body) {
    int ends[2] = {-1, -1};
    if (pipe2(ends, O_CLOEXEC) != 0) {
        return {"no pipe", ""};
    }
    const pid_t child = fork();
    if (child == 0) {
        close(ends[0]);
        child_process_detail::run_child(ends[1], namespaces, body);
    }
    close(ends[1]);
    std::string report;
    char part[4096];
    for (ssize_t size = read(ends[0], part, sizeof part); size > 0; size = read(ends[0], part, sizeof part)) {
        report.append(part, static_cast<std::size_t>(size));
    }
    close(ends[0]);
    int status = 0;
    waitpid(child, &status, 0);
    if (report.empty() || status != 0) {
        return {"", "child ended with wait status " + std::to_string(status)};
    }
    return report.front() == 'U' ? ChildReport{report.substr(1), ""} : ChildReport{"", report.substr(1)};
}

/// Runs a command line of iproute2, whose program lies outside the path of ordinary users; false when it
/// fails.
inline bool run_ip(const std::string& arguments) {
    const std::string command = "PATH=\"$PATH:/usr/sbin:/sbin\" ip " + arguments + " 2>/dev/null";
    return std::system(command.c_str()) == 0;
}

/// The same for a child, or for what else cannot do without.
inline void ip(const std::string& arguments) {
    if (!run_ip(arguments)) {
        throw Unavailable("this machine cannot do: ip " + arguments);
    }
}

/// Takes capabilities (CAP_...) from what the child starts, where it is root; others have none.
inline void give_up(std::initializer_list<int> capabilities) {
    if (geteuid() != 0) {
        return;
    }
    for (const int capability : capabilities) {
        if (prctl(PR_CAPBSET_DROP, capability, 0, 0, 0) != 0) {
            throw Unavailable(std::string("cannot give up a capability: ") + std::strerror(errno));
        }
    }
}

/// Covers `directory` with an empty file system that only this mount namespace sees.
inline void mount_empty(const char* directory) {
    if (mount("tmpfs", directory, "tmpfs", 0, nullptr) != 0) {
        throw Unavailable(std::string("cannot mount over ") + directory + ": " + std::strerror(errno));
    }
}

}  // namespace tests

/// Skips the test, with the reason, when the child could not work on this machine.
#define SKIP_IF_UNAVAILABLE(report)               \
    do {                                          \
        if (!(report).unavailable.empty()) {      \
            GTEST_SKIP() << (report).unavailable; \
        }                                         \
    } while (false)
