#include "sample_show.h"

#include <chrono>
#include <cstdint>
#include <fstream>
#include <sstream>
#include <string>
#include <system_error>
#include <vector>

#include <gtest/gtest.h>
#include <QByteArray>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTemporaryDir>

#include "artnet/artnet_parser.h"

using namespace demo;
using namespace std::chrono_literals;

namespace {

struct Parsed {
    std::vector<ArtDmx> packets;
    /// Per timing packet: after how many ArtDmx packets it stands, and its time.
    std::vector<std::pair<std::size_t, std::chrono::nanoseconds>> nanosecond_timings;
    std::vector<std::pair<std::size_t, std::chrono::nanoseconds>> millisecond_timings;
    int others = 0;
    std::error_code error;
};

Parsed parse(const std::string& bytes) {
    Parsed parsed;
    ArtNetParser parser;
    parser.on_artdmx = [&](ArtDmx& dmx) { parsed.packets.push_back(dmx); };
    // Copied first: the record's fields are not aligned, so nothing may refer to them.
    parser.on_artoemvfps = [&](ArtOemVfps& timing) {
        const std::int64_t time = timing.Milliseconds;
        parsed.millisecond_timings.emplace_back(parsed.packets.size(), std::chrono::milliseconds(time));
    };
    parser.on_artoemvfpsns = [&](ArtOemVfpsNs& timing) {
        const auto time = static_cast<std::int64_t>(timing.Nanoseconds);
        parsed.nanosecond_timings.emplace_back(parsed.packets.size(), std::chrono::nanoseconds(time));
    };
    parser.on_unknown = [&](ArtHeader&) { ++parsed.others; };
    parser.on_error = [&](const std::error_code&) { ++parsed.others; };
    std::istringstream stream(bytes);
    parser.parse(stream, parsed.error);
    return parsed;
}

class SampleShowTest : public testing::Test {
protected:
    [[nodiscard]] std::string path(const std::string& below) const {
        return (directory_.path() + QLatin1Char('/')).toStdString() + below;
    }
    [[nodiscard]] std::string content(const std::string& below) const {
        std::ifstream file(path(below), std::ios::binary);
        return {std::istreambuf_iterator<char>(file), {}};
    }
    [[nodiscard]] QJsonArray json(const std::string& below) const {
        return QJsonDocument::fromJson(QByteArray::fromStdString(content(below))).array();
    }

    QTemporaryDir directory_;
};

}  // namespace

TEST_F(SampleShowTest, EveryRecordingHoldsItsFramesOnceAndInOrder) {
    for (const PlaylistPlan& plan : playlists()) {
        SCOPED_TRACE(plan.recording);
        const Parsed parsed = parse(recording_of(plan));
        EXPECT_FALSE(parsed.error);
        EXPECT_EQ(parsed.others, 0);
        const std::size_t universes = plan.universes.size();
        ASSERT_EQ(parsed.packets.size(), static_cast<std::size_t>(plan.frames) * universes);
        for (std::size_t i = 0; i < parsed.packets.size(); ++i) {
            const ArtDmx& dmx = parsed.packets[i];
            const int frame = static_cast<int>(i / universes);
            const int universe = plan.universes[i % universes];
            ASSERT_EQ(universe_of(dmx), universe);
            ASSERT_EQ(dmx.Sequence, plan.first_sequence + frame);
            ASSERT_EQ(dmx.Length, kChannels);
            for (int channel = 0; channel < kChannels; ++channel) {
                ASSERT_EQ(dmx.Data[static_cast<std::size_t>(channel)], plan.level(universe, frame, channel));
            }
        }
    }
}

TEST_F(SampleShowTest, RecordingsAreWholeBlocksSoThatNothingIsFoundTwice) {
    for (const PlaylistPlan& plan : playlists()) {
        EXPECT_EQ(recording_of(plan).size() % 512, 0U) << plan.recording;
    }
}

TEST_F(SampleShowTest, TheLastChannelIsDarkSoThatNoPacketIsHidden) {
    for (const PlaylistPlan& plan : playlists()) {
        for (int frame = 0; frame < plan.frames; ++frame) {
            EXPECT_EQ(plan.level(plan.universes.front(), frame, kChannels - 1), 0) << plan.recording;
        }
    }
}

TEST_F(SampleShowTest, TheChaseIsTimedInNanosecondsAfterEachFrame) {
    const Parsed parsed = parse(recording_of(playlist(kChase)));
    EXPECT_TRUE(parsed.millisecond_timings.empty());
    ASSERT_EQ(parsed.nanosecond_timings.size(), 192U);
    for (std::size_t frame = 0; frame < 192; ++frame) {
        EXPECT_EQ(parsed.nanosecond_timings[frame],
                  std::pair((frame + 1) * 4, std::chrono::nanoseconds(25ms)));
    }
}

TEST_F(SampleShowTest, TheFadeIsTimedInMillisecondsAfterEachFrame) {
    const Parsed parsed = parse(recording_of(playlist(kFade)));
    EXPECT_TRUE(parsed.nanosecond_timings.empty());
    ASSERT_EQ(parsed.millisecond_timings.size(), 75U);
    for (std::size_t frame = 0; frame < 75; ++frame) {
        EXPECT_EQ(parsed.millisecond_timings[frame], std::pair(frame + 1, std::chrono::nanoseconds(40ms)));
    }
}

TEST_F(SampleShowTest, ThePulseHasATimingThatItsFixedRateMustOverrule) {
    const Parsed parsed = parse(recording_of(playlist(kPulse)));
    EXPECT_EQ(parsed.millisecond_timings,
              (std::vector<std::pair<std::size_t, std::chrono::nanoseconds>>{{2, 999ms}}));
}

TEST_F(SampleShowTest, SequenceNumbersFitTheirByteAndTellPlaylistsOfAUniverseApart) {
    for (const PlaylistPlan& plan : playlists()) {
        EXPECT_GE(plan.first_sequence, 1);
        EXPECT_LE(plan.first_sequence + plan.frames - 1, 255);
    }
    EXPECT_GE(playlist(kPulse).first_sequence, playlist(kChase).first_sequence + playlist(kChase).frames);
}

TEST_F(SampleShowTest, WritesTheDescriptionsThatTheServiceReads) {
    write_sample_show(directory_.path().toStdString(), 7454);
    const QJsonArray lists = json("playlists/playlists.json");
    ASSERT_EQ(lists.size(), 4);
    EXPECT_EQ(lists[0].toObject()[QLatin1String("Id")].toInt(), 1);
    EXPECT_TRUE(lists[0].toObject()[QLatin1String("Loop")].toBool());
    EXPECT_FALSE(lists[2].toObject()[QLatin1String("Loop")].toBool(true));

    const QJsonObject chase = json("playlists/1.json")[0].toObject();
    EXPECT_EQ(chase[QLatin1String("path")].toString(), QLatin1String("recordings/chase.art"));
    EXPECT_EQ(chase[QLatin1String("fps")].toInt(), -1);
    EXPECT_EQ(chase[QLatin1String("outputs")].toArray(), QJsonArray{QLatin1String("*:192.0.2.10:7454")});
    EXPECT_EQ(chase[QLatin1String("universes")].toArray().size(), 4);

    const QJsonObject pulse = json("playlists/2.json")[0].toObject();
    EXPECT_EQ(pulse[QLatin1String("fps")].toInt(), 20);
    EXPECT_FALSE(pulse.contains(QLatin1String("ppf")));
    const QJsonObject house = json("playlists/4.json")[0].toObject();
    EXPECT_TRUE(house[QLatin1String("outputs")].isArray());
    EXPECT_TRUE(house[QLatin1String("outputs")].toArray().isEmpty());
    EXPECT_TRUE(house[QLatin1String("universes")].toArray().isEmpty());
}

TEST_F(SampleShowTest, WritesTheRecordingsThatTheDescriptionsName) {
    write_sample_show(directory_.path().toStdString(), 6454);
    for (const PlaylistPlan& plan : playlists()) {
        EXPECT_EQ(content(std::string("recordings/") + plan.recording), recording_of(plan));
    }
}

TEST_F(SampleShowTest, AFileThatCannotBeWrittenIsNamed) {
    std::ofstream(path("playlists")) << "in the way";
    EXPECT_THROW(write_sample_show(directory_.path().toStdString(), 6454), std::system_error);
}
