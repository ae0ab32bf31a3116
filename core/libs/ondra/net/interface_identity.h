#pragma once
// Addresses of one network interface of this machine.

#include <string>

#include <QList>
#include <QNetworkAddressEntry>

namespace ondra::net {

/// First IPv4 address of the interface, 8 lowercase hex digits; empty on any failure. Names are cut at the
/// kernel's 15 characters.
[[nodiscard]] std::string ip_address_hex(const std::string& interface);

/// Hardware address, 12 lowercase hex digits without separators; empty on any failure.
[[nodiscard]] std::string hardware_address_hex(const std::string& interface);

/// Broadcast address of the last entry that is IPv4 and has one, dotted; empty when there is none.
[[nodiscard]] std::string last_broadcast_address(const QList<QNetworkAddressEntry>& entries);

/// last_broadcast_address() of the interface's entries; empty when there is no such interface.
[[nodiscard]] std::string broadcast_address(const std::string& interface);

}  // namespace ondra::net
