// The control software's side: carries out lines of standard input as bus calls to the service and tells how
// long each took. Lines:
//
//   wait                      waits until the service has its name; prints the time at which it appeared
//   call METHOD [INT...]      calls the engine; prints "BEGIN END RESULT", RESULT 1, 0, or - for none
//   unicast 0|1               calls set_unicast_enabled; prints the same
//   zones COUNT CHANNELS      init_zones with zones 1 to COUNT, channels 0 to CHANNELS - 1, priority 5
//   zone_table [ZONE]...      init_zones with any zones; ZONE is ID PRIORITY FIRST_CHANNEL COUNT
//   zone METHOD ZONE          add_zone or update_zone
//   level                     asks the logger for its level, a call that waits for no lock; prints the same
//   nodes TEXT                signals TEXT in the role of the discovery service; prints "sent"
//
// Times are nanoseconds of CLOCK_MONOTONIC. A call that is answered by an error ends the program with
// status 1.

#include <time.h>

#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <iostream>
#include <sstream>
#include <string>

#include <QCoreApplication>
#include <QDBusArgument>
#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDBusMetaType>
#include <QList>
#include <QVariant>

#include "bus/own_names.h"

namespace {

struct ClientZone {
    int id = 0;
    int priority = 0;
    QList<int> channels;
};

const QString kService = QStringLiteral("com.torvexserver.Cuewright");
constexpr int kTimeoutMilliseconds = 120'000;

std::int64_t now() {
    timespec time{};
    clock_gettime(CLOCK_MONOTONIC, &time);
    return std::int64_t{time.tv_sec} * 1'000'000'000 + time.tv_nsec;
}

void call(const QString& path, const QString& interface, const std::string& method,
          const QList<QVariant>& arguments) {
    QDBusMessage message =
        QDBusMessage::createMethodCall(kService, path, interface, QString::fromStdString(method));
    message.setArguments(arguments);
    const std::int64_t begin = now();
    const QDBusMessage reply =
        QDBusConnection::sessionBus().call(message, QDBus::Block, kTimeoutMilliseconds);
    const std::int64_t end = now();
    if (reply.type() != QDBusMessage::ReplyMessage) {
        std::cerr << "bench_client: " << method << ": " << reply.errorMessage().toStdString() << '\n';
        std::exit(1);
    }
    const std::string result =
        reply.arguments().isEmpty() ? "-" : std::to_string(reply.arguments().constFirst().toInt());
    std::cout << begin << ' ' << end << ' ' << result << std::endl;
}

void wait_for_service() {
    while (!QDBusConnection::sessionBus().interface()->isServiceRegistered(kService)) {
        const timespec pause{0, 200'000};
        nanosleep(&pause, nullptr);
    }
    std::cout << now() << std::endl;
    bus::settle_own_names(QDBusConnection::sessionBus(), std::chrono::milliseconds(kTimeoutMilliseconds));
}

/// Reads "ID PRIORITY FIRST COUNT"; false at the end of the line.
bool read_zone(std::istream& words, ClientZone& zone) {
    int first = 0;
    int count = 0;
    zone = {};
    if (!(words >> zone.id >> zone.priority >> first >> count)) {
        return false;
    }
    for (int channel = first; channel < first + count; ++channel) {
        zone.channels.append(channel);
    }
    return true;
}

void send_zone_table(std::istream& words) {
    QList<ClientZone> zones;
    for (ClientZone zone; read_zone(words, zone);) {
        zones.append(zone);
    }
    call(QStringLiteral("/"), kService, "init_zones", {QVariant::fromValue(zones)});
}

void send_zone(std::istream& words) {
    std::string method;
    ClientZone zone;
    words >> method;
    read_zone(words, zone);
    call(QStringLiteral("/"), kService, method, {QVariant::fromValue(zone)});
}

void send_zones(std::istream& words) {
    int count = 0;
    int channels = 0;
    words >> count >> channels;
    QList<ClientZone> zones;
    for (int id = 1; id <= count; ++id) {
        ClientZone zone{id, 5, {}};
        for (int channel = 0; channel < channels; ++channel) {
            zone.channels.append(channel);
        }
        zones.append(zone);
    }
    call(QStringLiteral("/"), kService, "init_zones", {QVariant::fromValue(zones)});
}

/// Calls the service and waits for its answer, so that it has taken notice of what happened on the bus
/// before.
void wait_for_notice() {
    const QDBusMessage message = QDBusMessage::createMethodCall(kService, QStringLiteral("/logger"),
                                                                QString(), QStringLiteral("getLevel"));
    QDBusConnection::sessionBus().call(message, QDBus::Block, kTimeoutMilliseconds);
}

void send_nodes(std::istream& words) {
    std::string text;
    words >> text;
    // A signal that comes along with its sender's name may find the receiver not knowing that name yet.
    const QDBusConnection connection = QDBusConnection::sessionBus();
    if (!bus::own_name(connection, QStringLiteral("com.torvexserver.Netsurvey"))) {
        const QString refusal = connection.lastError().message();
        std::cerr << "bench_client: cannot have the discovery's name: "
                  << (refusal.isEmpty() ? "another has it" : refusal.toStdString()) << '\n';
        std::exit(1);
    }
    bus::settle_own_names(connection, std::chrono::milliseconds(kTimeoutMilliseconds));
    wait_for_notice();
    wait_for_notice();
    QDBusMessage signal =
        QDBusMessage::createSignal(QStringLiteral("/"), QStringLiteral("com.torvexserver.Netsurvey.Dump"),
                                   QStringLiteral("OnArtnetNodesUpdated"));
    signal << QString::fromStdString(text);
    QDBusConnection::sessionBus().send(signal);
    std::cout << "sent" << std::endl;
}

void carry_out(const std::string& line) {
    std::istringstream words(line);
    std::string command;
    words >> command;
    if (command == "wait") {
        wait_for_service();
    } else if (command == "call") {
        std::string method;
        words >> method;
        QList<QVariant> arguments;
        for (int value = 0; words >> value;) {
            arguments.append(value);
        }
        call(QStringLiteral("/"), kService, method, arguments);
    } else if (command == "unicast") {
        int enabled = 0;
        words >> enabled;
        call(QStringLiteral("/"), kService, "set_unicast_enabled", {enabled != 0});
    } else if (command == "zones") {
        send_zones(words);
    } else if (command == "zone_table") {
        send_zone_table(words);
    } else if (command == "zone") {
        send_zone(words);
    } else if (command == "level") {
        call(QStringLiteral("/logger"), QString(), "getLevel", {});
    } else if (command == "nodes") {
        send_nodes(words);
    }
}

}  // namespace

Q_DECLARE_METATYPE(ClientZone)
Q_DECLARE_METATYPE(QList<ClientZone>)

static QDBusArgument& operator<<(QDBusArgument& argument, const ClientZone& zone) {
    argument.beginStructure();
    argument << zone.id << zone.priority << zone.channels;
    argument.endStructure();
    return argument;
}

static const QDBusArgument& operator>>(const QDBusArgument& argument, ClientZone& zone) {
    argument.beginStructure();
    argument >> zone.id >> zone.priority >> zone.channels;
    argument.endStructure();
    return argument;
}

int main(int argc, char** argv) {
    const QCoreApplication application(argc, argv);
    qDBusRegisterMetaType<ClientZone>();
    qDBusRegisterMetaType<QList<ClientZone>>();
    for (std::string line; std::getline(std::cin, line);) {
        carry_out(line);
    }
    return 0;
}
