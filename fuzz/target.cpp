#include "target.h"

#include <cstdio>
#include <cstdlib>

#include "ondra/logger.h"

namespace fuzz {

const std::vector<Target>& all_targets() {
    static const std::vector<Target> targets{recording_parser(), recording_loader(), description_file(),
                                             effects_file(),     output_string(),    node_map(),
                                             brand_file(),       firmware_reply(),   forwarder_datagram()};
    return targets;
}

void require(bool holds, const char* rule) {
    if (!holds) {
        std::fprintf(stderr, "broken: %s\n", rule);
        std::abort();
    }
}

void format_log_lines() {
    ondra::Logger::instance()->setLevel(ondra::kSendTrace);
    ondra::Logger::instance()->setOutput(ondra::Logger::None);
}

std::uint8_t take_byte(Input& input) {
    if (input.empty()) {
        return 0;
    }
    const std::uint8_t byte = input.front();
    input = input.subspan(1);
    return byte;
}

std::string to_string(Input input) {
    return {input.begin(), input.end()};
}

Seed with_choice(const std::string& name, int choice, std::string_view bytes) {
    return {name, static_cast<char>(choice) + std::string(bytes)};
}

}  // namespace fuzz
