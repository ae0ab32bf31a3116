#pragma once
// What comes out of the service, held against what must be heard.

#include <string>
#include <vector>

#include "control_model.h"
#include "forwarder_socket.h"

namespace stress {

/// Listens at the ports that the show's frames go to. Used by the test's thread only.
class Audience {
public:
    /// @param sockets  which outlive it
    explicit Audience(std::vector<integration::ForwarderSocket*> sockets) : sockets_(std::move(sockets)) {}

    /**
     * Waits until every universe that must be heard has been heard several times with its very levels, and
     * no other but the uncertain ones meanwhile.
     *
     * Datagrams may still be on their way when the call that silences or changes them is answered. So wrong
     * ones may come first, before any right one of their universe, and in one stretch of some frames only:
     * the next one has to be clean. Empty, or what is wrong.
     */
    [[nodiscard]] std::string listen(const std::vector<model::Audible>& audible,
                                     const std::vector<int>& uncertain);
    /// Empties the sockets.
    void skip();
    [[nodiscard]] long long frames() const { return frames_; }

private:
    struct Stretch {
        /// What no datagram on its way explains; empty if all is well.
        std::string wrong;
        /// What one on its way would explain.
        std::string stale;
    };
    /// Lasts for some right frames of each universe, or for a while when none must be heard.
    Stretch stretch(const std::vector<model::Audible>& audible, const std::vector<int>& uncertain);

    std::vector<integration::ForwarderSocket*> sockets_;
    long long frames_ = 0;
};

}  // namespace stress
