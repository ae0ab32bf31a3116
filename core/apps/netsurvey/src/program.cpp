#include "program.h"

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <functional>
#include <optional>
#include <string>

#include <QCoreApplication>
#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusError>
#include <QDBusMessage>
#include <QDBusReply>
#include <QElapsedTimer>
#include <QJsonArray>
#include <QJsonDocument>
#include <QSocketNotifier>
#include <QTimer>

#include "bus/own_names.h"
#include "bus_end.h"
#include "cli/progress.h"
#include "discovery_service.h"
#include "names.h"
#include "node_list.h"
#include "static_nodes.h"

namespace netsurvey {

namespace {

constexpr int kListTimeout = 5000;
constexpr std::chrono::milliseconds kProgressPeriod{100};

void log(const std::string& line) {
    std::fprintf(stderr, "cuewright-netsurvey: %s\n", line.c_str());
}

/// Ends the event loop when a signal comes.
class StopNotifier {
public:
    explicit StopNotifier(posix::StopSignals& stop) : readable_(stop.descriptor(), QSocketNotifier::Read) {
        QObject::connect(&readable_, &QSocketNotifier::activated, &readable_, [&stop] {
            if (stop.take()) {
                QCoreApplication::quit();
            }
        });
    }

private:
    QSocketNotifier readable_;
};

std::vector<StaticNode> static_nodes(const Options& options) {
    return options.static_file ? read_static_nodes(*options.static_file) : std::vector<StaticNode>{};
}

std::string bus_failure() {
    return "no session bus: start one with dbus-run-session, or have DBUS_SESSION_BUS_ADDRESS name it (" +
           QDBusConnection::sessionBus().lastError().message().toStdString() + ")";
}

[[noreturn]] void fail_for_other() {
    throw cli::Failure("cannot have the name " + kService.toStdString() +
                           ": another discovery has it (cuewright-netsurvey --list asks that one)",
                       kExitNameTaken);
}

std::string bus_id(const QDBusConnection& bus) {
    const QDBusReply<QString> id = bus.interface()->call(QStringLiteral("GetId"));
    return id.isValid() ? id.value().toStdString() : "unknown";
}

/// The nodes of the running discovery; nothing when there is none.
std::optional<QJsonArray> ask_discovery() {
    const QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected() || !bus.interface()->isServiceRegistered(kService)) {
        return std::nullopt;
    }
    QDBusMessage call =
        QDBusMessage::createMethodCall(kService, kPath, kInterface, QStringLiteral("describe_nodes"));
    call.setAutoStartService(false);
    bus::settle_own_names(bus, std::chrono::milliseconds(kListTimeout));
    const QDBusReply<QString> reply = bus.call(call, QDBus::Block, kListTimeout);
    if (!reply.isValid()) {
        throw cli::Failure("the running discovery does not answer: " + reply.error().message().toStdString());
    }
    return QJsonDocument::fromJson(reply.value().toUtf8()).array();
}

/// The nodes that answer while we wait; nothing when a signal comes.
std::optional<QJsonArray> look(const Options& options, posix::StopSignals& stop) {
    cli::Progress progress("looking for nodes", static_cast<std::uint64_t>(options.wait.count()));
    Survey survey(
        options.survey, [](const Changes&) {},
        [&progress](const std::string& line) {
            progress.clear();
            log(line);
        });
    for (const StaticNode& node : static_nodes(options)) {
        static_cast<void>(survey.table().add_static(node));
    }
    bool waited = false;
    const StopNotifier notifier(stop);
    QElapsedTimer elapsed;
    elapsed.start();
    QTimer tick;
    QObject::connect(&tick, &QTimer::timeout,
                     [&] { progress.update(static_cast<std::uint64_t>(elapsed.elapsed())); });
    tick.start(kProgressPeriod);
    QTimer::singleShot(options.wait, Qt::PreciseTimer, QCoreApplication::instance(), [&waited] {
        waited = true;
        QCoreApplication::quit();
    });
    survey.start();
    QCoreApplication::exec();
    if (!waited) {
        return std::nullopt;
    }
    return to_json(survey.table().nodes(NodeTable::Clock::now()));
}

}  // namespace

int run_service(const Options& options, posix::StopSignals& stop) {
    const std::vector<StaticNode> nodes = static_nodes(options);
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected()) {
        throw cli::Failure(bus_failure());
    }
    // Before the socket, which would take replies away from the one that runs.
    if (bus.interface()->isServiceRegistered(kService)) {
        fail_for_other();
    }
    const std::string state = options.state_file.value_or(Memory::default_path(bus_id(bus)));

    DiscoveryService* service = nullptr;
    Survey survey(
        options.survey, [&service](const Changes& changes) { service->take_changes(changes); }, log);
    DiscoveryService discovery(bus, survey.table(), Memory(state), log);
    service = &discovery;
    if (options.verbose) {
        QObject::connect(&discovery, &DiscoveryService::OnArtnetNodesUpdated,
                         [](const QString& message) { log(message.toStdString()); });
    }
    const BusEnd bus_end(bus);

    // The object comes first: who sees the name can call it.
    if (!bus.registerObject(kPath, &discovery,
                            QDBusConnection::ExportAllSlots | QDBusConnection::ExportAllSignals)) {
        throw cli::Failure("cannot export an object on the session bus: " +
                           bus.lastError().message().toStdString());
    }
    if (!bus::own_name(bus, kService)) {
        // Without an error it is another's; a bus may also refuse it by its policy.
        if (const QString refusal = bus.lastError().message(); !refusal.isEmpty()) {
            throw cli::Failure("cannot have the name " + kService.toStdString() + ": " +
                               refusal.toStdString());
        }
        fail_for_other();
    }
    bus::settle_own_names(bus, std::chrono::milliseconds(kListTimeout));
    discovery.recall();
    discovery.watch_player();
    Changes changes;
    for (const StaticNode& node : nodes) {
        const Changes more = survey.table().add_static(node);
        changes.insert(changes.end(), more.begin(), more.end());
    }
    if (!changes.empty()) {
        discovery.take_changes(changes);
    }
    const StopNotifier notifier(stop);
    survey.start();
    log("polling port " + std::to_string(survey.port()) + ", nodes kept in " + state);
    return QCoreApplication::exec() == 0 ? cli::kExitGood : cli::kExitProblem;
}

int run_list(const Options& options, posix::StopSignals& stop) {
    std::optional<QJsonArray> nodes = ask_discovery();
    if (!nodes) {
        nodes = look(options, stop);
    }
    if (!nodes) {
        throw cli::Failure("ended by a signal");
    }
    const std::string text =
        options.json ? QJsonDocument(*nodes).toJson(QJsonDocument::Indented).toStdString() : to_table(*nodes);
    std::fputs(text.c_str(), stdout);
    return cli::kExitGood;
}

}  // namespace netsurvey
