#include "parser_comparison.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <iomanip>
#include <istream>
#include <sstream>
#include <utility>

#include "artnet/artnet_parser.h"

namespace {

/// The first `n` bytes of a record.
template <typename Record>
std::vector<std::uint8_t> bytes_of(const Record& record, std::size_t n = sizeof(Record)) {
    std::vector<std::uint8_t> bytes(n);
    std::memcpy(bytes.data(), &record, n);
    return bytes;
}

/// Whether the packet that `parser` is at lies where it says: an identifier is there, unless it is stale.
bool is_in_place(const ArtNetParser& parser, const std::vector<std::uint8_t>& input) {
    const std::uint64_t offset = parser.packet_offset();
    if (parser.packet_is_stale() || input.size() < kArtNetIdentifier.size() ||
        offset > input.size() - kArtNetIdentifier.size()) {
        return parser.packet_is_stale() || parser.bytes_read() > input.size();
    }
    return std::equal(kArtNetIdentifier.begin(), kArtNetIdentifier.end(),
                      input.begin() + static_cast<std::ptrdiff_t>(offset));
}

/// Has `parser` note its events the way the model does; where one does not lie where the parser says, in
/// `input`, the note is another.
void listen(ArtNetParser& parser, const ParserScenario& scenario, const std::vector<std::uint8_t>*& input,
            ModelOutcome& outcome) {
    const auto tell = [&](const char* kind, std::vector<std::uint8_t> bytes) {
        if (!is_in_place(parser, *input)) {
            kind = "misplaced";
        }
        outcome.events.push_back({kind, parser.packet_counter, std::move(bytes)});
        if (outcome.events.size() == scenario.stop_after) {
            parser.stop();
        }
    };
    const auto wanted = [&](char letter) { return scenario.kinds.find(letter) != std::string::npos; };
    if (wanted('d')) {
        parser.on_artdmx = [tell](ArtDmx& dmx) { tell("dmx", bytes_of(dmx, kDmxHeaderSize + dmx.Length)); };
    }
    if (wanted('m')) {
        parser.on_artoemvfps = [tell](ArtOemVfps& timing) { tell("ms", bytes_of(timing)); };
    }
    if (wanted('n')) {
        parser.on_artoemvfpsns = [tell](ArtOemVfpsNs& timing) { tell("ns", bytes_of(timing)); };
    }
    if (wanted('p')) {
        parser.on_artpoll = [tell](ArtPoll& poll) { tell("poll", bytes_of(poll)); };
    }
    if (wanted('r')) {
        parser.on_artpollreply = [tell](ArtPollReply& reply) { tell("pollreply", bytes_of(reply)); };
    }
    if (wanted('t')) {
        // The trigger's data are never read.
        parser.on_trigger = [tell](ArtTrigger& trigger) { tell("trigger", bytes_of(trigger, 18)); };
    }
    if (wanted('u')) {
        parser.on_unknown = [tell](ArtHeader& header) { tell("unknown", bytes_of(header)); };
    }
    if (wanted('e')) {
        parser.on_error = [tell](const std::error_code& error) {
            tell("error", {static_cast<std::uint8_t>(error.value())});
        };
    }
}

void parse_once(ArtNetParser& parser, const std::vector<std::uint8_t>& input, const ParserScenario& scenario,
                ModelOutcome& outcome) {
    PiecewiseBuffer buffer(input, scenario.piece, scenario.resumes);
    std::istream in(&buffer);
    std::error_code ec;
    parser.parse(in, ec);
    outcome.error = ec.value();
    outcome.packets = parser.packet_counter;
}

std::string describe(const ModelOutcome& outcome) {
    std::ostringstream text;
    text << "error " << outcome.error << ", " << outcome.packets << " packets";
    for (const ModelEvent& event : outcome.events) {
        text << "\n  " << event.counter << ' ' << event.kind << std::hex << std::setfill('0');
        for (const std::uint8_t byte : event.bytes) {
            text << ' ' << std::setw(2) << +byte;
        }
        text << std::dec;
    }
    return text.str();
}

}  // namespace

std::string difference_of(const ParserScenario& scenario, ParserModel& model) {
    ArtNetParser parser;
    ModelOutcome parsed;
    const std::vector<std::uint8_t>* input = nullptr;
    listen(parser, scenario, input, parsed);
    for (const auto* next : {&scenario.earlier, &scenario.input}) {
        input = next;
        if (input == &scenario.earlier && input->empty()) {
            continue;
        }
        parsed = {};
        parse_once(parser, *input, scenario, parsed);
        const ModelOutcome expected = model.parse(*input, scenario.kinds, scenario.stop_after);
        if (parsed != expected) {
            return "expected " + describe(expected) + "\nparsed " + describe(parsed);
        }
    }
    return {};
}
