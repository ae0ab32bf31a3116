#pragma once
// Device facts for tests that link them instead of the real ones.

#include <cstdint>
#include <functional>

/// What ondra::device says. Set before the engine is built or while its worker is locked out.
struct FakeDevice {
    static constexpr const char* kBroadcastIp = "192.0.2.255";
    static constexpr std::uint16_t kManufacturer = 0x1234;

    /// Default values, and no initialisation seen.
    static void reset();
    static void set_manufacturer_id(std::uint16_t code);
    /// Called whenever the manufacturer's code is asked for, on the thread that asks.
    static void set_asked(std::function<void()> asked);
    /// Calls of ondra::device::initialize() so far.
    static int initialized();
};
