// The counters in both forms.
#include "report.h"

#include <cerrno>

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using forwarder::Report;
using testing::HasSubstr;
using testing::Not;

Report example_report() {
    Report report;
    report.ports = {{6454, 90, 4, 1000}, {6455, 10, 1, 2000}};
    report.left_behind = 2;
    report.accepted = 93;
    report.rejected = {1, 0, 3, 0, 1};
    report.destinations = {{{0xC0000201, 6454}, {0x7F000002, 6454}, {90, 47700, 1, 3, 2, 1, ENETUNREACH}}};
    return report;
}

QJsonObject parsed(const Report& report) {
    const std::string json = forwarder::to_json(report);
    EXPECT_EQ(json.find('\n'), json.size() - 1) << "one line";
    QJsonParseError error{};
    const QJsonDocument document = QJsonDocument::fromJson(QByteArray::fromStdString(json), &error);
    EXPECT_EQ(error.error, QJsonParseError::NoError) << json;
    return document.object();
}

QJsonValue at(const QJsonObject& object, const char* name) {
    return object.value(QLatin1String(name));
}

TEST(ReportTest, TotalsAreSumsOverPortsAndReasons) {
    EXPECT_EQ(example_report().received(), 100U);
    EXPECT_EQ(example_report().kernel_drops(), 5U);
    EXPECT_EQ(example_report().rejected_in_all(), 5U);
}

TEST(ReportTest, TableNamesEveryCounter) {
    const std::string table = forwarder::to_table(example_report());
    EXPECT_THAT(table, HasSubstr("received 100, accepted 93, rejected 5, dropped by the kernel 5, "
                                 "left behind at the end 2\n"));
    EXPECT_THAT(table, HasSubstr("rejected because of: size 1; invalid address 3; Art-Net identifier 1\n"));
    EXPECT_THAT(table,
                HasSubstr("port 6455: received 10, dropped by the kernel 1, receive buffer 2000 bytes\n"));
    EXPECT_THAT(table,
                testing::ContainsRegex("192.0.2.1:6454 +127.0.0.2:6454 +90 +47700 +1 +3 +2 +1  Network is "
                                       "unreachable\n"));
    EXPECT_THAT(table, Not(HasSubstr("others")));
    EXPECT_THAT(table, Not(HasSubstr("copies")));
}

TEST(ReportTest, JsonHasTheSameNumbers) {
    const QJsonObject json = parsed(example_report());
    EXPECT_EQ(at(json, "type"), QLatin1String("counters"));
    EXPECT_EQ(at(json, "received"), 100);
    EXPECT_EQ(at(json, "accepted"), 93);
    EXPECT_EQ(at(json, "kernel_drops"), 5);
    EXPECT_EQ(at(json, "left_behind"), 2);
    const QJsonObject rejected = at(json, "rejected").toObject();
    EXPECT_EQ(rejected.size(), 5);
    EXPECT_EQ(at(rejected, "size"), 1);
    EXPECT_EQ(at(rejected, "unterminated_address"), 0);
    EXPECT_EQ(at(rejected, "invalid_address"), 3);
    EXPECT_EQ(at(rejected, "port"), 0);
    EXPECT_EQ(at(rejected, "identifier"), 1);
    const QJsonObject port = at(json, "ports").toArray().at(1).toObject();
    EXPECT_EQ(at(port, "port"), 6455);
    EXPECT_EQ(at(port, "received"), 10);
    EXPECT_EQ(at(port, "kernel_drops"), 1);
    EXPECT_EQ(at(port, "receive_buffer"), 2000);
    const QJsonObject peer = at(json, "destinations").toArray().at(0).toObject();
    EXPECT_EQ(at(peer, "address"), QLatin1String("192.0.2.1"));
    EXPECT_EQ(at(peer, "port"), 6454);
    EXPECT_EQ(at(peer, "sent_to"), QLatin1String("127.0.0.2:6454"));
    EXPECT_EQ(at(peer, "packets"), 90);
    EXPECT_EQ(at(peer, "bytes"), 47700);
    EXPECT_EQ(at(peer, "errors"), 1);
    EXPECT_EQ(at(peer, "unsent"), 3);
    EXPECT_EQ(at(peer, "waits"), 2);
    EXPECT_EQ(at(at(peer, "rejected").toObject(), "identifier"), 1);
    EXPECT_EQ(at(peer, "last_error"), QLatin1String("Network is unreachable"));
    EXPECT_FALSE(json.contains(QLatin1String("others")));
    EXPECT_FALSE(json.contains(QLatin1String("tee")));
}

TEST(ReportTest, OthersAndCopiesAreShownWhereThereAreAny) {
    Report report = example_report();
    report.others = {7, 8, 9, 10, 11, 12, 0};
    report.tee = Report::Peer{{0x7F000003, 7000}, {0x7F000003, 7000}, {1, 554, 0, 0, 0, 0, 0}};
    EXPECT_THAT(forwarder::to_table(report), testing::ContainsRegex("others +7 +8 +9 +10 +11 +12"));
    EXPECT_THAT(forwarder::to_table(report), testing::ContainsRegex("\\(copies\\) +127.0.0.3:7000 +1 +554"));
    const QJsonObject json = parsed(report);
    EXPECT_EQ(at(at(json, "others").toObject(), "packets"), 7);
    EXPECT_EQ(at(at(json, "tee").toObject(), "bytes"), 554);
    EXPECT_EQ(at(at(json, "tee").toObject(), "last_error"), QLatin1String(""));
}

TEST(ReportTest, WhatOptionsDidIsShownWhereThereAreAny) {
    Report report = example_report();
    EXPECT_THAT(forwarder::to_table(report), Not(HasSubstr("ArtSync")));
    EXPECT_FALSE(parsed(report).contains(QLatin1String("outlet")));
    report.outlet = {1, 2, 3, 4, 5, 6, 7};
    EXPECT_THAT(forwarder::to_table(report),
                HasSubstr("\nstreams 1 (packets beyond the limit 2), re-sent 3, ArtSync 4, waiting 5, "
                          "superseded 6, dropped 7\n"));
    const QJsonObject outlet = at(parsed(report), "outlet").toObject();
    EXPECT_EQ(outlet.size(), 7);
    EXPECT_EQ(at(outlet, "streams"), 1);
    EXPECT_EQ(at(outlet, "untracked"), 2);
    EXPECT_EQ(at(outlet, "resent"), 3);
    EXPECT_EQ(at(outlet, "syncs"), 4);
    EXPECT_EQ(at(outlet, "waiting"), 5);
    EXPECT_EQ(at(outlet, "superseded"), 6);
    EXPECT_EQ(at(outlet, "dropped"), 7);
}

TEST(ReportTest, TableSaysWhyADestinationHasRejectedDatagramsAndOnlyThen) {
    EXPECT_THAT(forwarder::to_table(example_report()),
                HasSubstr("(rejected of a destination: the packet's Art-Net identifier is wrong;"));
    EXPECT_THAT(forwarder::to_table(Report{}), Not(HasSubstr("rejected of a destination")));
}

TEST(ReportTest, IdleProgramHasAReportToo) {
    EXPECT_EQ(at(parsed(Report{}), "received"), 0);
    EXPECT_THAT(forwarder::to_table(Report{}), HasSubstr("received 0, accepted 0"));
}

}  // namespace
