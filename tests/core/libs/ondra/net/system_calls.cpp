#include "system_calls.h"

#include <algorithm>
#include <cerrno>
#include <cstdarg>

#include <fcntl.h>
#include <poll.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <unistd.h>

SystemCalls system_calls;

int SystemCalls::count(const std::string& name) const {
    return static_cast<int>(std::count(made.begin(), made.end(), name));
}

bool SystemCalls::enter(const std::string& name) {
    made.push_back(name);
    if (name != failing || failures == 0) {
        return false;
    }
    --failures;
    errno = error;
    return true;
}

extern "C" {
int __real_socket(int domain, int type, int protocol);
int __real_fcntl(int descriptor, int command, ...);
int __real_setsockopt(int descriptor, int level, int name, const void* value, socklen_t length);
int __real_close(int descriptor);
int __real_select(int count, fd_set* read, fd_set* write, fd_set* error, timeval* timeout);
int __real_poll(pollfd* entries, nfds_t count, int timeout);
ssize_t __real_recvfrom(int descriptor, void* data, size_t size, int flags, sockaddr* sender,
                        socklen_t* length);
ssize_t __real_sendto(int descriptor, const void* data, size_t size, int flags, const sockaddr* to,
                      socklen_t length);

int __wrap_socket(int domain, int type, int protocol);
int __wrap_fcntl(int descriptor, int command, ...);
int __wrap_fcntl64(int descriptor, int command, ...);
int __wrap_setsockopt(int descriptor, int level, int name, const void* value, socklen_t length);
int __wrap_close(int descriptor);
int __wrap_select(int count, fd_set* read, fd_set* write, fd_set* error, timeval* timeout);
int __wrap_poll(pollfd* entries, nfds_t count, int timeout);
ssize_t __wrap_recvfrom(int descriptor, void* data, size_t size, int flags, sockaddr* sender,
                        socklen_t* length);
ssize_t __wrap_sendto(int descriptor, const void* data, size_t size, int flags, const sockaddr* to,
                      socklen_t length);

int __wrap_socket(int domain, int type, int protocol) {
    if (system_calls.enter("socket")) {
        return -1;
    }
    int descriptor = __real_socket(domain, type, protocol);
    if (descriptor != -1 && system_calls.lowest_descriptor > 0) {
        const int moved = __real_fcntl(descriptor, F_DUPFD, system_calls.lowest_descriptor);
        __real_close(descriptor);
        descriptor = moved;
    }
    system_calls.created.push_back(descriptor);
    return descriptor;
}

int __wrap_fcntl(int descriptor, int command, ...) {
    va_list arguments;
    va_start(arguments, command);
    const int value = va_arg(arguments, int);
    va_end(arguments);
    const char* const name = command == F_GETFL ? "F_GETFL" : command == F_SETFL ? "F_SETFL" : "fcntl";
    if (system_calls.enter(name)) {
        return -1;
    }
    const int result = __real_fcntl(descriptor, command, value);
    if (command == F_GETFL) {
        system_calls.flags_read = result;
    }
    if (command == F_SETFL) {
        system_calls.flags_written = value;
    }
    return result;
}

// The same by the name that it has on 32-bit boards.
int __wrap_fcntl64(int descriptor, int command, ...) {
    va_list arguments;
    va_start(arguments, command);
    const int value = va_arg(arguments, int);
    va_end(arguments);
    return __wrap_fcntl(descriptor, command, value);
}

int __wrap_setsockopt(int descriptor, int level, int name, const void* value, socklen_t length) {
    return system_calls.enter("setsockopt") ? -1 : __real_setsockopt(descriptor, level, name, value, length);
}

int __wrap_close(int descriptor) {
    system_calls.enter("close");
    system_calls.closed.push_back(descriptor);
    return __real_close(descriptor);
}

int __wrap_select(int count, fd_set* read, fd_set* write, fd_set* error, timeval* timeout) {
    system_calls.timeout_was_null = timeout == nullptr;
    system_calls.timeout = timeout != nullptr ? std::optional<timeval>(*timeout) : std::nullopt;
    return system_calls.enter("select") ? -1 : __real_select(count, read, write, error, timeout);
}

int __wrap_poll(pollfd* entries, nfds_t count, int timeout) {
    system_calls.poll_timeout = timeout;
    return system_calls.enter("poll") ? -1 : __real_poll(entries, count, timeout);
}

ssize_t __wrap_recvfrom(int descriptor, void* data, size_t size, int flags, sockaddr* sender,
                        socklen_t* length) {
    return system_calls.enter("recvfrom") ? -1
                                          : __real_recvfrom(descriptor, data, size, flags, sender, length);
}

ssize_t __wrap_sendto(int descriptor, const void* data, size_t size, int flags, const sockaddr* to,
                      socklen_t length) {
    return system_calls.enter("sendto") ? -1 : __real_sendto(descriptor, data, size, flags, to, length);
}
}
