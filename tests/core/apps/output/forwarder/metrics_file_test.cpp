// The counters as Prometheus text, and the file that holds them.
#include "metrics_file.h"

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <regex>
#include <set>
#include <sstream>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

/// How often data were brought to the disk.
int syncs = 0;

}  // namespace

extern "C" {

int __wrap_fsync(int) {
    ++syncs;
    return 0;
}

int __wrap_fdatasync(int) {
    ++syncs;
    return 0;
}
}

namespace {

using forwarder::MetricsFile;
using forwarder::Report;
using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

Report example_report() {
    Report report;
    report.ports = {{6454, 90, 4, 1000}, {6455, 10, 1, 2000}};
    report.left_behind = 2;
    report.accepted = 93;
    report.rejected = {1, 0, 3, 0, 1};
    report.destinations = {{{0xC0000201, 6454}, {0x7F000002, 6454}, {90, 47700, 11, 3, 2, 5, 0}},
                           {{0x0A000001, 6455}, {0x0A000001, 6455}, {7, 3710, 0, 0, 0, 0, 0}}};
    return report;
}

TEST(PrometheusTextTest, EveryCounterHasASampleWithItsLabels) {
    const std::string text = forwarder::to_prometheus(example_report(), 8);
    for (const char* line :
         {"received_datagrams_total{port=\"6455\"} 10", "kernel_dropped_datagrams_total{port=\"6454\"} 4",
          "receive_buffer_bytes{port=\"6454\"} 1000", "accepted_datagrams_total 93",
          "rejected_datagrams_total{reason=\"invalid_address\"} 3", "left_behind_datagrams_total 2",
          "destination_packets_total{destination=\"192.0.2.1:6454\",sent_to=\"127.0.0.2:6454\"} 90",
          "destination_bytes_total{destination=\"10.0.0.1:6455\",sent_to=\"10.0.0.1:6455\"} 3710",
          "destination_errors_total{destination=\"192.0.2.1:6454\",sent_to=\"127.0.0.2:6454\"} 11",
          "destination_unsent_total{destination=\"192.0.2.1:6454\",sent_to=\"127.0.0.2:6454\"} 3",
          "destination_waits_total{destination=\"192.0.2.1:6454\",sent_to=\"127.0.0.2:6454\"} 2",
          "destination_rejected_total{destination=\"192.0.2.1:6454\",sent_to=\"127.0.0.2:6454\"} 5",
          "metrics_write_failures_total 8"}) {
        EXPECT_THAT(text, HasSubstr("\ncuewright_forwarder_" + std::string(line) + "\n"));
    }
    EXPECT_THAT(text, Not(HasSubstr("resent"))) << "no outlet, no counters of it";
    EXPECT_THAT(text, AllOf(Not(HasSubstr("others")), Not(HasSubstr("copies"))));
}

TEST(PrometheusTextTest, OptionsOthersAndCopiesAreThereWhenTheyAreInUse) {
    Report report = example_report();
    report.others = {70, 80, 0, 0, 0, 0, 0};
    report.tee = Report::Peer{{0x7F000003, 7000}, {0x7F000003, 7000}, {60, 33240, 0, 0, 0, 0, 0}};
    report.outlet = {1, 2, 3, 4, 5, 6, 7};
    const std::string text = forwarder::to_prometheus(report, 0);
    for (const char* line :
         {"destination_packets_total{destination=\"others\",sent_to=\"\"} 70",
          "destination_packets_total{destination=\"copies\",sent_to=\"127.0.0.3:7000\"} 60", "streams 1",
          "untracked_packets_total 2", "resent_packets_total 3", "sync_packets_total 4",
          "pace_waiting_packets 5", "pace_superseded_packets_total 6", "pace_dropped_packets_total 7"}) {
        EXPECT_THAT(text, HasSubstr("\ncuewright_forwarder_" + std::string(line) + "\n"));
    }
}

TEST(PrometheusTextTest, EachMetricIsExplainedOnceBeforeItsSamplesAndNoSampleComesTwice) {
    Report report = example_report();
    report.outlet.emplace();
    std::istringstream lines(forwarder::to_prometheus(report, 0));
    const std::regex help("# HELP ([a-z_]+) [^ ].*\\.");
    const std::regex type("# TYPE ([a-z_]+) (counter|gauge)");
    const std::regex sample("([a-z_]+)(\\{[a-z_]+=\"[^\"]*\"(,[a-z_]+=\"[^\"]*\")*\\})? [0-9]+");
    std::set<std::string> explained;
    std::set<std::string> samples;
    std::string current;
    for (std::string line; std::getline(lines, line);) {
        std::smatch match;
        if (std::regex_match(line, match, help)) {
            current = match[1];
            EXPECT_TRUE(explained.insert(current).second) << line;
            ASSERT_TRUE(std::getline(lines, line));
            ASSERT_TRUE(std::regex_match(line, match, type)) << line;
            EXPECT_EQ(match[1], current);
            EXPECT_EQ(match[2] == "counter", current.ends_with("_total")) << line;
            continue;
        }
        ASSERT_TRUE(std::regex_match(line, match, sample)) << line;
        EXPECT_EQ(match[1], current);
        EXPECT_TRUE(samples.insert(match[1].str() + match[2].str()).second) << line;
    }
    EXPECT_GT(samples.size(), explained.size());
}

class MetricsFileTest : public testing::Test {
protected:
    MetricsFileTest() {
        std::string name = (std::filesystem::temp_directory_path() / "metrics-XXXXXX").string();
        directory_ = mkdtemp(name.data());
    }
    ~MetricsFileTest() override { std::filesystem::remove_all(directory_); }

    [[nodiscard]] std::string path(const char* name = "forwarder.prom") const {
        return (directory_ / name).string();
    }
    static std::string content(const std::string& path) {
        std::ifstream file(path);
        return {std::istreambuf_iterator<char>(file), {}};
    }
    [[nodiscard]] std::size_t files() const {
        return static_cast<std::size_t>(std::distance(std::filesystem::directory_iterator(directory_),
                                                      std::filesystem::directory_iterator()));
    }

    std::filesystem::path directory_;
};

TEST_F(MetricsFileTest, FileIsReplacedAsAWhole) {
    MetricsFile file(path());
    EXPECT_EQ(file.write("a long first text\n"), "");
    // Whoever has the old file open goes on reading the old text.
    std::ifstream reader(path());
    EXPECT_EQ(file.write("second\n"), "");
    EXPECT_EQ(content(path()), "second\n");
    std::string first;
    std::getline(reader, first);
    EXPECT_EQ(first, "a long first text");
    EXPECT_EQ(files(), 1U) << "nothing else is left";
    EXPECT_EQ(file.failures(), 0U);
}

TEST_F(MetricsFileTest, ReplacingDoesNotWearTheDisk) {
    MetricsFile file(path());
    EXPECT_EQ(file.write("first\n"), "");
    EXPECT_EQ(file.write("second\n"), "");
    EXPECT_EQ(syncs, 0);
}

TEST_F(MetricsFileTest, AFailureIsReportedOnceAndTheNextWriteMaySucceed) {
    const std::string inside = path("missing") + "/forwarder.prom";
    MetricsFile file(inside);
    EXPECT_THAT(file.write("text\n"), AllOf(HasSubstr(inside), HasSubstr("No such file or directory"),
                                            HasSubstr("the forwarding goes on")));
    EXPECT_EQ(file.write("text\n"), "");
    EXPECT_EQ(file.failures(), 2U);
    std::filesystem::create_directory(path("missing"));
    EXPECT_EQ(file.write("text\n"), "");
    EXPECT_EQ(content(inside), "text\n");
    EXPECT_EQ(file.failures(), 2U);
}

TEST_F(MetricsFileTest, OnlyAPlainFileIsEverReplaced) {
    std::filesystem::create_directory(path("directory"));
    ASSERT_EQ(mkfifo(path("pipe").c_str(), 0600), 0);
    for (const char* name : {"directory", "pipe"}) {
        EXPECT_THAT(MetricsFile(path(name)).write("text\n"),
                    HasSubstr(path(name) + ": expected a plain file"));
    }
    EXPECT_TRUE(std::filesystem::is_fifo(path("pipe")));
    EXPECT_EQ(files(), 2U);
}

TEST_F(MetricsFileTest, AFullDiskLeavesTheOldFileAndNoOther) {
    MetricsFile file(path());
    EXPECT_EQ(file.write("old\n"), "");
    // The limit of this process stands for the disk's.
    rlimit before{};
    getrlimit(RLIMIT_FSIZE, &before);
    const rlimit small{10, before.rlim_max};
    std::signal(SIGXFSZ, SIG_IGN);
    setrlimit(RLIMIT_FSIZE, &small);
    const std::string said = file.write(std::string(100, 'x'));
    setrlimit(RLIMIT_FSIZE, &before);
    EXPECT_THAT(said, HasSubstr("File too large"));
    EXPECT_EQ(content(path()), "old\n");
    EXPECT_EQ(files(), 1U);
}

}  // namespace
