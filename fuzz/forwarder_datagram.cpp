// Fuzz target: what the forwarder does with one datagram: its check, its rules, and what it shows of it.
#include <algorithm>
#include <array>
#include <chrono>
#include <cmath>
#include <cstring>
#include <string_view>

#include <arpa/inet.h>

#include "artnet/forwarding_datagram.h"
#include "endpoint.h"
#include "outlet_rule.h"
#include "rewrite.h"
#include "target.h"
#include "watch_statistics.h"

namespace fuzz {

namespace {

using artnet::ForwardingFault;

constexpr std::size_t kSize = artnet::kForwardingDatagramSize;
constexpr std::string_view kIdentifier("Art-Net\0", 8);

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

/// A live view without room for another stream.
struct FullView {
    FullView() {
        for (unsigned universe = 0; universe < forwarder::WatchStatistics::kMostStreams; ++universe) {
            statistics.record(kEndpoint, {universe, {}}, {});
        }
    }
    /// Whether a frame of `universe` to `endpoint` belongs to one of its streams.
    static bool knows(const forwarder::Endpoint& endpoint, unsigned universe) {
        return endpoint == kEndpoint && universe < forwarder::WatchStatistics::kMostStreams;
    }
    static constexpr forwarder::Endpoint kEndpoint{0x0A000001, 6454};
    forwarder::WatchStatistics statistics;
};

bool nearly_equal(double a, double b) {
    return std::abs(a - b) <= 1e-9 * std::max(a, b);
}

/// Shows two frames in the live view, the second `gap` after the first and `age` old.
void watch(const forwarder::Endpoint& endpoint, const forwarder::DmxFrame& frame,
           std::chrono::microseconds gap, std::chrono::microseconds age) {
    using forwarder::WatchStatistics;
    WatchStatistics statistics;
    const WatchStatistics::Clock::time_point begin{std::chrono::hours(1)};
    statistics.record(endpoint, frame, begin);
    const auto first = statistics.rows(begin);
    require(first.size() == 1 && first[0].frames == 1 && first[0].fps == 0 && first[0].interval_max == 0,
            "one frame has no rate");
    statistics.record(endpoint, frame, begin + gap);
    const auto rows = statistics.rows(begin + gap + age);
    require(rows.size() == 1 && rows[0].frames == 2 && rows[0].universe == frame.universe &&
                rows[0].target == endpoint &&
                std::equal(rows[0].levels.begin(), rows[0].levels.end(), frame.levels.begin(),
                           frame.levels.end()),
            "what is shown is what came");
    const bool both = gap + age <= WatchStatistics::kWindow;
    const std::chrono::duration<double> interval = gap;
    require(nearly_equal(rows[0].interval_p50, both ? interval.count() * 1000 : 0) &&
                rows[0].interval_p99 == rows[0].interval_p50 && rows[0].interval_max == rows[0].interval_p50,
            "an interval lasts from one frame to the next within the window");
    const bool rated = both && gap.count() > 0 && age <= WatchStatistics::kIdleAfter;
    require(nearly_equal(rows[0].fps, rated ? 1 / interval.count() : 0), "a rate is that of the intervals");

    static FullView full;
    const std::uint64_t before = full.statistics.frames_beyond_limit();
    full.statistics.record(endpoint, frame, begin);
    require(
        full.statistics.frames_beyond_limit() - before == (FullView::knows(endpoint, frame.universe) ? 0 : 1),
        "a stream that finds no room is counted");
}

/// Sends it through all that follows the check.
void follow(Input datagram, const artnet::ForwardingTarget& target) {
    const forwarder::Endpoint endpoint{target.address, target.port};
    const std::string text = forwarder::to_text(target.address);
    require(forwarder::parse_endpoint(forwarder::to_text(endpoint)) == endpoint, "a target reads back");
    const sockaddr_in socket_address = forwarder::to_sockaddr(endpoint);
    require(socket_address.sin_family == AF_INET && ntohl(socket_address.sin_addr.s_addr) == target.address &&
                ntohs(socket_address.sin_port) == target.port,
            "a packet is sent to its target");
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

    const Input packet = datagram.subspan(artnet::kForwardingHeaderSize);
    // The manufacturer's code, which the forwarder leaves alone, chooses the options and sets the times.
    require_outlet_follows_its_options(packet, datagram[2]);
    forwarder::DmxFrame frame;
    if (forwarder::read_dmx(packet, frame)) {
        require(frame.levels.size() <= 512 && frame.universe <= 0xFFFF, "a frame is one of a universe");
        const std::chrono::microseconds gap(datagram[0] | datagram[1] << 8 | datagram[2] << 16);
        watch(endpoint, frame, gap, std::chrono::milliseconds(10 * datagram[3]));
    }
}

/// What a command line may say, read from the bytes of a datagram.
void read_texts(Input datagram) {
    std::string text = to_string(datagram.subspan(4, 24));
    text.resize(std::min(text.find('\0'), text.size()));
    in_addr address{};
    const bool dotted = inet_pton(AF_INET, text.c_str(), &address) == 1;
    const auto parsed = forwarder::parse_address(text);
    require(parsed.has_value() == dotted && (!parsed || *parsed == ntohl(address.s_addr)),
            "an address is dotted text");
    if (const auto endpoint = forwarder::parse_endpoint(text)) {
        require(endpoint->port != 0 && forwarder::parse_endpoint(forwarder::to_text(*endpoint)) == endpoint,
                "an endpoint reads back");
    }
}

/// How the first byte has the others taken.
enum class Layout { AsItIs, Raw, ValidHeader };

Layout layout_of(std::uint8_t choice) {
    return choice % 16 == 15 ? Layout::AsItIs : choice % 2 == 0 ? Layout::Raw : Layout::ValidHeader;
}

/// The rest as a datagram: any bytes, those brought to the size that is looked at any further, or the times
/// of watch(), an address, a port and a packet behind the identifier.
std::vector<std::uint8_t> datagram_of(Layout layout, Input input) {
    std::vector<std::uint8_t> bytes(input.begin(), input.end());
    if (layout == Layout::AsItIs) {
        return bytes;
    }
    if (layout == Layout::Raw) {
        bytes.resize(kSize, 0);
        return bytes;
    }
    constexpr std::size_t kFields = 10;
    bytes.resize(kFields + kSize - artnet::kForwardingHeaderSize - kIdentifier.size(), 0);
    const auto packet = bytes.begin() + kFields;
    std::vector<std::uint8_t> datagram(kSize, 0);
    std::uint32_t address = 0;
    for (std::size_t index = 8; index-- > 4;) {
        address = address << 8 | bytes[index];
    }
    artnet::write_forwarding_header(std::span<unsigned char, artnet::kForwardingHeaderSize>(datagram), 0,
                                    forwarder::to_text(address), bytes[8] | bytes[9] << 8);
    std::copy_n(bytes.begin(), 4, datagram.begin());
    const auto identifier = datagram.begin() + artnet::kForwardingHeaderSize;
    std::copy(packet, bytes.end(), std::copy(kIdentifier.begin(), kIdentifier.end(), identifier));
    return datagram;
}

bool run(Input input) {
    const Layout layout = layout_of(take_byte(input));
    const std::vector<std::uint8_t> datagram = datagram_of(layout, input);
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
    if (fault != ForwardingFault::Size) {
        read_texts(datagram);
    }
    return fault == ForwardingFault::None;
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
    constexpr int kAsItIs = 15;
    constexpr int kRaw = 0;
    constexpr int kValidHeader = 1;
    const std::string no_code(4, '\0');
    // 25 ms, the last 10 ms ago, to 192.0.2.5:6454.
    const std::string to_node("\xA8\x61\0\1\5\2\0\xC0\x36\x19", 10);
    const std::string one_level = dmx.substr(kIdentifier.size()) + "\xFF";
    return {
        with_choice("frame", kRaw, datagram("192.0.2.5", 6454, dmx + std::string(512, '\x7F'))),
        with_choice("broadcast", kRaw, datagram("255.255.255.255", 6454, dmx)),
        with_choice("rewritten", kRaw, datagram("10.1.2.3", 65535, dmx)),
        with_choice("poll", kRaw, datagram("192.0.2.5", 1, poll)),
        with_choice("oversized", kRaw, datagram("192.0.2.5", 6454, oversized)),
        with_choice("no_identifier", kRaw, datagram("192.0.2.5", 6454, "Art-Nut")),
        with_choice("port_0", kRaw, datagram("192.0.2.5", 0, dmx)),
        with_choice("negative_port", kRaw, datagram("192.0.2.5", -1, dmx)),
        with_choice("port_65536", kRaw, datagram("192.0.2.5", 65536, dmx)),
        with_choice("no_address", kRaw, datagram("", 6454, dmx)),
        with_choice("name", kRaw, datagram("localhost", 6454, dmx)),
        with_choice("long_address", kRaw, datagram("1922.1688.1000.2000", 6454, dmx)),
        with_choice("endpoint_text", kRaw, no_code + "192.0.2.5:6454"),
        with_choice("endpoint_without_port", kRaw, no_code + "192.0.2.5:"),
        with_choice("short", kAsItIs, datagram("192.0.2.5", 6454, dmx).substr(0, 100)),
        with_choice("long", kAsItIs, datagram("192.0.2.5", 6454, dmx) + "x"),
        with_choice("nothing", kAsItIs, ""),
        with_choice("one_level", kValidHeader, to_node + one_level),
        with_choice("full_view", kValidHeader,
                    to_node.substr(0, 4) + std::string("\1\0\0\x0A\x36\x19", 6) + one_level),
        with_choice("no_gap", kValidHeader, no_code + to_node.substr(4) + one_level),
        with_choice("idle", kValidHeader, "\x40\x42\x0F\xFF" + to_node.substr(4) + one_level),
        with_choice("beyond_the_window", kValidHeader, "\xFF\xFF\xFF\xFF" + to_node.substr(4) + one_level),
        with_choice("zeros", kValidHeader, ""),
        // The third byte: with all options, an even and an odd Length and one of 0.
        with_choice("all_options", kValidHeader,
                    std::string("\0\0\x1F\0", 4) + to_node.substr(4) + one_level),
        with_choice("all_options_odd", kValidHeader,
                    std::string("\0\0\x1F\0", 4) + to_node.substr(4) +
                        std::string("\0\x50\0\x0E\1\0\5\0\0\3\1\2\3", 13)),
        with_choice(
            "all_options_no_channel", kValidHeader,
            std::string("\0\0\x1F\0", 4) + to_node.substr(4) + std::string("\0\x50\0\x0E\1\0\5\0\0\0", 10)),
    };
}

}  // namespace

Target forwarder_datagram() {
    return {"forwarder_datagram", run, seeds, 560,
            "identifier=\"Art-Net\\x00\"\ndmx=\"Art-Net\\x00\\x00\\x50\"\naddress=\"192.0.2.5\\x00\"\n"
            "port=\"\\x36\\x19\\x00\\x00\"\nfull=\"\\x02\\x00\"\n",
            "core/libs/artnet/forwarding_datagram.cpp core/apps/output/forwarder/src/watch_statistics.cpp "
            "core/apps/output/forwarder/src/endpoint.cpp core/apps/output/forwarder/src/rewrite.cpp "
            "core/apps/output/forwarder/src/trim.cpp core/apps/output/forwarder/src/keep_alive.cpp "
            "core/apps/output/forwarder/src/sequence_rewriter.cpp",
            // The rules come from the command line.
            "parse_rewrite|mask_of"};
}

}  // namespace fuzz
