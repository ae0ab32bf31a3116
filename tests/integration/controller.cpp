#include "controller.h"

#include <chrono>

#include <gtest/gtest.h>
#include <QCoreApplication>
#include <QDBusMetaType>

#include "bus/own_names.h"
#include "started_program.h"

namespace integration {

namespace {

const QString kService = QStringLiteral("com.torvexserver.Cuewright");
const QString kDiscovery = QStringLiteral("com.torvexserver.Netsurvey");
const QString kEngine = QStringLiteral("/");
constexpr int kCallDeadline = 60'000;

QString unused_name() {
    static int count = 0;
    return QStringLiteral("integration%1").arg(++count);
}

QVariant variant(const ControlZone& zone) {
    return QVariant::fromValue(zone);
}

}  // namespace

QDBusArgument& operator<<(QDBusArgument& argument, const ControlZone& zone) {
    argument.beginStructure();
    argument << zone.id << zone.priority << zone.channels;
    argument.endStructure();
    return argument;
}

const QDBusArgument& operator>>(const QDBusArgument& argument, ControlZone& zone) {
    argument.beginStructure();
    argument >> zone.id >> zone.priority >> zone.channels;
    argument.endStructure();
    return argument;
}

QList<int> channels(int first, int last) {
    QList<int> result;
    for (int channel = first; channel <= last; ++channel) {
        result.append(channel);
    }
    return result;
}

BusConnection::BusConnection(const std::string& address)
    : name_(unused_name()), bus_(QDBusConnection::connectToBus(QString::fromStdString(address), name_)) {
    bus::settle_own_names(bus_, std::chrono::milliseconds(kCallDeadline));
}

BusConnection::~BusConnection() {
    QDBusConnection::disconnectFromBus(name_);
}

void StoppedPlaylists::on_stopped(int playlist_id, const QDBusMessage& message) {
    ids_.push_back(playlist_id);
    signature_ = message.signature();
}

Controller::Controller(const std::string& address) : connection_(address) {
    qDBusRegisterMetaType<ControlZone>();
    qDBusRegisterMetaType<QList<ControlZone>>();
    const bool subscribed =
        connection_.bus().connect(kService, kEngine, kService, QStringLiteral("OnPlaylistStopped"), &stopped_,
                                  SLOT(on_stopped(int, QDBusMessage)));
    EXPECT_TRUE(subscribed);
}

QDBusMessage Controller::call(const QString& path, const QString& interface, const QString& method,
                              const QList<QVariant>& arguments) {
    QDBusMessage message = QDBusMessage::createMethodCall(kService, path, interface, method);
    message.setArguments(arguments);
    return connection_.bus().call(message, QDBus::Block, kCallDeadline);
}

QDBusMessage Controller::call_engine(const QString& method, const QList<QVariant>& arguments) {
    return call(kEngine, kService, method, arguments);
}

QDBusMessage Controller::call_logger(const QString& method, const QList<QVariant>& arguments) {
    // Without an interface, since the logger's is the one that Qt derives from its class.
    return call(QStringLiteral("/logger"), QString(), method, arguments);
}

bool Controller::answer(const QString& method, const QList<QVariant>& arguments) {
    const QDBusMessage reply = call_engine(method, arguments);
    EXPECT_EQ(reply.type(), QDBusMessage::ReplyMessage)
        << method.toStdString() << ": " << reply.errorMessage().toStdString();
    EXPECT_EQ(reply.signature().toStdString(), "b") << method.toStdString();
    return !reply.arguments().isEmpty() && reply.arguments().constFirst().toBool();
}

void Controller::no_answer(const QString& method, const QList<QVariant>& arguments) {
    const QDBusMessage reply = call_engine(method, arguments);
    EXPECT_EQ(reply.type(), QDBusMessage::ReplyMessage)
        << method.toStdString() << ": " << reply.errorMessage().toStdString();
    EXPECT_EQ(reply.signature().toStdString(), "") << method.toStdString();
}

void Controller::stop() {
    no_answer(QStringLiteral("stop"), {});
}
void Controller::set_unicast_enabled(bool enabled) {
    no_answer(QStringLiteral("set_unicast_enabled"), {enabled});
}
void Controller::set_brightness(int playlist_id, int brightness) {
    no_answer(QStringLiteral("set_brightness"), {playlist_id, brightness});
}
void Controller::set_speed_boost(int playlist_id, int speed_boost) {
    no_answer(QStringLiteral("set_speed_boost"), {playlist_id, speed_boost});
}
bool Controller::play(int playlist_id) {
    return answer(QStringLiteral("play_playlist"), {playlist_id});
}
bool Controller::pause(int playlist_id) {
    return answer(QStringLiteral("pause_playlist"), {playlist_id});
}
void Controller::stop_playlist(int playlist_id) {
    no_answer(QStringLiteral("stop_playlist"), {playlist_id});
}
bool Controller::init_zones(const QList<ControlZone>& zones) {
    return answer(QStringLiteral("init_zones"), {QVariant::fromValue(zones)});
}
bool Controller::add_zone(const ControlZone& zone) {
    return answer(QStringLiteral("add_zone"), {variant(zone)});
}
bool Controller::update_zone(const ControlZone& zone) {
    return answer(QStringLiteral("update_zone"), {variant(zone)});
}
bool Controller::remove_zone(int id) {
    return answer(QStringLiteral("remove_zone"), {id});
}
bool Controller::remove_all_zones() {
    return answer(QStringLiteral("remove_all_zones"), {});
}

void Controller::set_log_level(int level) {
    const QDBusMessage reply = call_logger(QStringLiteral("setLevel"), {level});
    EXPECT_EQ(reply.type(), QDBusMessage::ReplyMessage) << reply.errorMessage().toStdString();
}

const std::vector<int>& Controller::stopped() {
    QCoreApplication::processEvents();
    return stopped_.ids();
}

bool Controller::wait_for_stopped(std::size_t count) {
    return wait_until([this, count] { return stopped().size() >= count; });
}

std::string Controller::stopped_signature() const {
    return stopped_.signature().toStdString();
}

Discovery::Discovery(const std::string& address) : connection_(address) {
    EXPECT_TRUE(bus::own_name(connection_.bus(), kDiscovery));
    bus::settle_own_names(connection_.bus(), std::chrono::milliseconds(kCallDeadline));
    // A signal that comes right behind its sender's name may find the receiver not knowing that name yet; who
    // answers this knows it.
    QDBusMessage question = QDBusMessage::createMethodCall(kService, QStringLiteral("/logger"), QString(),
                                                           QStringLiteral("getLevel"));
    question.setAutoStartService(false);
    const QDBusMessage answer = connection_.bus().call(question, QDBus::Block, kCallDeadline);
    EXPECT_EQ(answer.type(), QDBusMessage::ReplyMessage) << answer.errorMessage().toStdString();
}

Discovery::~Discovery() {
    bus::disown_name(connection_.bus(), kDiscovery);
}

void Discovery::announce(const std::string& message) {
    announce_arguments({QString::fromStdString(message)});
}

void Discovery::announce_arguments(const QList<QVariant>& arguments) {
    QDBusMessage signal = QDBusMessage::createSignal(
        kEngine, QStringLiteral("com.torvexserver.Netsurvey.Dump"), QStringLiteral("OnArtnetNodesUpdated"));
    signal.setArguments(arguments);
    EXPECT_TRUE(connection_.bus().send(signal));
}

}  // namespace integration
