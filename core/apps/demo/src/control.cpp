#include "control.h"

#include <chrono>

#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QVariant>

#include "bus/own_names.h"
#include "failure.h"
#include "zone.h"

namespace demo {

namespace {

constexpr int kCallTimeoutMilliseconds = 20'000;

const QString kConnection = QStringLiteral("demo");
const QString kRoot = QStringLiteral("/");
const QString kService = QStringLiteral("com.torvexserver.Cuewright");
const QString kDiscovery = QStringLiteral("com.torvexserver.Netsurvey");
const QString kDiscoveryInterface = QStringLiteral("com.torvexserver.Netsurvey.Dump");

}  // namespace

Control::Control(const std::string& bus_address)
    : bus_(QDBusConnection::connectToBus(QString::fromStdString(bus_address), kConnection)) {
    if (!bus_.isConnected() || !bus::own_name(bus_, kDiscovery)) {
        throw Failure("cannot use the private session bus: " + bus_.lastError().message().toStdString());
    }
    bus::settle_own_names(bus_, std::chrono::milliseconds(kCallTimeoutMilliseconds));
    register_zone_types();
}

Control::~Control() {
    QDBusConnection::disconnectFromBus(kConnection);
}

bool Control::service_is_there() const {
    return bus_.interface()->isServiceRegistered(kService);
}

void Control::listen() {
    bus_.connect(kService, kRoot, kService, QStringLiteral("OnPlaylistStopped"), this,
                 SLOT(note_stopped(int)));
}

bool Control::init_zones(std::span<const ZonePlan> plans) {
    std::vector<Zone> zones;
    for (const ZonePlan& plan : plans) {
        Zone& zone = zones.emplace_back();
        zone.id = plan.id;
        zone.priority = plan.priority;
        for (int channel = plan.first; channel <= plan.last; ++channel) {
            zone.channels.push_back(channel);
        }
    }
    return ask("init_zones", {QVariant::fromValue(zones)});
}

bool Control::remove_all_zones() {
    return ask("remove_all_zones", {});
}

bool Control::play(int playlist) {
    return ask("play_playlist", {playlist});
}

bool Control::pause(int playlist) {
    return ask("pause_playlist", {playlist});
}

void Control::stop_playlist(int playlist) {
    call("stop_playlist", {playlist});
}

void Control::stop() {
    call("stop", {});
}

void Control::set_brightness(int playlist, int percent) {
    call("set_brightness", {playlist, percent});
}

void Control::set_speed_boost(int playlist, int percent) {
    call("set_speed_boost", {playlist, percent});
}

void Control::set_unicast_enabled(bool enabled) {
    call("set_unicast_enabled", {enabled});
}

void Control::announce_nodes(const std::string& message) {
    QDBusMessage signal =
        QDBusMessage::createSignal(kRoot, kDiscoveryInterface, QStringLiteral("OnArtnetNodesUpdated"));
    signal << QString::fromStdString(message);
    bus_.send(signal);
}

QVariantList Control::call(const char* method, const QVariantList& arguments) {
    QDBusMessage message =
        QDBusMessage::createMethodCall(kService, kRoot, kService, QString::fromLatin1(method));
    message.setArguments(arguments);
    const QDBusMessage reply = bus_.call(message, QDBus::Block, kCallTimeoutMilliseconds);
    if (reply.type() != QDBusMessage::ReplyMessage) {
        throw Failure(std::string("the service does not answer ") + method + ": " +
                      reply.errorMessage().toStdString());
    }
    return reply.arguments();
}

bool Control::ask(const char* method, const QVariantList& arguments) {
    const QVariantList answer = call(method, arguments);
    return !answer.isEmpty() && answer.front().toBool();
}

}  // namespace demo
