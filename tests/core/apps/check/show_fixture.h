#pragma once
// A data directory that is good, and what is found in changed ones.

#include <chrono>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "data_finding.h"
#include "inspect/inspection.h"
#include "output.h"
#include "show_check.h"
#include "support/recording.h"
#include "support/show_directory.h"

using namespace std::chrono_literals;

/// `frames` frames of 30 ms of these universes, padded to whole blocks.
inline std::vector<std::uint8_t> frames_of(const std::vector<int>& universes, int frames = 3) {
    Recording recording;
    for (int frame = 0; frame < frames; ++frame) {
        for (const int universe : universes) {
            recording.dmx(universe, {100, 200});
        }
        recording.frame_delay(30ms);
    }
    return recording.fill_to((recording.size() + 511) / 512 * 512).bytes();
}

class ShowFixture : public testing::Test {
protected:
    ShowFixture() { inspect::silence_service_log(); }

    /// Findings of the show, as "LEVEL KIND FILE PLACE". Notes about defaults are left out: every effect has
    /// some.
    std::vector<std::string> findings(const datacheck::ShowOptions& options = {}) {
        found_ = datacheck::DataFindings();
        summary_ = datacheck::ShowCheck(show_.root().toStdString(), options, found_).run({});
        std::vector<std::string> result;
        for (const datacheck::DataFinding& finding : found_.list()) {
            if (finding.kind != "defaults") {
                result.push_back(std::string(inspect::level_name(finding.level)) + " " + finding.kind + " " +
                                 finding.file + (finding.element.empty() ? "" : " " + finding.element));
            }
        }
        return result;
    }

    /// The first finding of a kind, as a user sees it; empty when there is none. After findings().
    [[nodiscard]] std::string line(const std::string& kind) const {
        for (const datacheck::DataFinding& finding : found_.list()) {
            if (finding.kind == kind) {
                return datacheck::finding_line(finding);
            }
        }
        return {};
    }

    /// A show of one playlist whose effects file has this text.
    void effects(const std::string& json) {
        show_.recording("a.rec", frames_of({0}));
        show_.file("playlists/playlists.json", R"([{"Id": 1}])").file("playlists/1.json", json);
    }

    /// The same, with one effect of universe 0 that has these keys as well.
    void effect_with(const std::string& keys) {
        effects(R"([{"path": "a.rec", "fps": -1, "outputs": ["*:192.0.2.1:6454"])" + keys + "}]");
    }

    ShowDirectory show_;
    datacheck::DataFindings found_;
    datacheck::ShowSummary summary_;
};
