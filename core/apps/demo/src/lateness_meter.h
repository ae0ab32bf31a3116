#pragma once
// Has the monitor measure how late the frames of the show are.

#include <filesystem>
#include <memory>
#include <string>

#include "child_process.h"
#include "posix/file_descriptor.h"

namespace demo {

/**
 * The monitor at work: it listens where the forwarder sends its copies and compares them with a recording.
 *
 * What it measures is shown and not judged: whatever goes wrong becomes the reason why nothing was measured.
 * Main thread. Owned by the stage, which does the waiting.
 */
class LatenessMeter {
public:
    /**
     * Starts the monitor.
     *
     * @param program    the monitor; it need not be there
     * @param recording  what is to be played, at its own speed and levels
     * @param log        file that takes all that it says
     */
    LatenessMeter(const std::filesystem::path& program, const std::filesystem::path& recording,
                  const std::filesystem::path& log);

    /// Whether it is known where the monitor listens, or why it does not.
    [[nodiscard]] bool settled();
    /// ADDRESS:PORT for the forwarder's copies; empty when nobody wants any.
    [[nodiscard]] const std::string& place() const noexcept { return place_; }
    /// Why nothing is measured; empty as long as nothing went wrong.
    [[nodiscard]] const std::string& reason() const noexcept { return reason_; }

    /// Ends the monitor for that reason, unless it has settled.
    void give_up(const std::string& reason);
    /// Asks the monitor to end after what has arrived.
    void ask_to_end();
    /// Whether it has ended, or never ran.
    [[nodiscard]] bool ended();
    /// Once, at the end: ends it in any case, and says what it has measured, or why nothing, in lines that
    /// end in line feeds.
    [[nodiscard]] std::string result();

private:
    /// How the monitor has ended, as it must have, with its last words.
    [[nodiscard]] std::string ending() const;

    std::filesystem::path log_;
    std::unique_ptr<ChildProcess> monitor_;
    std::string place_;
    /// Not empty where there is no monitor.
    std::string reason_;
    /// Takes the monitor's place after it.
    posix::FileDescriptor stand_in_;
};

}  // namespace demo
