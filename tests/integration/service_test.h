#pragma once
// Base of the tests that drive the real program: a show, a bus, the running service and its controller.

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "controller.h"
#include "forwarder_socket.h"
#include "service.h"
#include "session_bus.h"
#include "support/recording.h"
#include "support/show_directory.h"

namespace integration {

/**
 * Lays out a show, starts the service on it and talks to it.
 *
 * At the end of each test the service must still run, end by SIGTERM at once, and have printed nothing: a
 * sanitizer's report or an early exit fails the test.
 */
class ServiceTest : public ::testing::Test {
protected:
    ServiceTest();
    void TearDown() override;

    /// Starts the service and waits until it has finished starting up.
    void start(const ServiceSettings& settings = {});
    /// Ends the service and looks at how it ended.
    void end();
    /// Waits for the service to end by itself; the wait status, nothing at the deadline. For tests that
    /// expect it to, which then look at all of it themselves.
    [[nodiscard]] std::optional<int> wait_own_end();
    /// Ends the bus daemon without a word to anybody.
    void kill_bus() { bus_->kill(); }

    [[nodiscard]] Controller& controller() { return *controller_; }
    [[nodiscard]] Service& service() { return *service_; }
    [[nodiscard]] bool started() const { return service_ != nullptr; }
    [[nodiscard]] const SessionBus& bus() const { return *bus_; }
    [[nodiscard]] ShowDirectory& show() { return show_; }
    [[nodiscard]] const Installation& installation() const { return installation_; }
    /// The data root as the service's lines show it.
    [[nodiscard]] std::string data_root() const { return installation_.path() + "/bin/../data"; }

    /// Adds a playlist of one effect, recorded in "ID.rec", that keeps the recording's timing and goes to
    /// `outputs`.
    void add_playlist(int id, bool loop, const Recording& recording, const std::vector<std::string>& outputs);

    /// From now on log_since_mark() begins with the next line.
    void mark_log();
    [[nodiscard]] std::vector<std::string> log_since_mark() const;

private:
    ShowDirectory show_;
    Installation installation_;
    std::unique_ptr<SessionBus> bus_;
    std::unique_ptr<Service> service_;
    std::unique_ptr<Controller> controller_;
    std::size_t mark_ = 0;
    /// The test has seen to the service's end itself.
    bool ended_ = false;
};

/// Makes the application object that signals are delivered through, once per process.
void make_application();

}  // namespace integration
