// The commands "check" and "plot" of the built cuewright-recording.

#include <chrono>
#include <cstring>
#include <filesystem>
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
        words.insert(words.begin(), CUEWRIGHT_RECORDING);
        return tests::run_to_end(words);
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
    EXPECT_THAT(refusal({path("absent.rec"), path("p.png")}),
                HasSubstr("absent.rec: No such file or directory"));
    EXPECT_THAT(refusal({path(""), path("p.png")}), HasSubstr(": it is a directory"));
    // Root may read what belongs to nobody, but not what has no end.
    std::filesystem::create_symlink("circle.rec", path("circle.rec"));
    EXPECT_THAT(refusal({path("circle.rec"), path("p.png")}), HasSubstr("circle.rec: Too many levels"));
    EXPECT_THAT(refusal({recording("empty.rec", Recording{}.raw("none")), path("p.png")}),
                HasSubstr("finds no ArtDmx packet"));
    EXPECT_THAT(refusal({"--from", "1m", show, path("p.png")}), HasSubstr("the recording is 60 ms long"));
    EXPECT_THAT(refusal({"--universe", "9", show, path("p.png")}), HasSubstr("none of these universes"));
    EXPECT_THAT(refusal({show, path("no/folder/p.png")}), HasSubstr("no/folder/p.png: No such file"));
    EXPECT_FALSE(std::filesystem::exists(path("p.png")));
    EXPECT_THAT(refusal({show, "/dev/full/p.svg"}), HasSubstr("/dev/full/p.svg: "));
}

TEST_F(RecordingCommandsTest, APictureAppearsWholeOrNotAtAll) {
    const std::string show = recording("show.rec", two_universes());
    for (const char* const name : {"p.png", "p.svg"}) {
        std::ofstream(path(name)) << "another";
        const auto content = [&] {
            std::ifstream file(path(name));
            return std::string(std::istreambuf_iterator<char>(file), {});
        };
        const Ending refused = run({"plot", show, path(name)});
        EXPECT_EQ(refused.status, 1);
        EXPECT_EQ(refused.error,
                  "cuewright-recording: " + path(name) + ": File exists (--force replaces it)\n");
        EXPECT_EQ(content(), "another");
        // No room for it, as on a full disk.
        tests::ChildProgram full({"/bin/sh", "-c",
                                  "trap '' XFSZ; ulimit -f 1; exec \"$0\" plot --force \"$1\" \"$2\"",
                                  CUEWRIGHT_RECORDING, show, path(name)});
        EXPECT_EQ(full.wait_exit(), 1);
        EXPECT_EQ(full.error_output(), "cuewright-recording: " + path(name) + ": File too large\n");
        EXPECT_EQ(content(), "another");
        EXPECT_EQ(run({"plot", "--force", show, path(name)}).status, 0);
        EXPECT_GT(content().size(), 1000U);
    }
    int files = 0;
    for (const auto& entry : std::filesystem::directory_iterator(path(""))) {
        files += entry.is_regular_file() ? 1 : 0;
    }
    EXPECT_EQ(files, 3) << "nothing is left beside the two pictures and the recording";
}

TEST_F(RecordingCommandsTest, PlotSaysWhatItHasDrawn) {
    const std::string show = recording("show.rec", two_universes());
    const Ending line = run({"plot", "--width", "700", show, path("a.png")});
    EXPECT_THAT(line.output, AllOf(StartsWith(path("a.png") + ": 700 x "),
                                   testing::EndsWith(" pixels, 2 universes, 100 frames, 9.93 s\n")));
    const Ending json =
        run({"plot", "--json", "--width", "700", "--from", "1s", "--to", "3s", show, path("b.svg")});
    const QJsonObject answer = QJsonDocument::fromJson(QByteArray::fromStdString(json.output)).object();
    EXPECT_EQ(at(answer, "picture").toString().toStdString(), path("b.svg"));
    EXPECT_EQ(at(answer, "width").toInt(), 700);
    EXPECT_GE(at(answer, "height").toInt(), 330);
    EXPECT_EQ(at(answer, "universes").toArray().size(), 2);
    EXPECT_EQ(at(answer, "frames").toInt(), 20);
    EXPECT_EQ(at(answer, "to_ns").toDouble(), 3e9);
    EXPECT_EQ(at(at(answer, "intervals").toObject(), "p50_ns").toInt(), 100'000'000);
    EXPECT_EQ(at(answer, "bytes").toDouble(), static_cast<double>(std::filesystem::file_size(path("b.svg"))));
}

TEST_F(RecordingCommandsTest, PacketsPerFrameNeedARate) {
    const std::string show = recording("good.rec", good());
    for (const std::vector<std::string>& words : {std::vector<std::string>{"check", "--ppf", "1", show},
                                                  {"plot", "--ppf", "1", show, path("p.png")}}) {
        const Ending ending = run(words);
        EXPECT_EQ(ending.status, 2);
        EXPECT_THAT(ending.error, AllOf(HasSubstr("--ppf"), HasSubstr("--fps")));
    }
    EXPECT_EQ(run({"check", "--fps", "25", "--ppf", "1", show}).status, 0);
}
