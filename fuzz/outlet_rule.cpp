#include "outlet_rule.h"

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <vector>

#include "outlet.h"

namespace fuzz {

namespace {

using namespace std::chrono_literals;
using Bytes = std::vector<std::uint8_t>;
using Time = forwarder::Outlet::Time;

constexpr std::size_t kDestination = 3;
const Bytes kArtSync{'A', 'r', 't', '-', 'N', 'e', 't', 0, 0x00, 0x52, 0, 14, 0, 0};

/// Writes down what comes out.
class Notes final : public forwarder::PacketSink {
public:
    void deliver(std::size_t destination, std::span<const iovec> packets, Time) override {
        require(destination == kDestination && !packets.empty(), "packets go where they belong");
        for (const iovec& packet : packets) {
            const auto* const begin = static_cast<const std::uint8_t*>(packet.iov_base);
            packets_.emplace_back(begin, begin + packet.iov_len);
        }
    }
    void lose(std::size_t, std::size_t) override { require(false, "nothing is lost of two packets"); }
    [[nodiscard]] const std::vector<Bytes>& packets() const { return packets_; }

private:
    std::vector<Bytes> packets_;
};

/// The packet as the `number`th of its universe.
Bytes expected_packet(Input packet, const forwarder::OutletSettings& settings, bool dmx,
                      std::uint8_t number) {
    Bytes bytes(packet.begin(), packet.end());
    const int length = bytes[16] * 256 + bytes[17];
    if (settings.trim && dmx && length >= 1 && length <= 512) {
        // An even number of channels.
        bytes.resize(18 + static_cast<std::size_t>((length + 1) / 2 * 2));
    }
    if (settings.sequence && dmx) {
        bytes[12] = number;
    }
    return bytes;
}

}  // namespace

void require_outlet_follows_its_options(Input packet, std::uint8_t options) {
    forwarder::OutletSettings settings;
    settings.sequence = (options & 1) != 0;
    settings.sync = (options & 2) != 0;
    settings.trim = (options & 4) != 0;
    if ((options & 8) != 0) {
        settings.keep_alive = 800ms;
    }
    if ((options & 16) != 0) {
        settings.pace = 5ms;
    }
    Notes notes;
    forwarder::Outlet outlet(settings, notes);
    const Time begin{1h};
    for (const auto arrival : {0ms, 100ms}) {
        outlet.arrive(kDestination, packet, begin + arrival, begin + arrival);
        outlet.flush(begin + arrival);
        outlet.serve(begin + arrival, begin + arrival);
        // The end of the group, and the turn of its ArtSync.
        outlet.serve(begin + arrival + 20ms, begin + arrival + 20ms);
        outlet.serve(begin + arrival + 50ms, begin + arrival + 50ms);
    }
    for (const auto silence : {900ms, 920ms, 950ms}) {
        outlet.serve(begin + silence, begin + silence);
    }

    const bool dmx = packet[8] == 0x00 && packet[9] == 0x50;
    const bool again = settings.keep_alive && dmx;
    std::vector<Bytes> expected;
    for (std::uint8_t number = 1; number <= (again ? 3 : 2); ++number) {
        expected.push_back(expected_packet(packet, settings, dmx, number));
        if (settings.sync && dmx) {
            expected.push_back(kArtSync);
        }
    }
    require(notes.packets() == expected, "an outlet does what its options say, and nothing else");
    const forwarder::OutletCounters counters = outlet.counters();
    require(outlet.idle() && counters.resent == (again ? 1 : 0) && counters.untracked == 0 &&
                counters.superseded == 0 && counters.dropped == 0 && counters.waiting == 0,
            "an outlet's counters say what it did");
}

}  // namespace fuzz
