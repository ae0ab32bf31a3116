#include "recordings.h"

#include <chrono>
#include <string_view>

#include "support/recording.h"

namespace fuzz {

std::vector<Seed> recording_seeds(const std::string& prefix) {
    using namespace std::chrono_literals;
    using namespace std::string_view_literals;
    constexpr auto kIdentifier = "Art-Net\0"sv;
    const std::vector<std::uint8_t> full(512, 0x41);
    Recording chase;
    for (std::uint8_t frame = 0; frame < 4; ++frame) {
        chase.dmx(0, {frame, 255}).dmx(1, {frame}).dmx(2, {}).frame_delay_ms(40);
    }
    Recording stale;
    for (int packet = 0; packet < 17; ++packet) {
        stale.dmx(packet, std::vector<std::uint8_t>(14, 7));
    }
    const std::vector<std::pair<const char*, Recording>> recordings{
        {"empty", {}},
        {"chase", chase},
        {"full_frame", Recording{}.dmx(7, full).frame_delay(25ms).dmx(7, full)},
        {"cut", Recording{}.dmx(7, full).dmx(8, full).cut_to(700)},
        {"stale_tail", stale},
        {"split_identifier", Recording{}.fill_to(508).dmx(1, {1, 2, 3})},
        {"split_record", Recording{}.fill_to(490).dmx(1, full)},
        {"hidden_identifier", Recording{}.raw("A"sv).dmx(1, {1}).dmx(2, {2})},
        {"oversized", Recording{}.header(0x5000).raw({0, 14, 0, 0, 1, 0, 2, 1}).dmx(3, {3})},
        {"negative_delay", Recording{}.dmx(0, {1}).frame_delay(-1ns).dmx(0, {2})},
        {"longest_delay", Recording{}.dmx(0, {1}).frame_delay(std::chrono::nanoseconds::max()).dmx(0, {2})},
        {"poll", Recording{}.header(0x2000).raw({0, 14, 2, 0}).dmx(1, {1})},
        {"poll_reply", Recording{}.header(0x2100).fill_to(239, 'x').dmx(1, {1})},
        {"short_poll_reply", Recording{}.header(0x2100).fill_to(100, 'x')},
        {"trigger", Recording{}.header(0x9900).raw({0, 14, 0, 0, 0xFF, 0xFF, 1, 2})},
        {"unknown", Recording{}.header(0x1234).header(0x9999)},
        {"identifier_alone", Recording{}.raw(kIdentifier)},
        {"zeros_complete_it", Recording{}.raw("Art-Net"sv)},
    };
    std::vector<Seed> seeds;
    for (const auto& [name, recording] : recordings) {
        seeds.push_back({name, prefix + recording.text()});
    }
    return seeds;
}

}  // namespace fuzz
