// The commands "check" and "plot" of the built cuewright-recording.

#include <chrono>
#include <cstring>
#include <fstream>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include <cairo.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTemporaryDir>

#include "support/ending.h"
#include "support/recording.h"

using namespace std::chrono_literals;
using testing::AllOf;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;
using tests::Ending;

namespace {

class RecordingCommandsTest : public testing::Test {
protected:
    static Ending run(std::vector<std::string> words) {
        std::vector<std::string> environment;
        if (words.front() == "plot") {
            // Only pictures have text in a font, whose properties refer to each other by distances, which the
            // leak sanitizer takes for leaks.
            environment.emplace_back("ASAN_OPTIONS=detect_leaks=0");
        }
        words.insert(words.begin(), CUEWRIGHT_RECORDING);
        return tests::run_to_end(words, environment);
    }

    [[nodiscard]] std::string path(const std::string& name) const {
        return directory_.path().toStdString() + "/" + name;
    }

    /// Writes a recording, padded to whole blocks, and gives its path.
    [[nodiscard]] std::string recording(const std::string& name, Recording content) const {
        EXPECT_TRUE(content.fill_to((content.size() + 511) / 512 * 512).write(path(name)));
        return path(name);
    }

    QTemporaryDir directory_;
};

/// Universe 5 at level 200 for two seconds and then silent; universe 0 dark for ten.
Recording two_universes() {
    Recording recording;
    for (int frame = 0; frame < 100; ++frame) {
        recording.dmx(0, std::vector<std::uint8_t>(512, 0));
        if (frame < 20) {
            recording.dmx(5, std::vector<std::uint8_t>(512, 200));
        }
        recording.frame_delay(100ms);
    }
    return recording;
}

Recording good() {
    return Recording{}.dmx(0, {1, 2}).frame_delay(30ms).dmx(0, {1, 2}).frame_delay(30ms);
}

/// With a warning: a frame that stands too long.
Recording slow() {
    return Recording{}.dmx(0, {1, 2}).frame_delay(11s).dmx(0, {1, 2}).frame_delay(30ms);
}

QJsonValue at(const QJsonObject& object, const char* key) {
    return object.value(QLatin1String(key));
}

/// Pixels of one colour, 0xRRGGBB, in the left and the right half of a picture.
struct Halves {
    int left = 0;
    int right = 0;
    int width = 0;
};

Halves count_pixels(const std::string& path, unsigned colour) {
    const std::unique_ptr<cairo_surface_t, void (*)(cairo_surface_t*)> surface(
        cairo_image_surface_create_from_png(path.c_str()), cairo_surface_destroy);
    EXPECT_EQ(cairo_surface_status(surface.get()), CAIRO_STATUS_SUCCESS) << path;
    Halves halves;
    halves.width = cairo_image_surface_get_width(surface.get());
    const int height = cairo_image_surface_get_height(surface.get());
    const unsigned char* const data = cairo_image_surface_get_data(surface.get());
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < halves.width; ++x) {
            std::uint32_t pixel = 0;
            std::memcpy(&pixel, data + y * cairo_image_surface_get_stride(surface.get()) + x * 4,
                        sizeof pixel);
            if ((pixel & 0xFF'FFFF) == colour) {
                ++(x < halves.width / 2 ? halves.left : halves.right);
            }
        }
    }
    return halves;
}

}  // namespace

TEST_F(RecordingCommandsTest, CheckSaysWhereAndWhatAndEndsByLevel) {
    const Ending clean = run({"check", recording("good.rec", good())});
    EXPECT_EQ(clean.status, 0);
    EXPECT_EQ(clean.output,
              path("good.rec") + ": good; 2 frames of 1 universe, 60 ms, the last frame's 30 ms included\n");
    EXPECT_THAT(clean.error, IsEmpty());

    const Ending warned = run({"check", recording("slow.rec", slow())});
    EXPECT_EQ(warned.status, 0);
    EXPECT_THAT(warned.output,
                AllOf(StartsWith(path("slow.rec") + ": warning: byte 0, frame 0: this frame stands 11 s"),
                      HasSubstr("[huge-frame]"), HasSubstr("0 errors, 1 warning; 2 frames")));
    EXPECT_EQ(run({"check", "--strict", path("slow.rec")}).status, 1);
    EXPECT_THAT(run({"check", "--level", "error", path("slow.rec")}).output,
                StartsWith(path("slow.rec") + ": 0 errors, 1 warning"));

    const Ending failed =
        run({"check", path("good.rec"), recording("cut.rec", Recording{}.dmx(0, {1, 2}).dmx(0, {3, 4}))});
    EXPECT_EQ(failed.status, 1);
    EXPECT_THAT(failed.output,
                AllOf(HasSubstr("good.rec: good"), HasSubstr("cut.rec: error: byte 0, frame 0:")));
    EXPECT_EQ(run({"check", "--fps", "25", path("cut.rec")}).status, 0);
}

TEST_F(RecordingCommandsTest, CheckGivesJsonToPrograms) {
    const Ending ending = run({"check", "--json", recording("slow.rec", slow()), path("absent.rec")});
    EXPECT_EQ(ending.status, 1);
    const QJsonObject answer = QJsonDocument::fromJson(QByteArray::fromStdString(ending.output)).object();
    EXPECT_EQ(at(answer, "errors").toInt(), 1);
    EXPECT_EQ(at(answer, "warnings").toInt(), 1);
    const QJsonObject slow_report = at(answer, "files").toArray()[0].toObject();
    EXPECT_EQ(at(slow_report, "file").toString().toStdString(), path("slow.rec"));
    EXPECT_EQ(at(slow_report, "duration_ns").toDouble(), 11.03e9);
    const QJsonObject finding = at(slow_report, "findings").toArray()[0].toObject();
    EXPECT_EQ(at(finding, "kind").toString().toStdString(), "huge-frame");
    EXPECT_EQ(at(finding, "level").toString().toStdString(), "warning");
    EXPECT_EQ(at(finding, "offset").toInt(-1), 0);
    EXPECT_EQ(at(finding, "frame").toInt(-1), 0);
    const QJsonObject absent = at(answer, "files").toArray()[1].toObject();
    EXPECT_EQ(
        at(absent, "findings").toArray()[0].toObject().value(QLatin1String("kind")).toString().toStdString(),
        "unreadable");
}

TEST_F(RecordingCommandsTest, AWrongCommandLineIsRefused) {
    EXPECT_EQ(run({"check"}).status, 2);
    EXPECT_EQ(run({"check", "--level", "loud", path("good.rec")}).status, 2);
    EXPECT_EQ(run({"plot", recording("good.rec", good())}).status, 2);
    const Ending kind = run({"plot", path("good.rec"), path("picture.jpg")});
    EXPECT_EQ(kind.status, 2);
    EXPECT_THAT(kind.error, HasSubstr("picture.jpg: the picture's name must end in .png or .svg"));
    EXPECT_EQ(run({"plot", "--width", "10", path("good.rec"), path("p.png")}).status, 2);
    EXPECT_EQ(run({"plot", "--universe", "x", path("good.rec"), path("p.png")}).status, 2);
}

TEST_F(RecordingCommandsTest, PlotDrawsLevelsWhereTheyAreSent) {
    const std::string show = recording("show.rec", two_universes());
    const Ending ending = run({"plot", "--width", "700", show, path("show.png")});
    ASSERT_EQ(ending.status, 0) << ending.error;
    const Halves lit = count_pixels(path("show.png"), 0xC8C8C8);
    EXPECT_EQ(lit.width, 700);
    // Two seconds and the four for which a look stands: six tenths, 546 columns wide, 256 high.
    EXPECT_GT(lit.left, 200 * 256);
    EXPECT_GT(lit.right, 40 * 256);
    EXPECT_LT(lit.right, lit.left / 2);
    // Then nothing, in a colour that no level has.
    const Halves silent = count_pixels(path("show.png"), 0x263A5E);
    EXPECT_LT(silent.left, 500);
    EXPECT_GT(silent.right, 200 * 256);

    ASSERT_EQ(run({"plot", "--width", "700", "--universe", "0", show, path("dark.png")}).status, 0);
    EXPECT_EQ(count_pixels(path("dark.png"), 0xC8C8C8).left, 0);
    ASSERT_EQ(
        run({"plot", "--width", "700", "--universe", "5", "--from", "0", "--to", "1s", show, path("lit.png")})
            .status,
        0);
    EXPECT_GT(count_pixels(path("lit.png"), 0xC8C8C8).right, 250 * 256);
}

TEST_F(RecordingCommandsTest, PlotWritesSvgToo) {
    const Ending ending = run({"plot", recording("show.rec", two_universes()), path("show.svg")});
    ASSERT_EQ(ending.status, 0) << ending.error;
    std::ifstream file(path("show.svg"));
    std::stringstream content;
    content << file.rdbuf();
    EXPECT_THAT(content.str(), AllOf(StartsWith("<?xml"), HasSubstr("<svg"), HasSubstr("</svg>")));
}

TEST_F(RecordingCommandsTest, PlotSaysWhatItCannotDraw) {
    const std::string show = recording("good.rec", good());
    const auto refusal = [&](std::vector<std::string> words) {
        words.insert(words.begin(), "plot");
        const Ending ending = run(words);
        EXPECT_EQ(ending.status, 1);
        return ending.error;
    };
    EXPECT_THAT(refusal({path("absent.rec"), path("p.png")}), HasSubstr("absent.rec: no such file"));
    EXPECT_THAT(refusal({path(""), path("p.png")}), HasSubstr("no regular one"));
    EXPECT_THAT(refusal({recording("empty.rec", Recording{}.raw("none")), path("p.png")}),
                HasSubstr("finds no ArtDmx packet"));
    EXPECT_THAT(refusal({"--from", "1m", show, path("p.png")}), HasSubstr("the recording is 60 ms long"));
    EXPECT_THAT(refusal({"--universe", "9", show, path("p.png")}), HasSubstr("none of these universes"));
    EXPECT_THAT(refusal({show, path("no/folder/p.png")}), HasSubstr("no/folder/p.png: "));
    EXPECT_THAT(refusal({show, "/dev/full/p.svg"}), HasSubstr("/dev/full/p.svg: "));
}
