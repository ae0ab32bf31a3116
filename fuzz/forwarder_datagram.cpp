// Fuzz target: what the forwarder does with one datagram: its check, its rules, and what it shows of it.
#include <algorithm>
#include <array>
#include <chrono>
#include <cstring>

#include <arpa/inet.h>

#include "artnet/forwarding_datagram.h"
#include "endpoint.h"
#include "rewrite.h"
#include "target.h"
#include "watch_statistics.h"

namespace fuzz {

namespace {

using artnet::ForwardingFault;

constexpr std::size_t kSize = artnet::kForwardingDatagramSize;

/// The check once more, straight from the layout.
ForwardingFault expected_fault(Input datagram) {
    if (datagram.size() != kSize) {
        return ForwardingFault::Size;
    }
    const std::string field(datagram.begin() + 4, datagram.begin() + 20);
    if (field.find('\0') == std::string::npos) {
        return ForwardingFault::UnterminatedAddress;
    }
    in_addr address{};
    if (inet_pton(AF_INET, field.c_str(), &address) != 1) {
        return ForwardingFault::InvalidAddress;
    }
    if (datagram[22] != 0 || datagram[23] != 0 || (datagram[20] == 0 && datagram[21] == 0)) {
        return ForwardingFault::Port;
    }
    return std::memcmp(&datagram[24], "Art-Net", 8) == 0 ? ForwardingFault::None
                                                         : ForwardingFault::Identifier;
}

/// Sends it through all that follows the check.
void follow(Input datagram, const artnet::ForwardingTarget& target) {
    const forwarder::Endpoint endpoint{target.address, target.port};
    const std::string text = forwarder::to_text(target.address);
    require(forwarder::parse_endpoint(forwarder::to_text(endpoint)) == endpoint, "a target reads back");
    std::array<unsigned char, kSize> again{};
    std::copy(datagram.begin(), datagram.end(), again.begin());
    artnet::write_forwarding_header(std::span(again).first<artnet::kForwardingHeaderSize>(), 0, text,
                                    target.port);
    artnet::ForwardingTarget same;
    require(artnet::parse_forwarding_datagram(again, same) == ForwardingFault::None && same == target,
            "a header written for a target leads to it");
    static const std::array<forwarder::Rewrite, 2> kRules{
        {{0xC0000200, 0xFFFFFF00, 0x7F000002}, {0x0A000000, 0xFF000000, 0x7F000003}}};
    const std::uint32_t rewritten = forwarder::rewritten(target.address, kRules);
    const bool first = target.address >> 8 == 0xC00002;
    const bool second = target.address >> 24 == 10;
    require(rewritten == (first    ? 0x7F000002
                          : second ? 0x7F000003
                                   : target.address),
            "the first rule counts");

    forwarder::DmxFrame frame;
    if (!forwarder::read_dmx(datagram.subspan(artnet::kForwardingHeaderSize), frame)) {
        return;
    }
    require(frame.levels.size() <= 512 && frame.universe <= 0xFFFF, "a frame is one of a universe");
    forwarder::WatchStatistics statistics;
    const forwarder::WatchStatistics::Clock::time_point begin{std::chrono::hours(1)};
    statistics.record(endpoint, frame, begin);
    statistics.record(endpoint, frame, begin + std::chrono::milliseconds(25));
    const auto rows = statistics.rows(begin + std::chrono::milliseconds(30));
    require(rows.size() == 1 && rows[0].frames == 2 && rows[0].universe == frame.universe &&
                std::equal(rows[0].levels.begin(), rows[0].levels.end(), frame.levels.begin(),
                           frame.levels.end()),
            "what is shown is what came");
}

bool run(Input input) {
    // The first byte chooses whether the rest is brought to the size that is looked at any further.
    std::vector<std::uint8_t> datagram;
    const bool any_size = take_byte(input) % 16 == 15;
    datagram.assign(input.begin(), input.end());
    if (!any_size) {
        datagram.resize(kSize, 0);
    }
    artnet::ForwardingTarget target;
    const ForwardingFault fault = artnet::parse_forwarding_datagram(datagram, target);
    require(fault == expected_fault(datagram), "a datagram is refused for the first reason that holds");
    if (fault == ForwardingFault::None) {
        follow(datagram, target);
    } else if (fault == ForwardingFault::Identifier) {
        require(target.port != 0, "a good header names a target, whatever it heads");
    } else {
        require(target == artnet::ForwardingTarget(), "a datagram with a bad header has no target");
    }
    return fault != ForwardingFault::Size;
}

std::string datagram(const std::string& address, int port, std::string_view packet) {
    std::array<unsigned char, kSize> bytes{};
    artnet::write_forwarding_header(std::span(bytes).first<artnet::kForwardingHeaderSize>(), 0x7FF0, address,
                                    port);
    std::copy_n(packet.begin(), std::min(packet.size(), artnet::kForwardedPacketSize),
                bytes.begin() + artnet::kForwardingHeaderSize);
    return {bytes.begin(), bytes.end()};
}

std::vector<Seed> seeds() {
    const std::string dmx("Art-Net\0\0\x50\0\x0E\1\0\5\0\2\0", 18);
    const std::string poll("Art-Net\0\0\x20\0\x0E", 12);
    const std::string oversized("Art-Net\0\0\x50\0\x0E\1\0\5\0\2\1", 18);
    return {
        with_choice("frame", 0, datagram("192.0.2.5", 6454, dmx + std::string(512, '\x7F'))),
        with_choice("broadcast", 0, datagram("255.255.255.255", 6454, dmx)),
        with_choice("rewritten", 0, datagram("10.1.2.3", 65535, dmx)),
        with_choice("poll", 0, datagram("192.0.2.5", 1, poll)),
        with_choice("oversized", 0, datagram("192.0.2.5", 6454, oversized)),
        with_choice("no_identifier", 0, datagram("192.0.2.5", 6454, "Art-Nut")),
        with_choice("port_0", 0, datagram("192.0.2.5", 0, dmx)),
        with_choice("negative_port", 0, datagram("192.0.2.5", -1, dmx)),
        with_choice("port_65536", 0, datagram("192.0.2.5", 65536, dmx)),
        with_choice("no_address", 0, datagram("", 6454, dmx)),
        with_choice("name", 0, datagram("localhost", 6454, dmx)),
        with_choice("long_address", 0, datagram("1922.1688.1000.2000", 6454, dmx)),
        with_choice("short", 15, datagram("192.0.2.5", 6454, dmx).substr(0, 100)),
        with_choice("long", 15, datagram("192.0.2.5", 6454, dmx) + "x"),
        with_choice("nothing", 15, ""),
    };
}

}  // namespace

Target forwarder_datagram() {
    return {"forwarder_datagram",
            run,
            seeds,
            560,
            "identifier=\"Art-Net\\x00\"\ndmx=\"Art-Net\\x00\\x00\\x50\"\naddress=\"192.0.2.5\\x00\"\n"
            "port=\"\\x36\\x19\\x00\\x00\"\nfull=\"\\x02\\x00\"\n",
            "core/libs/artnet/forwarding_datagram.cpp core/apps/output/forwarder/src/watch_statistics.cpp "
            "core/apps/output/forwarder/src/endpoint.cpp"};
}

}  // namespace fuzz
