// Start-up of the playback service: wires logger, engine and session bus together and runs the event loop.

#include <QCoreApplication>
#include <QDBusConnection>
#include <QDBusError>
#include <QString>

#include "bus/own_names.h"
#include "cuewright/version.h"
#include "environment.h"
#include "ondra/logger.h"
#include "repeater.h"

namespace {

constexpr int kStartUpFailed = 1;

}  // namespace

// No signal handlers: a termination signal ends the process at once, which leaves the last look standing.
int main(int argc, char** argv) {
    const QCoreApplication application(argc, argv);
    ondra::Logger* const logger = ondra::Logger::instance();
    logger->setLevel(ondra::kNormal);
    logger->setOutput(ondra::Logger::Syslog);
    ONDRA_LOG(ondra::kBanner, "cuewright Version: %s ", CUEWRIGHT_VERSION);
    ONDRA_LOG(ondra::kBanner, "cuewright log level: %d ", logger->getLevel());

    if (!init_env("DBUS_SESSION_BUS_ADDRESS", "DBUS_STARTER_ADDRESS")) {
        ONDRA_LOG(ondra::kError,
                  "DBUS session bus variable not found (DBUS_SESSION_BUS_ADDRESS or DBUS_STARTER_ADDRESS)");
        return kStartUpFailed;
    }

    Repeater repeater;

    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected()) {
        ONDRA_LOG(ondra::kError,
                  "Cannot connect to the D-Bus session bus.\n"
                  "To start it, run:\n"
                  "\teval `dbus-launch --auto-syntax`\n");
        return kStartUpFailed;
    }

    const bool registered =
        bus::own_name(bus, QStringLiteral("%1.Cuewright").arg(QStringLiteral("com.torvexserver"))) &&
        bus.registerObject(QStringLiteral("/"), &repeater,
                           QDBusConnection::ExportAllSlots | QDBusConnection::ExportAllSignals) &&
        bus.registerObject(QStringLiteral("/logger"), logger, QDBusConnection::ExportAllSlots) &&
        // Whether or not discovery runs now: only a refused match rule fails.
        bus.connect(QStringLiteral("com.torvexserver.Netsurvey"), QStringLiteral("/"),
                    QStringLiteral("com.torvexserver.Netsurvey.Dump"), QStringLiteral("OnArtnetNodesUpdated"),
                    &repeater, SLOT(update_artnet_node_map(QString)));
    if (!registered) {
        ONDRA_LOG(ondra::kError, "%s\n", bus.lastError().message().toLocal8Bit().constData());
        return kStartUpFailed;
    }

    repeater.set_root_dir(QCoreApplication::applicationDirPath() + QStringLiteral("/../data"));
    repeater.set_playlist_desc_path(QStringLiteral("playlists/playlists.json"));
    return QCoreApplication::exec();
}
