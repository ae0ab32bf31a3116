#include "session_bus.h"

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

SessionBus::SessionBus(const std::string& directory, const std::string& policy)
    : address_("unix:path=" + directory + "/bus") {
    const std::string configuration = directory + "/bus.conf";
    std::ofstream(configuration) << "<busconfig><type>session</type><listen>" << address_
                                 << "</listen><policy context=\"default\"><allow send_destination=\"*\" "
                                    "eavesdrop=\"true\"/><allow eavesdrop=\"true\"/><allow own=\"*\"/>"
                                    "</policy>"
                                 << policy << "</busconfig>\n";
    daemon_ = std::make_unique<StartedProgram>(
        ProgramSettings{{"/usr/bin/dbus-daemon", "--config-file=" + configuration, "--nofork", "--nopidfile"},
                        {"LC_ALL=C.UTF-8"},
                        directory + "/bus.output",
                        {}});
    running_ = daemon_->start_error() == 0 && wait_until([this, &directory] {
                   return !daemon_->running() || accepts_connections(directory + "/bus");
               });
    running_ = running_ && daemon_->running();
}

}  // namespace integration
