// The firmware's facts, through a stand-in for the board's host library that the real loading code finds.

#include "ondra/board_firmware.h"

#include <string>

#include <dlfcn.h>

#include <gtest/gtest.h>

#include "ondra/device_info.h"
#include "ondra/host_interface_guard.h"
#include "support/bcm_host_standin.h"
#include "support/child_process.h"

namespace {

bool accessible = true;

}  // namespace

// Takes the place of the library's own check for the board's device.
bool ondra::device::host_interface_accessible() {
    return accessible;
}

namespace {

using ondra::device::BoardFirmware;

class BoardFirmwareTest : public testing::Test {
protected:
    BoardFirmwareTest() {
        accessible = true;
        library_ = dlopen("libbcm_host.so.0", RTLD_NOW);
        if (library_ != nullptr) {
            reply(nullptr, 0, nullptr);
        }
    }

    void SetUp() override {
        ASSERT_NE(library_, nullptr) << "LD_LIBRARY_PATH must name the stand-in's directory, as ctest does";
    }

    void reply(const char* command, int result, const char* text) const {
        reinterpret_cast<decltype(&bcm_standin_reply)>(dlsym(library_, "bcm_standin_reply"))(command, result,
                                                                                             text);
    }

    [[nodiscard]] std::string calls() const {
        return reinterpret_cast<decltype(&bcm_standin_calls)>(dlsym(library_, "bcm_standin_calls"))();
    }

    void* library_ = nullptr;
};

TEST_F(BoardFirmwareTest, CommandIsOnePairOfInitialisationWithTheTextAsAnArgument) {
    reply("get_mem arm", 0, "arm=948M");
    const BoardFirmware firmware;
    EXPECT_EQ(firmware.command("get_mem arm", 32), "arm=948M");
    EXPECT_EQ(calls(), "init\ncommand %s get_mem arm 32\ndeinit\n");
}

TEST_F(BoardFirmwareTest, FailedCommandHasNoReplyAndStillDeinitialises) {
    reply("otp_dump", 1, "28:0000000000000001\n");
    const BoardFirmware firmware;
    EXPECT_EQ(firmware.command("otp_dump", 1024), std::nullopt);
    EXPECT_EQ(firmware.command("unknown", 1024), std::nullopt);
    EXPECT_EQ(calls(), "init\ncommand %s otp_dump 1024\ndeinit\ninit\ncommand %s unknown 1024\ndeinit\n");
}

TEST_F(BoardFirmwareTest, ReplyIsCutAtItsBuffer) {
    reply("get_mem arm", 0, "arm=0123456789012345678901234567890123456789");
    EXPECT_EQ(BoardFirmware().command("get_mem arm", 32), "arm=012345678901234567890123456");
}

TEST_F(BoardFirmwareTest, WithoutTheBoardsDeviceNothingIsInitialised) {
    reply("get_mem arm", 0, "arm=948M");
    accessible = false;
    EXPECT_EQ(BoardFirmware().command("get_mem arm", 32), std::nullopt);
    EXPECT_EQ(calls(), "");
}

TEST_F(BoardFirmwareTest, AddressesNeedNoInitialisation) {
    const BoardFirmware firmware;
    EXPECT_EQ(firmware.peripheral_address(), 0x3f000000U);
    EXPECT_EQ(firmware.peripheral_size(), 0x01000000U);
    EXPECT_EQ(firmware.sdram_address(), 0xc0000000U);
    EXPECT_EQ(calls(), "peripheral address\nperipheral size\nsdram address\n");
}

TEST_F(BoardFirmwareTest, DeviceFactsAreGatheredInOrder) {
    reply("otp_dump", 0, "27:x\n28:00000000a1b2c3d4\n30:00a02082\n");
    reply("get_mem arm", 0, "arm=948M");
    reply("get_mem gpu", 0, "gpu=76M");
    const tests::ChildReport report = tests::run_in_child(0, [this] {
        using namespace ondra::device;
        initialize();
        return serial_number() + "," + revision_number() + "," + peripheral_address() + "," +
               peripheral_size() + "," + sdram_address() + "," + arm_memory() + "," + gpu_memory() + "\n" +
               calls();
    });
    EXPECT_EQ(report.text,
              "00000000a1b2c3d4,00a02082,3f000000,01000000,c0000000,948M,76M\n"
              "init\ncommand %s otp_dump 1024\ndeinit\n"
              "init\ncommand %s otp_dump 1024\ndeinit\n"
              "peripheral address\nperipheral size\nsdram address\n"
              "init\ncommand %s get_mem arm 32\ndeinit\n"
              "init\ncommand %s get_mem gpu 32\ndeinit\n");
}

TEST_F(BoardFirmwareTest, FailedCommandsGiveEmptyFacts) {
    reply("otp_dump", 0, "28:\n30:00a0");
    const tests::ChildReport report = tests::run_in_child(0, [] {
        using namespace ondra::device;
        initialize();
        return serial_number() + "," + revision_number() + "," + arm_memory() + "," + gpu_memory();
    });
    EXPECT_EQ(report.text, ",,,");
}

}  // namespace
