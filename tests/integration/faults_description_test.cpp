// Description files that cannot be used, and such as only look so. What is loaded does not depend on them.

#include <filesystem>

#include <gmock/gmock.h>
#include <sys/stat.h>

#include "faults_test.h"

using namespace integration;
using namespace std::chrono_literals;
using testing::HasSubstr;

namespace {

constexpr char kMark[] = "\xEF\xBB\xBF";

struct BadText {
    const char* name;
    /// Makes the bad file of a good one.
    std::string (*spoil)(const std::string& good);
    /// The parser's words.
    const char* error;
};

std::string to_utf16_without_mark(const std::string& text) {
    std::string result;
    for (const char c : text) {
        result += {c, '\0'};
    }
    return result;
}

std::string to_utf16(const std::string& text) {
    return "\xFF\xFE" + to_utf16_without_mark(text);
}

/// Arrays within arrays.
std::string nested(int levels) {
    const auto count = static_cast<std::size_t>(levels);
    return std::string(count, '[') + std::string(count, ']');
}

const BadText kBadTexts[] = {
    {"HalfWritten", [](const std::string& good) { return good.substr(0, good.size() / 2); }, "unterminated "},
    {"CutBeforeItsLastBracket", [](const std::string& good) { return good.substr(0, good.size() - 1); },
     "unterminated array"},
    {"Zeros", [](const std::string& good) { return std::string(good.size(), '\0'); }, "illegal value"},
    {"Utf16", to_utf16, "illegal value"},
    {"Utf16WithoutMark", to_utf16_without_mark, "illegal number"},
    {"Latin1", [](const std::string& good) { return "[\"\xFC\"," + good.substr(1); }, "invalid UTF8 string"},
    {"NestedTooDeep", [](const std::string& good) { return "[" + nested(100'000) + "," + good.substr(1); },
     "too deeply nested document"},
};

class FaultsDescriptionTest : public FaultsTest {
protected:
    static constexpr char kList[] = "playlists/playlists.json";
    static constexpr char kEffects[] = "playlists/1.json";

    /// Playlist 1, whose description a test then spoils.
    void add_show() {
        show().recording("1.rec", Recording{}.dmx(1, {7}).fill_to(512).bytes());
        // Written before the start, which adds the beat to the list.
        start_with_beat();
        list_ = "[{\"Id\":1,\"Loop\":false}]";
        effects_ = "[{\"path\":\"1.rec\",\"fps\":-1,\"outputs\":[\"" + wire_.output("1") + "\"]}]";
        show().file(kList, list_).file(kEffects, effects_);
    }
    void expect_refused(const std::string& operation, const std::string& error, const std::string& text) {
        mark_log();
        EXPECT_FALSE(controller().play(1));
        const Lines lines = trouble();
        const Lines expected = refused_by_files("", text);
        ASSERT_EQ(lines.size(), 3U);
        EXPECT_THAT(lines[0],
                    HasSubstr("err playlist_parser.cpp [PlaylistParser::" + operation + "] " + error));
        EXPECT_EQ(lines[1], expected[1]);
        EXPECT_EQ(lines[2], expected[2]);
        expect_not_loaded(1);
    }
    void expect_plays() {
        mark_log();
        EXPECT_TRUE(controller().play(1));
        EXPECT_EQ(wire_.next().level(0), 7);
        EXPECT_EQ(trouble(), Lines{});
        controller().stop_playlist(1);
        wire_.arrived();
    }

    ForwarderSocket wire_;
    std::string list_;
    std::string effects_;
};

class FaultsBadTextTest : public FaultsDescriptionTest, public testing::WithParamInterface<BadText> {};

INSTANTIATE_TEST_SUITE_P(Texts, FaultsBadTextTest, testing::ValuesIn(kBadTexts),
                         [](const testing::TestParamInfo<BadText>& bad) {
                             return std::string(bad.param.name);
                         });

}  // namespace

TEST_P(FaultsBadTextTest, RefusesThePlayUntilItIsMended) {
    const BadText& bad = GetParam();
    add_show();
    const std::string error = std::string("Parse error (err:") + bad.error;
    show().file(kList, bad.spoil(list_));
    expect_refused("parse_desc", error, "Playlist desc file format invalid");
    show().file(kList, list_).file(kEffects, bad.spoil(effects_));
    expect_refused("parse_effects", error, "Playlist effects file format invalid");
    expect_beat_goes_on();
    show().file(kEffects, effects_);
    expect_plays();
    expect_beat_goes_on(1);
}

TEST_F(FaultsDescriptionTest, MissingFilesAndDirectoriesRefuseThePlayUntilTheyAreThere) {
    add_show();
    for (const char* const path : {kList, kEffects}) {
        const bool list = path == std::string(kList);
        const std::string operation = list ? "parse_desc" : "parse_effects";
        const std::string error = "File (path:" + data_root() + "/" + path + ") not found";
        const std::string text = list ? "Playlist desc file not found" : "Playlist effects file not found";
        std::filesystem::remove(show().path(path));
        expect_refused(operation, error, text);
        std::filesystem::create_directory(show().path(path));
        expect_refused(operation, error, text);
        std::filesystem::remove(show().path(path));
        show().file(path, list ? list_ : effects_);
    }
    expect_plays();
    expect_beat_goes_on();
}

TEST_F(FaultsDescriptionTest, FilesWithoutTheRightToReadAreNotFound) {
    if (const std::string reason = why_all_is_readable(); !reason.empty()) {
        GTEST_SKIP() << reason;
    }
    ServiceSettings settings;
    settings.prepare = drop_right_to_read_all;
    add_playlist(1, false, Recording{}.dmx(1, {7}).fill_to(512), {wire_.output("1")});
    start_with_beat(settings);
    for (const char* const path : {kList, kEffects}) {
        const bool list = path == std::string(kList);
        ASSERT_EQ(chmod(show().path(path).c_str(), 0), 0);
        expect_refused(list ? "parse_desc" : "parse_effects",
                       "File (path:" + data_root() + "/" + path + ") not found",
                       list ? "Playlist desc file not found" : "Playlist effects file not found");
        ASSERT_EQ(chmod(show().path(path).c_str(), 0600), 0);
    }
    expect_plays();
    expect_beat_goes_on();
}

TEST_F(FaultsDescriptionTest, AByteOrderMarkIsSkipped) {
    add_show();
    show().file(kList, kMark + list_).file(kEffects, kMark + effects_);
    expect_plays();
    expect_beat_goes_on();
}

TEST_F(FaultsDescriptionTest, OfAKeyThatStandsTwiceTheLaterValueCounts) {
    add_show();
    show().file(kList, "[{\"Id\":2,\"Loop\":true," + list_.substr(2));
    show().file(kEffects, "[{\"path\":\"2.rec\",\"outputs\":[]," + effects_.substr(2));
    expect_plays();
    expect_beat_goes_on();
}

TEST_F(FaultsDescriptionTest, WrongTypesRefuseThePlayUntilTheyAreMended) {
    add_show();
    show().file(kList, "{}");
    expect_refused("parse_desc", "Playlists not found", "Playlist desc file format invalid");
    show().file(kList, list_).file(kEffects, "[{\"path\":1,\"fps\":-1,\"outputs\":[]}]");
    expect_refused("parse_effects", "Field 'path' absent", "Playlist effects file format invalid");
    expect_beat_goes_on();
    show().file(kEffects, effects_);
    expect_plays();
}

TEST_F(FaultsDescriptionTest, LevelsThatNobodyLooksAtAreTakenUpTo1024) {
    add_show();
    constexpr int kMost = 1024;
    // The list's array and object, or the effects' array, are levels, too.
    const auto list = [](int levels) {
        return "[{\"Id\":1,\"Loop\":false,\"Note\":" + nested(levels - 2) + "}]";
    };
    const auto effects = [this](int levels) { return "[" + nested(levels - 1) + "," + effects_.substr(1); };
    const std::string error = "Parse error (err:too deeply nested document";
    show().file(kList, list(kMost)).file(kEffects, effects(kMost));
    expect_plays();
    show().file(kList, list(kMost + 1));
    expect_refused("parse_desc", error, "Playlist desc file format invalid");
    show().file(kList, list(kMost)).file(kEffects, effects(kMost + 1));
    expect_refused("parse_effects", error, "Playlist effects file format invalid");
    expect_beat_goes_on();
}

TEST_F(FaultsDescriptionTest, TensOfMegabytesTakeTheirTimeAndPlay) {
    add_show();
    constexpr std::size_t kSize = 20'000'000;
    const std::string text = "\"" + std::string(200, 'x') + "\"";
    std::string list = "[";
    while (list.size() < kSize) {
        list += "{\"Id\":2,\"Loop\":true,\"Brightness\":50,\"Name\":" + text + "},";
    }
    show().file(kList, list + list_.substr(1));
    std::string effects = "[";
    while (effects.size() < kSize) {
        effects += "[1,2,3]," + text + ",";
    }
    show().file(kEffects, effects + effects_.substr(1));
    // Longer than a call usually takes.
    const QDBusPendingCall play = call_later(QStringLiteral("play_playlist"), {1});
    EXPECT_TRUE(wait_for_answer(play, 100s));
    EXPECT_EQ(wire_.next().level(0), 7);
    EXPECT_EQ(trouble(), Lines{});
    expect_beat_goes_on();
}
