// A host library that lacks most functions: what is missing has no answer.

#include <gtest/gtest.h>

#include "ondra/board_firmware.h"
#include "ondra/device_info.h"
#include "ondra/host_interface_guard.h"
#include "support/child_process.h"

bool ondra::device::host_interface_accessible() {
    return true;
}

namespace {

using ondra::device::BoardFirmware;

TEST(BoardFirmwarePartialTest, MissingFunctionsHaveNoAnswer) {
    const BoardFirmware firmware;
    EXPECT_EQ(firmware.peripheral_size(), 0x1800000U) << "LD_LIBRARY_PATH must name the stand-in's directory";
    EXPECT_EQ(firmware.peripheral_address(), std::nullopt);
    EXPECT_EQ(firmware.sdram_address(), std::nullopt);
}

TEST(BoardFirmwarePartialTest, CommandsAreNotSentWithoutInitialisation) {
    EXPECT_EQ(BoardFirmware().command("otp_dump", 1024), std::nullopt);
}

TEST(BoardFirmwarePartialTest, MissingFunctionsLeaveFactsEmpty) {
    const tests::ChildReport report = tests::run_in_child(0, [] {
        using namespace ondra::device;
        initialize();
        return serial_number() + "," + peripheral_address() + "," + peripheral_size() + "," +
               sdram_address() + "," + arm_memory();
    });
    EXPECT_EQ(report.text, ",,01800000,,");
}

}  // namespace
