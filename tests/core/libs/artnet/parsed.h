#pragma once
// What a parser delivers for some input, as texts that a test can compare.

#include <cstdint>
#include <sstream>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

#include "artnet/artnet_parser.h"
#include "support/recording.h"

/**
 * The outcome of one parse() with every callback set.
 *
 * Events read "COUNTER KIND DETAILS": "0 dmx 3: 255 0" is universe 3 with two channels, "1 ms 40", "2 ns
 * 40000000", "3 unknown 0x1234", "4 error 4", "5 poll", "6 pollreply NAME", "7 trigger KEY SUBKEY".
 */
struct Parsed {
    std::vector<std::string> events;
    std::error_code ec;
    /// Identifiers found.
    std::uint32_t packets = 0;
};

/// Sets every callback of `parser` to append to `events`, which outlives it.
inline void record_events(ArtNetParser& parser, std::vector<std::string>& events) {
    const auto add = [&parser, &events](const std::string& text) {
        events.push_back(std::to_string(parser.packet_counter) + " " + text);
    };
    parser.on_artpoll = [add](ArtPoll&) { add("poll"); };
    parser.on_artpollreply = [add](ArtPollReply& reply) { add(std::string("pollreply ") + reply.ShortName); };
    parser.on_artdmx = [add](ArtDmx& dmx) {
        std::string text = "dmx " + std::to_string(universe_of(dmx)) + ":";
        for (std::size_t channel = 0; channel < dmx.Length; ++channel) {
            text += " " + std::to_string(dmx.Data[channel]);
        }
        add(text);
    };
    parser.on_artoemvfps = [add](ArtOemVfps& timing) { add("ms " + std::to_string(timing.Milliseconds)); };
    parser.on_artoemvfpsns = [add](ArtOemVfpsNs& timing) { add("ns " + std::to_string(timing.Nanoseconds)); };
    parser.on_trigger = [add](ArtTrigger& trigger) {
        add("trigger " + std::to_string(trigger.Key) + " " + std::to_string(trigger.SubKey));
    };
    parser.on_unknown = [add](ArtHeader& header) {
        std::ostringstream text;
        text << "unknown 0x" << std::hex << header.OpCode;
        add(text.str());
    };
    parser.on_error = [add](const std::error_code& error) { add("error " + std::to_string(error.value())); };
}

inline Parsed parse_stream(std::istream& in) {
    Parsed result;
    ArtNetParser parser;
    record_events(parser, result.events);
    parser.parse(in, result.ec);
    result.packets = parser.packet_counter;
    return result;
}

inline Parsed parse_recording(const Recording& recording) {
    std::istringstream in(recording.text());
    return parse_stream(in);
}

inline Parsed parse_file(const std::string& path) {
    Parsed result;
    ArtNetParser parser;
    record_events(parser, result.events);
    parser.parse(path.c_str(), result.ec);
    result.packets = parser.packet_counter;
    return result;
}
