#include "service_test.h"

#include <csignal>

#include <sys/wait.h>
#include <QCoreApplication>

namespace integration {

void make_application() {
    static int argc = 1;
    static char name[] = "integration";
    static char* argv[] = {name, nullptr};
    // Kept to the end of the process: connections must not outlive it.
    static QCoreApplication* const application = new QCoreApplication(argc, argv);
    static_cast<void>(application);
}

ServiceTest::ServiceTest() : installation_(show_.root().toStdString()) {
    make_application();
}

void ServiceTest::start(const ServiceSettings& settings) {
    bus_ = std::make_unique<SessionBus>(installation_.path());
    ASSERT_TRUE(bus_->running()) << "no bus: is dbus-daemon installed?";
    ServiceSettings with_bus = settings;
    with_bus.environment.push_back("DBUS_SESSION_BUS_ADDRESS=" + bus_->address());
    service_ = std::make_unique<Service>(installation_, with_bus);
    ASSERT_EQ(service_->program().start_error(), 0);
    // The last lines of the start-up; the worker's comes when the worker runs.
    ASSERT_TRUE(service_->wait_for_log(
        "info [Repeater::set_playlist_desc_path] Set playlist desc path (path:playlists/playlists.json)"))
        << service_->output();
    ASSERT_TRUE(service_->wait_for_log("info [Repeater::do_render_work] Start render worker"));
    controller_ = std::make_unique<Controller>(bus_->address());
    mark_log();
}

void ServiceTest::end() {
    if (ended_ || service_ == nullptr || service_->program().start_error() != 0) {
        return;
    }
    EXPECT_TRUE(service_->program().running()) << "the service has ended by itself";
    service_->program().signal(SIGTERM);
    const std::optional<int> status = service_->program().wait_end();
    ASSERT_TRUE(status.has_value()) << "the service does not end";
    EXPECT_TRUE(WIFSIGNALED(*status) && WTERMSIG(*status) == SIGTERM) << "wait status " << *status;
    EXPECT_EQ(service_->output(), "");
    controller_.reset();
    service_.reset();
}

std::optional<int> ServiceTest::wait_own_end() {
    ended_ = true;
    return service_->program().wait_end();
}

void ServiceTest::TearDown() {
    end();
}

void ServiceTest::add_playlist(int id, bool loop, const Recording& recording,
                               const std::vector<std::string>& outputs) {
    const std::string file = std::to_string(id) + ".rec";
    ShowEffect effect(file);
    for (const std::string& output : outputs) {
        effect.output(output);
    }
    show_.recording(file, recording.bytes()).playlist(ShowPlaylist(id).loop(loop).effect(effect));
}

void ServiceTest::mark_log() {
    mark_ = service_->raw_log().size();
}

std::vector<std::string> ServiceTest::log_since_mark() const {
    std::vector<std::string> lines = service_->log();
    lines.erase(lines.begin(), lines.begin() + static_cast<std::ptrdiff_t>(mark_));
    return lines;
}

}  // namespace integration
