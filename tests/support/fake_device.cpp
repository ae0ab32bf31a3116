#include "support/fake_device.h"

#include <atomic>
#include <mutex>
#include <string>
#include <utility>

#include "ondra/device_info.h"

namespace {

std::atomic<std::uint16_t> manufacturer_code{FakeDevice::kManufacturer};
std::atomic<int> initializations{0};
std::mutex asked_mutex;
/// Guarded by asked_mutex.
std::function<void()> when_asked;

}  // namespace

void FakeDevice::reset() {
    manufacturer_code.store(kManufacturer);
    initializations.store(0);
    set_asked(nullptr);
}

void FakeDevice::set_manufacturer_id(std::uint16_t code) {
    manufacturer_code.store(code);
}

void FakeDevice::set_asked(std::function<void()> asked) {
    const std::lock_guard guard{asked_mutex};
    when_asked = std::move(asked);
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
    {
        const std::lock_guard guard{asked_mutex};
        if (when_asked) {
            when_asked();
        }
    }
    return manufacturer_code.load();
}

}  // namespace ondra::device
