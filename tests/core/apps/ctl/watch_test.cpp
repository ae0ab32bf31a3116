#include "watch.h"

#include <gtest/gtest.h>
#include <QJsonDocument>

namespace {

std::string json(const QJsonObject& event) {
    return QJsonDocument(event).toJson(QJsonDocument::Compact).toStdString();
}

const QDateTime kTime(QDate(2026, 1, 2), QTime(3, 4, 5, 67));

}  // namespace

TEST(WatchTest, EveryKindOfEventHasItsKeysAndItsLine) {
    EXPECT_EQ(json(ctl::stopped_event(7)), R"({"event":"playlist_stopped","playlist_id":7})");
    EXPECT_EQ(ctl::event_text(ctl::stopped_event(7), kTime), "03:04:05.067  playlist 7 has ended");

    const QJsonObject there = ctl::owner_event(QStringLiteral("a.b"), QStringLiteral(":1.5"));
    EXPECT_EQ(json(there), R"({"event":"owner","name":"a.b","owner":":1.5","present":true})");
    EXPECT_EQ(ctl::event_text(there, kTime), "03:04:05.067  a.b is there (:1.5)");
    const QJsonObject gone = ctl::owner_event(QStringLiteral("a.b"), QString());
    EXPECT_EQ(json(gone), R"({"event":"owner","name":"a.b","owner":"","present":false})");
    EXPECT_EQ(ctl::event_text(gone, kTime), "03:04:05.067  a.b is not there");

    const QJsonObject nodes = ctl::nodes_event(QStringLiteral("1:0:10.0.0.5:6454;0:3:10.0.0.7:6455"));
    EXPECT_EQ(json(nodes), R"({"event":"nodes","message":"1:0:10.0.0.5:6454;0:3:10.0.0.7:6455","records":[)"
                           R"({"address":"10.0.0.5","port":6454,"present":true,"universe":0},)"
                           R"({"address":"10.0.0.7","port":6455,"present":false,"universe":3}]})");
    EXPECT_EQ(ctl::event_text(nodes, kTime),
              "03:04:05.067  nodes: +10.0.0.5:6454 on universe 0, -10.0.0.7:6455 on universe 3");
}

TEST(WatchTest, RecordsThatTheServiceSkipsAreNoRecords) {
    const QJsonObject nodes = ctl::nodes_event(QStringLiteral(";1:5:10.0.0.9;1:5:10.0.0.9:6454:x;"));
    EXPECT_EQ(json(nodes),
              R"({"event":"nodes","message":";1:5:10.0.0.9;1:5:10.0.0.9:6454:x;","records":[]})");
    EXPECT_EQ(ctl::event_text(nodes, kTime), "03:04:05.067  nodes: no record");
}
