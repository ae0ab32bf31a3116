#pragma once
// A session bus of a test's own.

#include <memory>
#include <string>

#include "started_program.h"

namespace integration {

/// Runs a bus daemon that nothing else on the machine uses; it ends with the object.
class SessionBus {
public:
    /**
     * @param directory  where socket and configuration go; short, since a socket's path is limited
     * @param policy     further elements of the daemon's configuration, after those that allow everything
     * @param before     one that has ended, at whose address this one is; null for an address of its own
     */
    explicit SessionBus(const std::string& directory, const std::string& policy = "",
                        const SessionBus* before = nullptr);

    /// False when the daemon did not come up, usually because it is not installed.
    [[nodiscard]] bool running() const { return running_; }
    [[nodiscard]] const std::string& address() const { return address_; }
    /// Ends the daemon at once and waits until it is gone.
    void kill();

private:
    std::string socket_path_;
    std::string address_;
    std::unique_ptr<StartedProgram> daemon_;
    bool running_ = false;
};

}  // namespace integration
