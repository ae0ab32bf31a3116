// Names on a session bus: got, refused, given up, and known to Qt as the program's own.

#include "bus/own_names.h"

#include <chrono>

#include <gtest/gtest.h>
#include <QCoreApplication>
#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusError>
#include <QDBusMessage>
#include <QObject>

namespace {

using namespace std::chrono_literals;

const QString kName = QStringLiteral("com.example.OwnNamesTest");

/// Two programs' connections to the session bus.
class OwnNamesTest : public testing::Test {
protected:
    OwnNamesTest()
        : first_(QDBusConnection::connectToBus(QDBusConnection::SessionBus, QStringLiteral("first"))),
          second_(QDBusConnection::connectToBus(QDBusConnection::SessionBus, QStringLiteral("second"))) {}
    ~OwnNamesTest() override {
        QDBusConnection::disconnectFromBus(QStringLiteral("first"));
        QDBusConnection::disconnectFromBus(QStringLiteral("second"));
    }
    void SetUp() override { ASSERT_TRUE(first_.isConnected() && second_.isConnected()); }
    [[nodiscard]] QString owner() const { return second_.interface()->serviceOwner(kName).value(); }

    QDBusConnection first_;
    QDBusConnection second_;
};

}  // namespace

TEST_F(OwnNamesTest, ANameIsOnesOwnUntilItIsGivenUp) {
    EXPECT_TRUE(bus::own_name(first_, kName));
    EXPECT_EQ(owner(), first_.baseService());
    // Once more is as good.
    EXPECT_TRUE(bus::own_name(first_, kName));
    bus::disown_name(first_, kName);
    EXPECT_EQ(owner(), QString());
}

TEST_F(OwnNamesTest, AnothersNameIsRefusedWithoutAnErrorAndNotWaitedFor) {
    ASSERT_TRUE(bus::own_name(first_, kName));
    EXPECT_FALSE(bus::own_name(second_, kName));
    EXPECT_EQ(second_.lastError().type(), QDBusError::NoError);
    bus::disown_name(first_, kName);
    // Not the next in line either.
    EXPECT_EQ(owner(), QString());
    EXPECT_TRUE(bus::own_name(second_, kName));
}

TEST_F(OwnNamesTest, ANameThatNoBusAllowsIsAnError) {
    EXPECT_FALSE(bus::own_name(first_, QStringLiteral("nonsense")));
    EXPECT_NE(first_.lastError().type(), QDBusError::NoError);
}

TEST_F(OwnNamesTest, AConnectionThatNeverWasOneGetsNoName) {
    const QDBusConnection none(QStringLiteral("nobody's"));
    EXPECT_FALSE(bus::own_name(none, kName));
    bus::disown_name(none, kName);
    EXPECT_EQ(owner(), QString());
}

TEST_F(OwnNamesTest, OnceSettledQtKnowsTheNamesAsItsOwn) {
    QObject object;
    ASSERT_TRUE(first_.registerObject(QStringLiteral("/object"), &object));
    ASSERT_TRUE(bus::own_name(first_, kName));
    bus::settle_own_names(first_, 60s);
    // This thread cannot answer while it waits for the answer, so that over the bus there would be none.
    // Where Qt knows the name as the program's own it makes the call within the program, and says at once
    // what is wrong with it.
    QDBusMessage question = QDBusMessage::createMethodCall(kName, QStringLiteral("/object"),
                                                           QStringLiteral("org.freedesktop.DBus.Properties"),
                                                           QStringLiteral("Get"));
    question << QStringLiteral("com.example.None") << QStringLiteral("nothing");
    const QDBusMessage answer = first_.call(question, QDBus::Block, 5'000);
    EXPECT_EQ(answer.errorName().toStdString(), "org.freedesktop.DBus.Error.UnknownInterface")
        << answer.errorMessage().toStdString();
}

int main(int argc, char** argv) {
    const QCoreApplication application(argc, argv);
    testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
