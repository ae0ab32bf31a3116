// Brand and network facts; each test gathers them in a process of its own, since that happens once.

#include "ondra/device_info.h"

#include <filesystem>
#include <fstream>
#include <string>

#include <dlfcn.h>
#include <sched.h>

#include <gtest/gtest.h>

#include "ondra/brand.h"
#include "support/child_process.h"

namespace {

using namespace ondra::device;

std::string brand_facts() {
    return short_name() + "," + long_name() + "," + manufacturer() + "," + model() + "," +
           std::to_string(oem_id()) + "," + std::to_string(manufacturer_id()) + "," + modules();
}

std::string default_brand_facts() {
    const Brand brand;
    return "Recorder,Torvex ArtNet Recorder,Torvex,Z-900," + std::to_string(brand.oem_id) + "," +
           std::to_string(brand.manufacturer_id) + ",recorder";
}

std::string network_facts() {
    return ip_address() + "," + broadcast_ip() + "," + mac_address();
}

std::string firmware_facts() {
    return serial_number() + "," + revision_number() + "," + peripheral_address() + "," + peripheral_size() +
           "," + sdram_address() + "," + arm_memory() + "," + gpu_memory();
}

/// Writes the brand file below an /opt that only this process sees.
void write_brand(const std::string& content) {
    std::filesystem::create_directories("/opt/torvex/data/cfg");
    std::ofstream("/opt/torvex/data/cfg/brand.json") << content;
}

tests::ChildReport brand_after(const std::string& content) {
    return tests::run_in_child(CLONE_NEWNS | CLONE_NEWNET, [&content] {
        tests::mount_empty("/opt");
        if (!content.empty()) {
            write_brand(content);
        }
        initialize();
        return brand_facts();
    });
}

tests::ChildReport network_after(void (*prepare)()) {
    return tests::run_in_child(CLONE_NEWNET, [prepare] {
        prepare();
        initialize();
        return network_facts();
    });
}

TEST(DeviceInfoTest, BeforeInitializationDefaultsHoldAndTheRestIsEmpty) {
    const tests::ChildReport report =
        tests::run_in_child(0, [] { return brand_facts() + ";" + network_facts() + ";" + firmware_facts(); });
    EXPECT_EQ(report.text, default_brand_facts() + ";,,;,,,,,,");
}

TEST(DeviceInfoTest, WithoutABrandFileTheDefaultsHold) {
    const tests::ChildReport report = brand_after("");
    SKIP_IF_UNAVAILABLE(report);
    EXPECT_EQ(report.text, default_brand_facts());
}

TEST(DeviceInfoTest, BrandFileIsReadFromItsPlace) {
    const tests::ChildReport report = brand_after(
        R"({"short_name": "S", "long_name": "L", "manufacturer": "M", "model": "X", "oem_id": 65541,
            "manufacturer_id": "77", "modules": ["a", "b", "c"]})");
    SKIP_IF_UNAVAILABLE(report);
    EXPECT_EQ(report.text, "S,L,M,X,5,77,a|b|c");
}

TEST(DeviceInfoTest, BrandFileWithOnlyTheModelEmptiesTheRest) {
    const tests::ChildReport report = brand_after(R"({"model": "X"})");
    SKIP_IF_UNAVAILABLE(report);
    EXPECT_EQ(report.text, ",,,X,0,0,");
}

TEST(DeviceInfoTest, BrandFileWithAnArrayKeepsEveryDefault) {
    const tests::ChildReport report = brand_after(R"([{"model": "X"}])");
    SKIP_IF_UNAVAILABLE(report);
    EXPECT_EQ(report.text, default_brand_facts());
}

TEST(DeviceInfoTest, SecondInitializationDoesNothing) {
    const tests::ChildReport report = tests::run_in_child(CLONE_NEWNS, [] {
        tests::mount_empty("/opt");
        write_brand(R"({"model": "first"})");
        initialize();
        write_brand(R"({"model": "second"})");
        initialize();
        return model();
    });
    SKIP_IF_UNAVAILABLE(report);
    EXPECT_EQ(report.text, "first");
}

TEST(DeviceInfoTest, HostWithoutTheWiredInterfaceHasNoNetworkFacts) {
    const tests::ChildReport report = network_after([] { tests::ip("link set lo up"); });
    SKIP_IF_UNAVAILABLE(report);
    EXPECT_EQ(report.text, ",,");
}

TEST(DeviceInfoTest, WiredInterfaceGivesAddressBroadcastAndHardwareAddress) {
    const tests::ChildReport report = network_after([] {
        tests::ip("link add eth0 address 02:0a:b0:0c:0d:f1 type veth peer name peer0");
        tests::ip("addr add 10.0.0.5/24 brd 10.0.0.255 dev eth0");
    });
    SKIP_IF_UNAVAILABLE(report);
    EXPECT_EQ(report.text, "0a000005,10.0.0.255,020ab00c0df1");
}

TEST(DeviceInfoTest, OfTwoBroadcastAddressesTheSecondIsReported) {
    const tests::ChildReport report = network_after([] {
        tests::ip("link add eth0 address 02:00:00:00:00:01 type veth peer name peer0");
        tests::ip("addr add 10.0.0.5/24 brd 10.0.0.255 dev eth0");
        tests::ip("addr add 10.1.0.5/16 brd 10.1.255.255 dev eth0");
    });
    SKIP_IF_UNAVAILABLE(report);
    EXPECT_EQ(report.text, "0a000005,10.1.255.255,020000000001");
}

TEST(DeviceInfoTest, Ipv6EntriesArePassedOver) {
    const tests::ChildReport report = network_after([] {
        tests::ip("link add eth0 address 02:00:00:00:00:01 type veth peer name peer0");
        tests::ip("addr add 10.0.0.5/24 brd 10.0.0.255 dev eth0");
        tests::ip("addr add fd00::5/64 dev eth0");
    });
    SKIP_IF_UNAVAILABLE(report);
    EXPECT_EQ(report.text, "0a000005,10.0.0.255,020000000001");
}

TEST(DeviceInfoTest, WithoutTheBoardsLibraryFirmwareFactsAreEmpty) {
    for (const char* name : {"libbcm_host.so.0", "libbcm_host.so", "/opt/vc/lib/libbcm_host.so"}) {
        if (dlopen(name, RTLD_LAZY) != nullptr) {
            GTEST_SKIP() << "this machine has " << name;
        }
    }
    const tests::ChildReport report = tests::run_in_child(0, [] {
        initialize();
        return firmware_facts();
    });
    EXPECT_EQ(report.text, ",,,,,,");
}

}  // namespace
