#include "ctl_test.h"

#include <csignal>
#include <filesystem>
#include <fstream>

#include "bus/own_names.h"
#include "support/eventually.h"
#include "support/private_network.h"

namespace {

const std::string missing = tests::enter_private_network_with_eth0();

/// True when every thread of the process stands still.
bool is_halted(pid_t process) {
    for (const auto& task :
         std::filesystem::directory_iterator("/proc/" + std::to_string(process) + "/task")) {
        std::ifstream file(task.path() / "stat");
        std::string line;
        std::getline(file, line);
        if (line.find(") T ") == std::string::npos) {
            return false;
        }
    }
    return true;
}

}  // namespace

const std::string& network_missing() {
    return missing;
}

Ending ending_of(tests::ChildProgram& program) {
    std::optional<int> status;
    static_cast<void>(eventually([&] {
        status = program.wait_exit(std::chrono::milliseconds(0));
        return status.has_value();
    }));
    if (status) {
        // Now the outputs, too.
        status = program.wait_exit();
    }
    return {status, program.output(), program.error_output()};
}

std::vector<std::string> CtlTest::command(const std::vector<std::string>& arguments) const {
    std::vector<std::string> words{CTL_PROGRAM};
    words.insert(words.end(), arguments.begin(), arguments.end());
    return words;
}

std::vector<std::string> CtlTest::environment() const {
    return {"DBUS_SESSION_BUS_ADDRESS=" + bus().address()};
}

Ending CtlTest::ctl(const std::vector<std::string>& arguments) const {
    tests::ChildProgram program(command(arguments), environment());
    return ending_of(program);
}

Ending CtlTest::ctl_with_input(const std::string& input, const std::string& arguments) const {
    tests::ChildProgram program(
        {"/bin/sh", "-c", "printf '%s' '" + input + "' | " + std::string(CTL_PROGRAM) + " " + arguments},
        environment());
    return ending_of(program);
}

std::string CtlTest::ctl_well(const std::vector<std::string>& arguments) const {
    const Ending ending = ctl(arguments);
    EXPECT_EQ(ending.status, 0) << testing::PrintToString(arguments);
    EXPECT_EQ(ending.error, "") << testing::PrintToString(arguments);
    return ending.output;
}

void CtlTest::halt_service() {
    service().program().signal(SIGSTOP);
    EXPECT_TRUE(integration::wait_until([this] { return is_halted(service().program().pid()); }));
}

void CtlTest::resume_service() {
    service().program().signal(SIGCONT);
}

FakeDiscovery::FakeDiscovery(const std::string& bus_address, const QString& records)
    : connection_(bus_address), lister_(records) {
    EXPECT_TRUE(
        connection_.bus().registerObject(QStringLiteral("/"), &lister_, QDBusConnection::ExportAllSlots));
    EXPECT_TRUE(bus::own_name(connection_.bus(), QStringLiteral("com.torvexserver.Netsurvey")));
}

FakeDiscovery::~FakeDiscovery() {
    bus::disown_name(connection_.bus(), QStringLiteral("com.torvexserver.Netsurvey"));
}
