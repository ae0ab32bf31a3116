#pragma once
// The system calls of the socket under test: counted, recorded and failing on request.
// The test's link options send calls of these functions here first.

#include <optional>
#include <string>
#include <vector>

#include <sys/time.h>

/// What the wrapped calls saw and shall do. Reset by each test; one thread.
struct SystemCalls {
    /// Names of all calls so far, in order; fcntl with its command.
    std::vector<std::string> made;
    /// Descriptors that socket() gave.
    std::vector<int> created;
    std::vector<int> closed;
    /// Argument of the last F_SETFL, and what F_GETFL had given.
    int flags_read = -1;
    int flags_written = -1;
    /// What select() was given; none for a null pointer.
    std::optional<timeval> timeout;
    bool timeout_was_null = false;
    int poll_timeout = 0;

    /// The call that fails (a name as in `made`), how often, and its errno.
    std::string failing;
    int failures = 0;
    int error = 0;
    /// socket() gives descriptors of at least this number.
    int lowest_descriptor = 0;

    [[nodiscard]] int count(const std::string& name) const;
    /// Notes a call; true when it shall fail, with errno set.
    bool enter(const std::string& name);
};

extern SystemCalls system_calls;
