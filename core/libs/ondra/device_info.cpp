#include "ondra/device_info.h"

#include <array>
#include <cstdio>
#include <optional>

#include "ondra/board_firmware.h"
#include "ondra/brand.h"
#include "ondra/firmware_reply.h"
#include "ondra/net/interface_identity.h"

namespace ondra::device {

namespace {

constexpr char kBrandFile[] = "/opt/torvex/data/cfg/brand.json";
constexpr char kWiredInterface[] = "eth0";
constexpr int kSerialNumberRow = 28;
constexpr int kRevisionNumberRow = 30;
/// Bytes of the firmware's reply buffers.
constexpr std::size_t kOtpReplySize = 1024;
constexpr std::size_t kMemoryReplySize = 32;

/// Everything known. Written by initialize() before other threads start, only read afterwards.
struct Facts {
    bool initialized = false;
    Brand brand;
    std::string serial_number;
    std::string revision_number;
    std::string ip_address;
    std::string broadcast_ip;
    std::string mac_address;
    std::string peripheral_address;
    std::string peripheral_size;
    std::string sdram_address;
    std::string arm_memory;
    std::string gpu_memory;
};

Facts& facts() {
    static Facts all;
    return all;
}

std::string parse_otp_dump(const BoardFirmware& firmware, int row) {
    const std::optional<std::string> reply = firmware.command("otp_dump", kOtpReplySize);
    return reply ? parse_otp_reply(*reply, row) : std::string();
}

std::string parse_memory(const BoardFirmware& firmware, bool arm) {
    const std::optional<std::string> reply =
        firmware.command(std::string("get_mem ") + (arm ? "arm" : "gpu"), kMemoryReplySize);
    return reply ? parse_memory_reply(*reply) : std::string();
}

/// Eight lowercase hex digits; empty without a value.
std::string hex(std::optional<unsigned> value) {
    if (!value) {
        return {};
    }
    std::array<char, 9> text{};
    std::snprintf(text.data(), text.size(), "%.8x", *value);
    return text.data();
}

}  // namespace

void initialize() {
    Facts& all = facts();
    if (all.initialized) {
        return;
    }
    all.initialized = true;
    all.brand = read_brand_file(QLatin1String(kBrandFile));
    const BoardFirmware firmware;
    all.serial_number = parse_otp_dump(firmware, kSerialNumberRow);
    all.revision_number = parse_otp_dump(firmware, kRevisionNumberRow);
    all.ip_address = net::ip_address_hex(kWiredInterface);
    all.broadcast_ip = net::broadcast_address(kWiredInterface);
    all.mac_address = net::hardware_address_hex(kWiredInterface);
    all.peripheral_address = hex(firmware.peripheral_address());
    all.peripheral_size = hex(firmware.peripheral_size());
    all.sdram_address = hex(firmware.sdram_address());
    all.arm_memory = parse_memory(firmware, true);
    all.gpu_memory = parse_memory(firmware, false);
}

std::string short_name() {
    return facts().brand.short_name;
}
std::string long_name() {
    return facts().brand.long_name;
}
std::string manufacturer() {
    return facts().brand.manufacturer;
}
std::string model() {
    return facts().brand.model;
}
std::uint16_t oem_id() {
    return facts().brand.oem_id;
}
std::uint16_t manufacturer_id() {
    return facts().brand.manufacturer_id;
}
std::string modules() {
    return facts().brand.modules;
}
std::string serial_number() {
    return facts().serial_number;
}
std::string revision_number() {
    return facts().revision_number;
}
std::string ip_address() {
    return facts().ip_address;
}
std::string broadcast_ip() {
    return facts().broadcast_ip;
}
std::string mac_address() {
    return facts().mac_address;
}
std::string peripheral_address() {
    return facts().peripheral_address;
}
std::string peripheral_size() {
    return facts().peripheral_size;
}
std::string sdram_address() {
    return facts().sdram_address;
}
std::string arm_memory() {
    return facts().arm_memory;
}
std::string gpu_memory() {
    return facts().gpu_memory;
}

}  // namespace ondra::device
