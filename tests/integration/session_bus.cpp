#include "session_bus.h"

#include <csignal>
#include <cstring>
#include <fstream>

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace integration {

namespace {

bool accepts_connections(const std::string& path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    const int probe = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const bool connected = connect(probe, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
    close(probe);
    return connected;
}

}  // namespace

SessionBus::SessionBus(const std::string& directory, const std::string& policy, const SessionBus* before) {
    // Else each bus has a socket of its own: at the place of another one, which has ended or is just ending,
    // nobody could tell whose it is.
    static int count = 0;
    socket_path_ = before != nullptr ? before->socket_path_ : directory + "/bus" + std::to_string(++count);
    address_ = "unix:path=" + socket_path_;
    const std::string configuration = socket_path_ + ".conf";
    std::ofstream(configuration) << "<busconfig><type>session</type><listen>" << address_
                                 << "</listen><policy context=\"default\"><allow send_destination=\"*\" "
                                    "eavesdrop=\"true\"/><allow eavesdrop=\"true\"/><allow own=\"*\"/>"
                                    "</policy>"
                                 << policy << "</busconfig>\n";
    daemon_ = std::make_unique<StartedProgram>(
        ProgramSettings{{"/usr/bin/dbus-daemon", "--config-file=" + configuration, "--nofork", "--nopidfile"},
                        {"LC_ALL=C.UTF-8"},
                        socket_path_ + ".output",
                        {}});
    running_ = daemon_->start_error() == 0 &&
               wait_until([this] { return !daemon_->running() || accepts_connections(socket_path_); });
    running_ = running_ && daemon_->running();
}

void SessionBus::kill() {
    daemon_->signal(SIGKILL);
    // A killed process always ends.
    static_cast<void>(daemon_->wait_end());
    running_ = false;
}

}  // namespace integration
