// What the discovery reads and writes: static nodes, its memory, the list, its command line.
#include <fstream>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <QTemporaryDir>

#include "memory.h"
#include "node_list.h"
#include "options.h"
#include "replies.h"
#include "static_nodes.h"

namespace netsurvey {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

class NetsurveyFilesTest : public testing::Test {
protected:
    [[nodiscard]] std::string path(const std::string& name) const {
        return directory_.path().toStdString() + "/" + name;
    }
    [[nodiscard]] std::string file(const std::string& content) const {
        std::ofstream(path("file")) << content;
        return path("file");
    }
    /// What reading the file's content as static nodes is refused with, without the file's name.
    [[nodiscard]] std::string refusal(const std::string& content) const {
        const std::string name = file(content);
        try {
            static_cast<void>(read_static_nodes(name));
        } catch (const cli::Failure& failure) {
            const std::string text = failure.what();
            return text.starts_with(name + ": ") ? text.substr(name.size() + 2)
                                                 : "no name of the file in: " + text;
        }
        return "accepted";
    }

private:
    QTemporaryDir directory_;
};

TEST_F(NetsurveyFilesTest, StaticNodesHaveAddressAndUniversesAndMayHaveMore) {
    const std::vector<StaticNode> nodes =
        read_static_nodes(file(R"([{"address": "10.0.0.5", "universes": [3, "0-1", 0]},
                 {"address": "10.0.0.6", "port": 6455, "name": "Rack", "universes": ["32767"]}])"));
    ASSERT_EQ(nodes.size(), 2U);
    EXPECT_EQ(nodes[0].address, ip("10.0.0.5"));
    EXPECT_EQ(nodes[0].port, 6454);
    EXPECT_EQ(nodes[0].name, "");
    EXPECT_THAT(nodes[0].universes, ElementsAre(0, 1, 3));
    EXPECT_EQ(nodes[1].port, 6455);
    EXPECT_EQ(nodes[1].name, "Rack");
    EXPECT_THAT(nodes[1].universes, ElementsAre(32767));
    EXPECT_THAT(read_static_nodes(file("[]")), IsEmpty());
}

TEST_F(NetsurveyFilesTest, AWrongFileOfStaticNodesIsRefusedWithItsPlace) {
    const std::string good = R"({"address": "10.0.0.5", "universes": [1]})";
    EXPECT_EQ(refusal("[" + good + "]"), "accepted");
    EXPECT_THAT(refusal("[" + good), HasSubstr("byte 42: "));
    EXPECT_THAT(refusal(""), HasSubstr("byte 0: "));
    EXPECT_THAT(refusal(good), HasSubstr("expected an array"));
    EXPECT_EQ(refusal("[" + good + ", 7]"), "element 1: expected an object");
    EXPECT_THAT(refusal("[" + good + R"(, {"universes": [1]}])"),
                HasSubstr("element 1: \"address\": expected"));
    for (const char* const address : {"\"0.0.0.0\"", "\"10.0.0\"", "\"host\"", "\"::1\"", "7"}) {
        EXPECT_THAT(refusal("[{\"universes\": [1], \"address\": " + std::string(address) + "}]"),
                    HasSubstr("element 0: \"address\": expected"))
            << address;
    }
    for (const char* const port : {"0", "65536", "1.5", "\"6454\"", "null"}) {
        EXPECT_THAT(
            refusal(R"([{"address": "10.0.0.5", "universes": [1], "port": )" + std::string(port) + "}]"),
            HasSubstr("\"port\": expected"))
            << port;
    }
    for (const char* const universes : {"[]", "1", "\"1\"", "null"}) {
        EXPECT_THAT(refusal(R"([{"address": "10.0.0.5", "universes": )" + std::string(universes) + "}]"),
                    HasSubstr("\"universes\": expected"))
            << universes;
    }
    for (const char* const universe : {"-1", "32768", "1.5", "\"x\"", "\"3-1\"", "null"}) {
        EXPECT_THAT(refusal(R"([{"address": "10.0.0.5", "universes": [)" + std::string(universe) + "]}]"),
                    HasSubstr("neither a universe"))
            << universe;
    }
    EXPECT_THAT(refusal(R"([{"address": "10.0.0.5", "universes": [1], "name": 7}])"),
                HasSubstr("\"name\": expected"));
    EXPECT_THAT(refusal(R"([{"address": "10.0.0.5", "universe": [1]}])"),
                HasSubstr("unknown key \"universe\""));
    EXPECT_THROW(static_cast<void>(read_static_nodes(path("none"))), cli::Failure);
    EXPECT_THROW(static_cast<void>(read_static_nodes(path(""))), cli::Failure) << "a directory";
}

TEST_F(NetsurveyFilesTest, TheMemoryHoldsWhatWasStoredLast) {
    const Memory memory(path("memory"));
    EXPECT_THAT(memory.load(), IsEmpty()) << "no file yet";
    const std::vector<NodeRecord> records{record(0, "10.0.0.5"), record(32767, "10.0.0.6", 65535)};
    EXPECT_EQ(memory.store(records), "");
    EXPECT_EQ(memory.load(), records);
    EXPECT_EQ(memory.store({}), "");
    EXPECT_THAT(memory.load(), IsEmpty());
}

TEST_F(NetsurveyFilesTest, AMemoryThatIsNoneHarmsNothing) {
    EXPECT_THAT(
        Memory(file("1:10.0.0.5:6454\nx\n1:10.0.0.5\n70000:10.0.0.5:1\n1:10.0.0.5:6454:9\n::\n2:10.0.0.6:1"))
            .load(),
        ElementsAre(record(1, "10.0.0.5"), record(2, "10.0.0.6", 1)));
    EXPECT_THAT(Memory(path("")).load(), IsEmpty()) << "a directory";
    ASSERT_EQ(symlink(path("file").c_str(), path("link").c_str()), 0);
    EXPECT_THAT(Memory(path("link")).load(), IsEmpty()) << "somebody else's choice of a file";
    EXPECT_THAT(Memory(path("none/memory")).store({}), HasSubstr("none/memory: No such file or directory"));
}

TEST_F(NetsurveyFilesTest, EachBusHasAMemoryOfItsOwn) {
    EXPECT_NE(Memory::default_path("1"), Memory::default_path("2"));
    EXPECT_THAT(Memory::default_path("1"), HasSubstr("/cuewright-netsurvey-1.nodes"));
}

TEST(NodeListTest, PeopleGetATableAndProgramsAnArray) {
    using namespace std::chrono_literals;
    EXPECT_EQ(to_table(to_json({})), "no node\n");
    const std::vector<NodeView> nodes{
        {Source::Reply, ip("10.0.0.5"), 6454, 2, "Front", "", {0, 1, 2, 8}, 1300ms},
        {Source::Static, ip("10.10.10.10"), 16454, 0, "Rack", "", {7}, 0ms},
        {Source::Remembered, ip("10.10.10.11"), 6454, 0, "", "", {}, 0ms},
    };
    EXPECT_EQ(to_table(to_json(nodes)),
              "ADDRESS       PORT  BIND  NAME   UNIVERSES  HEARD\n"
              "10.0.0.5      6454     2  Front  0-2,8      1.3 s ago\n"
              "10.10.10.10  16454     -  Rack   7          static\n"
              "10.10.10.11   6454     -         -          remembered\n");
}

Options parse(std::vector<const char*> words) {
    CLI::App app{"", "cuewright-netsurvey"};
    const auto options = add_options(app);
    words.insert(words.begin(), "cuewright-netsurvey");
    app.parse(static_cast<int>(words.size()), words.data());
    return options();
}

TEST(NetsurveyOptionsTest, ThePollsComeAsTheProtocolAsksFor) {
    using namespace std::chrono_literals;
    const Options options = parse({});
    EXPECT_EQ(options.survey.port, 6454);
    EXPECT_GE(options.survey.interval, 2500ms);
    EXPECT_LE(options.survey.interval, 3000ms);
    EXPECT_EQ(options.survey.expiry, 10s);
    const Options other =
        parse({"--interval", "0.5", "--expiry", "2", "--target", "10.0.0.1", "--target", "10.0.0.2"});
    EXPECT_EQ(other.survey.interval, 500ms);
    EXPECT_EQ(other.survey.expiry, 2s);
    EXPECT_THAT(other.survey.targets, ElementsAre(ip("10.0.0.1"), ip("10.0.0.2")));
}

TEST(NetsurveyOptionsTest, WhatMakesNoSenseIsRefused) {
    EXPECT_THROW(parse({"--expiry", "2"}), cli::UsageError) << "shorter than the time between polls";
    EXPECT_THROW(parse({"--target", "eth0"}), cli::UsageError);
    EXPECT_THROW(parse({"--target", "10.0.0.1", "--interface", "eth0"}), cli::UsageError);
    EXPECT_THROW(parse({"--json"}), cli::UsageError);
    EXPECT_THROW(parse({"--port", "0"}), CLI::ParseError);
    EXPECT_THROW(parse({"--interval", "0"}), CLI::ParseError);
    EXPECT_THROW(parse({"word"}), CLI::ParseError);
}

}  // namespace
}  // namespace netsurvey
