#pragma once
// Facts about the device: brand, wired network identity and board firmware.

#include <cstdint>
#include <string>

namespace ondra::device {

/// Gathers all facts once; later calls do nothing. Main thread, before any other thread starts. Cannot fail:
/// what cannot be gathered stays at its default or becomes empty.
void initialize();

// Each returns a copy of the stored fact. Any thread once initialize() has returned.
std::string short_name();
std::string long_name();
std::string manufacturer();
std::string model();
std::uint16_t oem_id();
std::uint16_t manufacturer_id();
std::string modules();
std::string serial_number();
std::string revision_number();
/// IPv4 address of "eth0", 8 lowercase hex digits.
std::string ip_address();
/// IPv4 broadcast address of "eth0", dotted.
std::string broadcast_ip();
/// Hardware address of "eth0", 12 lowercase hex digits.
std::string mac_address();
std::string peripheral_address();
std::string peripheral_size();
std::string sdram_address();
std::string arm_memory();
std::string gpu_memory();

}  // namespace ondra::device
