// Fuzz target: the recording parser, which must tell the same as its model.
#include "parser_comparison.h"
#include "recordings.h"
#include "target.h"

namespace fuzz {

namespace {

bool run(Input input) {
    ParserScenario scenario;
    scenario.kinds = "dmnprtue";
    scenario.piece = take_byte(input);
    // The upper half of the values lets it run to the end, as nearly all users do.
    const std::uint8_t stop_after = take_byte(input);
    scenario.stop_after = stop_after < 128 ? stop_after : 0;
    scenario.input.assign(input.begin(), input.end());
    ParserModel model;
    const std::string difference = difference_of(scenario, model);
    require(difference.empty(), difference.c_str());
    return !model.met().contains("no identifier") && !model.met().contains("empty input");
}

std::vector<Seed> seeds() {
    std::vector<Seed> seeds = recording_seeds(std::string(2, '\0'));
    for (Seed& in_pieces : recording_seeds("\x05\x02")) {
        in_pieces.name += "_in_pieces";
        seeds.push_back(in_pieces);
    }
    return seeds;
}

}  // namespace

Target recording_parser() {
    return {"recording_parser", run, seeds, 1700, kRecordingDictionary, "core/libs/artnet/artnet_parser.cpp",
            // Opening a file and writing a packet back are the loader's.
            "ArtNetParser5parseEPKc|convert_to_raw"};
}

}  // namespace fuzz
