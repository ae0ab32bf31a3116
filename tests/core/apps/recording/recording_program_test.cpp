// The built program: its commands, what it refuses, its exit statuses, its progress.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <linux/capability.h>

#include "recording_files.h"
#include "support/child_process.h"
#include "support/child_program.h"
#include "support/ending.h"
#include "support/fifo.h"
#include "support/terminal.h"

using namespace std::chrono_literals;
using testing::AllOf;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;
using tests::Ending;
using tests::played;

namespace {

class RecordingProgramTest : public testing::Test {
protected:
    static Ending run(std::vector<std::string> words) {
        words.insert(words.begin(), RECORDING_PROGRAM);
        return tests::run_to_end(words);
    }
    /// Runs a line of shell script; $0 is the program.
    static Ending run_script(const std::string& script) {
        return tests::run_to_end({"/bin/sh", "-c", script, RECORDING_PROGRAM});
    }
    [[nodiscard]] std::string path(const std::string& name) const { return files_.path(name); }

    tests::RecordingFiles files_;
};

TEST_F(RecordingProgramTest, HelpNamesTheCommandsAndTheExitStatuses) {
    const Ending help = run({"--help"});
    EXPECT_EQ(help.status, 0);
    EXPECT_THAT(help.output, HasSubstr("\nExamples:\n  cuewright-recording "));
    EXPECT_THAT(help.output, HasSubstr("\nExit status:\n"));
    for (const char* command :
         {"record", "generate", "info", "dump", "cut", "merge", "remap", "check", "plot"}) {
        EXPECT_THAT(help.output, HasSubstr("\n  " + std::string(command) + " "));
        const Ending of_command = run({command, "--help"});
        EXPECT_EQ(of_command.status, 0);
        EXPECT_THAT(of_command.output, HasSubstr("Examples:\n  cuewright-recording " + std::string(command)));
    }
    EXPECT_EQ(run({"--version"}).output, "cuewright-recording " CUEWRIGHT_VERSION "\n");
}

TEST_F(RecordingProgramTest, AWrongCommandLineIsStatusTwo) {
    const std::string out = path("out.rec");
    const std::vector<std::vector<std::string>> wrong{
        {},
        {"nonsense"},
        {"generate"},
        {"generate", out, "--pattern", "spiral"},
        {"generate", out, "--universes", "3-1"},
        {"generate", out, "--universes", "0,1,0"},
        {"generate", out, "--channels", "513"},
        {"generate", out, "--fps", "0"},
        {"generate", out, "--fps", "nan"},
        {"generate", out, "--timing", "us"},
        {"info"},
        {"info", "--speed-boost", "101", out},
        {"cut", out, out, "--from", "yesterday"},
        {"cut", out, out, "--from", "2", "--to", "1"},
        {"remap", out, out},
        {"remap", out, out, "1:2"},
    };
    for (const std::vector<std::string>& words : wrong) {
        const Ending ending = run(words);
        EXPECT_EQ(ending.status, 2) << ending.error;
        EXPECT_THAT(ending.error, AllOf(StartsWith("cuewright-recording: "), HasSubstr("--help")));
    }
    EXPECT_THAT(files_.names(), IsEmpty());
}

TEST_F(RecordingProgramTest, WhatIsGeneratedIsToldAndPlaysLikeThat) {
    const Ending made = run({"generate", path("a.rec"), "--universes", "0-1,9", "--channels", "4", "--fps",
                             "50", "--seconds", "0.06", "--pattern", "ramp"});
    EXPECT_EQ(made.status, 0) << made.error;
    EXPECT_EQ(made.output,
              path("a.rec") + ": 3 frames of 3 universes, 0.07 s, of which the last frame stands 30 ms\n");
    EXPECT_THAT(made.error, IsEmpty());
    EXPECT_THAT(played(path("a.rec")),
                ElementsAre("0@0:0", "1@0:1", "9@0:2", "0@20000:1", "1@20000:2", "9@20000:3", "0@40000:2",
                            "1@40000:3", "9@40000:4", "=70000"));
    EXPECT_EQ(run({"generate", path("ms.rec"), "--timing", "ms", "--seconds", "0.05"}).status, 0);
    EXPECT_THAT(tests::types_of(path("ms.rec")), ElementsAre(0x5000, 0xFF, 0x5000, 0xFF));
}

TEST_F(RecordingProgramTest, WhatMakesARecordingSaysSoToProgramsToo) {
    const std::string a = path("a.rec");
    const std::string b = path("b.rec");
    const std::string c = path("c.rec");
    const std::string tail = R"(,"last_frame_ns":30000000,"left_out":{"repeated":0,"passed_over":0}})";
    EXPECT_EQ(
        run({"generate", "--json", "--universes", "3,1", "--channels", "2", "--seconds", "0.1", a}).output,
        R"({"file":")" + a +
            R"(","bytes":512,"packets":8,"frames":4,"universes":[1,3],"duration_ns":105000000)" + tail +
            "\n");
    EXPECT_EQ(std::filesystem::file_size(a), 512U);
    EXPECT_EQ(run({"cut", "--json", "--from", "0.05", a, b}).output,
              R"({"file":")" + b +
                  R"(","bytes":512,"packets":4,"frames":2,"universes":[1,3],"duration_ns":55000000)" + tail +
                  "\n");
    EXPECT_EQ(run({"remap", "--json", b, c, "1=7", "3=8"}).output,
              R"({"file":")" + c +
                  R"(","bytes":512,"packets":4,"frames":2,"universes":[7,8],"duration_ns":55000000)" + tail +
                  "\n");
    EXPECT_THAT(run({"merge", "--json", path("d.rec"), a, c}).output,
                HasSubstr(R"("packets":12,"frames":4,"universes":[1,3,7,8],"duration_ns":105000000)"));
    const std::string untimed = files_.padded("u.rec", Recording{}.dmx(1, {1}).dmx(1, {2}));
    EXPECT_THAT(run({"remap", "--json", untimed, path("v.rec"), "1=7"}).output,
                HasSubstr(R"("packets":2,"frames":null,"universes":[7])"));
    // A device gets the recording; what is asked for is said all the same.
    EXPECT_THAT(run({"generate", "/dev/null"}).output, IsEmpty());
    EXPECT_THAT(run({"generate", "--json", "/dev/null"}).output, StartsWith(R"({"file":"/dev/null",)"));
}

TEST_F(RecordingProgramTest, AnExistingFileIsKeptUnlessForced) {
    ASSERT_EQ(run({"generate", path("a.rec"), "--seconds", "0.05"}).status, 0);
    const std::vector<std::string> before = played(path("a.rec"));
    const Ending refused = run({"generate", path("a.rec"), "--seconds", "1"});
    EXPECT_EQ(refused.status, 1);
    EXPECT_EQ(refused.error,
              "cuewright-recording: " + path("a.rec") + ": File exists (--force replaces it)\n");
    EXPECT_EQ(played(path("a.rec")), before);
    EXPECT_EQ(run({"generate", path("a.rec"), "--seconds", "1", "--force"}).status, 0);
    EXPECT_EQ(played(path("a.rec")).size(), 41U);
}

TEST_F(RecordingProgramTest, WhereAFileCannotGrowTheOldOneStaysAndNothingElse) {
    ASSERT_EQ(run({"generate", path("a.rec"), "--seconds", "0.05"}).status, 0);
    const std::vector<std::string> before = played(path("a.rec"));
    for (const std::string& command :
         {std::string("generate --force "), "cut --force " + path("a.rec") + " "}) {
        // The limit is a part of the two kilobytes that each needs.
        const Ending full =
            run_script("trap '' XFSZ; ulimit -f 1; exec \"$0\" " + command + path("a.rec") + " >&2");
        EXPECT_EQ(full.status, 1) << command;
        EXPECT_THAT(full.error, EndsWith(path("a.rec") + ": File too large\n"));
        EXPECT_EQ(played(path("a.rec")), before);
    }
    EXPECT_THAT(files_.names(), ElementsAre("a.rec"));
}

TEST_F(RecordingProgramTest, AFullDeviceIsAnErrorOfTheRecordingAndOfTheOutput) {
    const Ending recording = run({"generate", "/dev/full"});
    EXPECT_EQ(recording.status, 1);
    EXPECT_EQ(recording.error, "cuewright-recording: /dev/full: No space left on device\n");
    ASSERT_EQ(run({"generate", path("a.rec")}).status, 0);
    for (const std::string command : {"info", "info --json", "dump", "dump --json"}) {
        const Ending output = run_script("exec \"$0\" " + command + " " + path("a.rec") + " > /dev/full");
        EXPECT_EQ(output.status, 1) << command;
        EXPECT_EQ(output.error, "cuewright-recording: standard output: No space left on device\n");
    }
}

TEST_F(RecordingProgramTest, UnreadableInputIsNamedWithThePlace) {
    const std::string text = files_.raw("text", Recording{}.raw("no recording"));
    const std::string cut =
        files_.raw("cut", Recording{}.dmx(1, {1}).frame_delay(1ms).dmx(1, {2}).cut_to(50));
    const auto error_of = [](const std::vector<std::string>& words) {
        const Ending ending = run(words);
        EXPECT_EQ(ending.status, 1);
        return ending.error;
    };
    const std::string name = "cuewright-recording: ";
    const std::string out = path("out.rec");
    EXPECT_EQ(error_of({"info", path("none")}), name + path("none") + ": No such file or directory\n");
    EXPECT_EQ(error_of({"dump", path("none")}), name + path("none") + ": No such file or directory\n");
    EXPECT_EQ(error_of({"info", "/"}), name + "/: is a directory, expected a recording\n");
    EXPECT_EQ(error_of({"cut", text, out}),
              name + text + ": holds no Art-Net packet, expected a recording\n");
    EXPECT_EQ(error_of({"merge", out, cut}), name + cut + ": ends within the packet at byte 37\n");
    EXPECT_EQ(error_of({"remap", cut, out, "1=2"}), name + cut + ": ends within the packet at byte 37\n");
    EXPECT_EQ(error_of({"dump", cut}), name + cut + ": ends within the packet at byte 37\n");
    EXPECT_THAT(files_.names(), ElementsAre("cut", "text"));
}

TEST_F(RecordingProgramTest, AFileWithoutPermissionIsNamed) {
    const std::string file = files_.padded("a.rec", Recording{}.dmx(1, {1}));
    std::filesystem::permissions(file, std::filesystem::perms::none);
    const tests::ChildReport report = tests::run_in_child(0, [&] {
        // Root without these may read no more than anybody else.
        tests::give_up({CAP_DAC_OVERRIDE, CAP_DAC_READ_SEARCH});
        std::string text;
        for (const std::vector<std::string>& words :
             {std::vector<std::string>{"info", file}, {"dump", file}, {"cut", file, path("b.rec")}}) {
            const Ending ending = run(words);
            text += std::to_string(ending.status.value_or(-1)) + " " + ending.error;
        }
        return text;
    });
    SKIP_IF_UNAVAILABLE(report);
    const std::string refusal = "1 cuewright-recording: " + file + ": Permission denied\n";
    EXPECT_EQ(report.text, refusal + refusal + refusal);
}

TEST_F(RecordingProgramTest, InfoGoesOnAfterAFileThatCannotBeRead) {
    const std::string good = files_.padded("a.rec", Recording{}.dmx(1, {1}).frame_delay(1ms));
    const Ending lines = run({"info", path("none"), good});
    EXPECT_EQ(lines.status, 1);
    EXPECT_THAT(lines.output, StartsWith(good + "\n"));
    EXPECT_THAT(lines.error, HasSubstr("none: No such file"));
    const Ending json = run({"info", "--json", good, path("none"), good});
    EXPECT_THAT(json.output, AllOf(StartsWith("[\n{"), HasSubstr("},\n{"), EndsWith("}\n]\n")));
    EXPECT_EQ(run({"info", "--json", path("none")}).output, "[]\n");
}

TEST_F(RecordingProgramTest, ARecordingIsCutMergedAndRenumbered) {
    const std::string a = files_.padded(
        "a.rec", Recording{}.dmx(1, {1}).frame_delay(10ms).dmx(1, {2}).frame_delay(10ms).dmx(1, {3}));
    EXPECT_EQ(run({"cut", "--from", "5ms", "--to", "0.02", a, path("b.rec")}).status, 0);
    EXPECT_THAT(played(path("b.rec")), ElementsAre("1@0:1", "1@5000:2", "=35000"));
    EXPECT_EQ(run({"remap", path("b.rec"), path("c.rec"), "1=7"}).status, 0);
    EXPECT_EQ(run({"merge", path("d.rec"), a, path("c.rec")}).status, 0);
    EXPECT_THAT(played(path("d.rec")),
                ElementsAre("1@0:1", "7@0:1", "7@5000:2", "1@10000:2", "1@20000:3", "=50000"));
    const Ending refused = run({"merge", path("e.rec"), a, path("b.rec")});
    EXPECT_EQ(refused.status, 1);
    EXPECT_EQ(refused.error,
              "cuewright-recording: universe 1 is both in " + a + " and in " + path("b.rec") + "\n");
}

TEST_F(RecordingProgramTest, CutMendsAFileThatEndsWithinAPacket) {
    const std::string broken =
        files_.raw("a.rec", Recording{}.dmx(1, {1}).frame_delay(1ms).dmx(1, {2}).dmx(1, {3}).cut_to(70));
    EXPECT_THAT(played(broken).back(), HasSubstr("Unexpected end"));
    const Ending ending = run({"cut", broken, path("b.rec")});
    EXPECT_EQ(ending.status, 0);
    EXPECT_EQ(ending.error, broken + ": ends within the packet at byte 56, which is left out\n");
    EXPECT_THAT(played(path("b.rec")), ElementsAre("1@0:1", "1@1000:2", "=31000"));
}

TEST_F(RecordingProgramTest, ProgressIsShownOnATerminalWhileARecordingArrivesAndNotElsewhere) {
    tests::Terminal terminal(100, 30);
    if (terminal.name().empty()) {
        GTEST_SKIP() << "no pseudo-terminals here";
    }
    for (const bool on_terminal : {true, false}) {
        Fifo fifo(path("fifo"));
        tests::ChildProgram program({"/bin/sh", "-c", "exec \"$0\" info \"$1\" 2> \"$2\"", RECORDING_PROGRAM,
                                     path("fifo"), on_terminal ? terminal.name() : path("errors")});
        fifo.open();
        const std::vector<std::uint8_t> frame =
            Recording{}.dmx(1, std::vector<std::uint8_t>(512, 1)).frame_delay(25ms).bytes();
        const auto begin = std::chrono::steady_clock::now();
        const auto shown = [&] {
            return on_terminal ? terminal.text().find(path("fifo") + "  ") != std::string::npos
                               : std::chrono::steady_clock::now() - begin > 1500ms;
        };
        while (!shown() && std::chrono::steady_clock::now() - begin < tests::Terminal::kDeadline) {
            ASSERT_TRUE(fifo.write(frame));
            terminal.collect();
        }
        EXPECT_TRUE(shown());
        fifo.close();
        EXPECT_EQ(program.wait_exit(), 0);
        EXPECT_THAT(program.output(), HasSubstr("40 a second"));
        fifo.unlink();
    }
    EXPECT_TRUE(terminal.read_until([](const std::string& text) { return text.ends_with("\r\x1b[K"); }))
        << "taken away at the end";
    EXPECT_EQ(std::filesystem::file_size(path("errors")), 0U);
}

}  // namespace
