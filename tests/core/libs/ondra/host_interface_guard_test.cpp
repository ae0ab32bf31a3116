#include "ondra/host_interface_guard.h"

#include <fstream>

#include <sched.h>

#include <gtest/gtest.h>

#include "support/child_process.h"

namespace {

using ondra::device::host_interface_accessible;

TEST(HostInterfaceGuardTest, OpensOnlyWhereTheDeviceIs) {
    const tests::ChildReport report = tests::run_in_child(CLONE_NEWNS, [] {
        tests::mount_empty("/dev");
        const std::string absent = host_interface_accessible() ? "open" : "shut";
        std::ofstream("/dev/vchiq") << "x";
        return absent + " " + (host_interface_accessible() ? "open" : "shut");
    });
    SKIP_IF_UNAVAILABLE(report);
    EXPECT_EQ(report.text, "shut open");
}

}  // namespace
