// Zones on the bus: wire form both ways, and a real call to the engine.

#include "zone.h"

#include <chrono>

#include <QCoreApplication>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusPendingCall>
#include <QDBusPendingReply>
#include <QDBusVirtualObject>

#include <gtest/gtest.h>

#include "bus/own_names.h"
#include "ondra/logger.h"
#include "repeater.h"
#include "support/captured_log.h"
#include "support/eventually.h"
#include "support/repeater_access.h"

namespace {

const QString kPath = QStringLiteral("/test");

/// Keeps every message it gets, and answers a call with the argument that it got.
class Echo : public QDBusVirtualObject {
public:
    [[nodiscard]] QString introspect(const QString& /*path*/) const override { return {}; }
    bool handleMessage(const QDBusMessage& message, const QDBusConnection& connection) override {
        last = message;
        return connection.send(message.createReply(message.arguments()));
    }
    QDBusMessage last;
};

/// Two connections to the session bus, so that calls really travel.
class ZoneTest : public testing::Test {
protected:
    ZoneTest()
        : server_(QDBusConnection::connectToBus(QDBusConnection::SessionBus, QStringLiteral("server"))),
          client_(QDBusConnection::connectToBus(QDBusConnection::SessionBus, QStringLiteral("client"))) {
        register_zone_types();
    }
    ~ZoneTest() override {
        QDBusConnection::disconnectFromBus(QStringLiteral("server"));
        QDBusConnection::disconnectFromBus(QStringLiteral("client"));
    }
    void SetUp() override {
        ASSERT_TRUE(server_.isConnected() && client_.isConnected());
        bus::settle_own_names(client_, std::chrono::seconds(60));
    }

    QDBusMessage call(const QString& path, const QString& interface, const char* method,
                      const QVariantList& arguments) {
        QDBusMessage message = QDBusMessage::createMethodCall(server_.baseService(), path, interface,
                                                              QString::fromLatin1(method));
        message.setArguments(arguments);
        QDBusPendingCall pending = client_.asyncCall(message);
        EXPECT_TRUE(eventually([&pending] { return pending.isFinished(); }));
        return pending.reply();
    }
    /// Sends `value` to the echo and back.
    template <typename T>
    T through_the_bus(const T& value) {
        EXPECT_TRUE(server_.registerVirtualObject(kPath, &echo_));
        const QDBusMessage reply =
            call(kPath, QStringLiteral("test.Echo"), "echo", {QVariant::fromValue(value)});
        EXPECT_EQ(reply.type(), QDBusMessage::ReplyMessage) << reply.errorMessage().toStdString();
        return reply.arguments().isEmpty() ? T() : qdbus_cast<T>(reply.arguments().constFirst());
    }
    [[nodiscard]] QString signature() const { return echo_.last.signature(); }

private:
    int argc_ = 1;
    char name_[10] = "zone_test";
    char* argv_[2] = {name_, nullptr};
    QCoreApplication application_{argc_, argv_};

protected:
    QDBusConnection server_;
    QDBusConnection client_;
    Echo echo_;
};

TEST_F(ZoneTest, AZoneTravelsAsIdPriorityAndChannels) {
    const Zone back = through_the_bus(Zone{7, -3, {511, 0, 511, -9}});
    EXPECT_EQ(signature(), QStringLiteral("(iiai)"));
    EXPECT_EQ(back.id, 7);
    EXPECT_EQ(back.priority, -3);
    EXPECT_EQ(back.channels, (std::vector<int>{511, 0, 511, -9}));
}

TEST_F(ZoneTest, AZoneWithoutChannelsKeepsItsWireForm) {
    const Zone back = through_the_bus(Zone{7, 3, {}});
    EXPECT_EQ(signature(), QStringLiteral("(iiai)"));
    EXPECT_EQ(back.id, 7);
    EXPECT_EQ(back.priority, 3);
    EXPECT_TRUE(back.channels.empty());
}

TEST_F(ZoneTest, ZonesTravelAsAnArray) {
    const std::vector<Zone> back = through_the_bus(std::vector<Zone>{{1, 2, {3}}, {4, 5, {}}});
    EXPECT_EQ(signature(), QStringLiteral("a(iiai)"));
    ASSERT_EQ(back.size(), 2U);
    EXPECT_EQ(back[0].id, 1);
    EXPECT_EQ(back[0].channels, (std::vector<int>{3}));
    EXPECT_EQ(back[1].id, 4);
    EXPECT_EQ(back[1].priority, 5);
}

TEST_F(ZoneTest, AnEmptyArrayOfZonesKeepsItsWireForm) {
    EXPECT_TRUE(through_the_bus(std::vector<Zone>{}).empty());
    EXPECT_EQ(signature(), QStringLiteral("a(iiai)"));
}

TEST_F(ZoneTest, ReadingReplacesWhatAZoneHadBefore) {
    through_the_bus(Zone{7, 3, {1}});
    Zone zone{1, 1, {8, 9}};
    echo_.last.arguments().constFirst().value<QDBusArgument>() >> zone;
    EXPECT_EQ(zone.id, 7);
    EXPECT_EQ(zone.channels, (std::vector<int>{1}));
}

TEST_F(ZoneTest, ReadingReplacesWhatAListHadBefore) {
    through_the_bus(std::vector<Zone>{{1, 2, {3}}});
    std::vector<Zone> zones(5);
    echo_.last.arguments().constFirst().value<QDBusArgument>() >> zones;
    ASSERT_EQ(zones.size(), 1U);
    EXPECT_EQ(zones[0].id, 1);
}

TEST_F(ZoneTest, RegisteringTwiceDoesNoHarmAndTheNamesAreKnown) {
    register_zone_types();
    EXPECT_EQ(QMetaType::type("Zone"), qMetaTypeId<Zone>());
    EXPECT_EQ(QMetaType::type("std::vector<Zone>"), qMetaTypeId<std::vector<Zone>>());
    const bool converts =
        QMetaType::hasRegisteredConverterFunction<std::vector<Zone>,
                                                  QtMetaTypePrivate::QSequentialIterableImpl>();
    EXPECT_TRUE(converts);
}

TEST_F(ZoneTest, TheEnginesZoneMethodsTakeThemFromTheBus) {
    const CapturedLog log(ondra::kNormal);
    Repeater engine;
    ASSERT_TRUE(server_.registerObject(QStringLiteral("/"), &engine,
                                       QDBusConnection::ExportAllSlots | QDBusConnection::ExportAllSignals));
    const auto ask = [this](const char* method, const QVariantList& arguments) {
        const QDBusMessage reply =
            call(QStringLiteral("/"), QStringLiteral("com.torvexserver.Cuewright"), method, arguments);
        EXPECT_EQ(reply.signature(), QStringLiteral("b")) << method << reply.errorMessage().toStdString();
        return !reply.arguments().isEmpty() && reply.arguments().constFirst().toBool();
    };
    const auto zone = [](const Zone& value) { return QVariant::fromValue(value); };
    EXPECT_TRUE(ask("init_zones", {QVariant::fromValue(std::vector<Zone>{})}));
    EXPECT_TRUE(ask("init_zones", {QVariant::fromValue(std::vector<Zone>{{1, 5, {0, 9}}})}));
    EXPECT_EQ(RepeaterAccess::zones(engine).at(1).channels, (std::vector<int>{0, 9}));
    EXPECT_TRUE(ask("add_zone", {zone({2, 6, {}})}));
    EXPECT_FALSE(ask("add_zone", {zone({2, 7, {}})}));
    EXPECT_TRUE(ask("update_zone", {zone({2, 8, {4}})}));
    EXPECT_EQ(RepeaterAccess::zones(engine).at(2).priority, 8);
    EXPECT_TRUE(ask("remove_zone", {1}));
    EXPECT_FALSE(ask("remove_zone", {1}));
    EXPECT_TRUE(ask("remove_all_zones", {}));
    EXPECT_TRUE(RepeaterAccess::zones(engine).empty());
    server_.unregisterObject(QStringLiteral("/"));
}

}  // namespace
