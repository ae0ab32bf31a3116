#pragma once
// What the tests of recordings' findings share.

#include <chrono>
#include <string>
#include <string_view>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <QTemporaryDir>

#include "inspect/inspection.h"
#include "support/recording.h"

using namespace std::chrono_literals;

/// Bytes of the parser's blocks.
inline constexpr std::size_t kBlock = 512;
/// An ArtDmx packet with two channels, and a nanosecond timing packet.
inline constexpr std::size_t kDmx = 20;
inline constexpr std::size_t kTiming = 18;

/// Fills up with zeros to whole blocks.
inline Recording& padded(Recording& recording) {
    return recording.fill_to((recording.size() + kBlock - 1) / kBlock * kBlock);
}

/// `frames` frames of universe 0, each of 30 ms, as the loader gives to the last one anyway.
inline Recording steady(int frames) {
    Recording recording;
    for (int frame = 0; frame < frames; ++frame) {
        recording.dmx(0, {100, 200}).frame_delay(30ms);
    }
    return recording;
}

class InspectTest : public testing::Test {
protected:
    InspectTest() { inspect::silence_service_log(); }

    [[nodiscard]] std::string path(const std::string& name) const {
        return directory_.path().toStdString() + "/" + name;
    }

    inspect::RecordingReport report(const Recording& recording,
                                    const inspect::InspectOptions& options = {}) const {
        EXPECT_TRUE(recording.write(path("test.rec")));
        return inspect::inspect_recording(path("test.rec"), options);
    }

    /// "LEVEL KIND @OFFSET frame FRAME", and "xCOUNT" above one, in the order of the report.
    static std::vector<std::string> lines(const inspect::RecordingReport& report) {
        std::vector<std::string> result;
        for (const inspect::Finding& finding : report.findings.list()) {
            result.push_back(std::string(inspect::level_name(finding.level)) + " " + finding.kind + " @" +
                             std::to_string(finding.offset) + " frame " + std::to_string(finding.frame) +
                             (finding.count > 1 ? " x" + std::to_string(finding.count) : ""));
        }
        return result;
    }

    /// Findings of a recording, after padding it to whole blocks.
    std::vector<std::string> findings(Recording recording,
                                      const inspect::InspectOptions& options = {}) const {
        return lines(report(padded(recording), options));
    }

    /// The sentence of the first finding of a kind; empty when there is none.
    static std::string text(const inspect::RecordingReport& report, std::string_view kind) {
        for (const inspect::Finding& finding : report.findings.list()) {
            if (finding.kind == kind) {
                return finding.text;
            }
        }
        return {};
    }

    QTemporaryDir directory_;
};
