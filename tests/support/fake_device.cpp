#include "support/fake_device.h"

#include <atomic>
#include <string>

#include "ondra/device_info.h"

namespace {

std::atomic<std::uint16_t> manufacturer_code{FakeDevice::kManufacturer};
std::atomic<int> initializations{0};

}  // namespace

void FakeDevice::reset() {
    manufacturer_code.store(kManufacturer);
    initializations.store(0);
}

void FakeDevice::set_manufacturer_id(std::uint16_t code) {
    manufacturer_code.store(code);
}

int FakeDevice::initialized() {
    return initializations.load();
}

// The facts that the engine links; with them defined here, the archive's own source stays out.
namespace ondra::device {

void initialize() {
    initializations.fetch_add(1);
}

std::string broadcast_ip() {
    // Gathered by initialize(): before it there is nothing to show.
    return initializations.load() == 0 ? std::string() : FakeDevice::kBroadcastIp;
}

std::uint16_t manufacturer_id() {
    return manufacturer_code.load();
}

}  // namespace ondra::device
