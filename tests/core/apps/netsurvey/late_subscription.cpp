// Preloaded into the playback service, this has it wait between taking its name on the bus and subscribing,
// until the file that SUBSCRIBE_WHEN names is there.

#include <cstdlib>

#include <dlfcn.h>
#include <unistd.h>
#include <QDBusConnection>
#include <QString>

bool QDBusConnection::connect(const QString& service, const QString& path, const QString& interface,
                              const QString& name, QObject* receiver, const char* slot) {
    if (const char* const file = std::getenv("SUBSCRIBE_WHEN")) {
        while (access(file, F_OK) != 0) {
            usleep(1000);
        }
    }
    using Function = bool (*)(QDBusConnection*, const QString&, const QString&, const QString&,
                              const QString&, QObject*, const char*);
    static const auto original = reinterpret_cast<Function>(
        dlsym(RTLD_NEXT, "_ZN15QDBusConnection7connectERK7QStringS2_S2_S2_P7QObjectPKc"));
    return original(this, service, path, interface, name, receiver, slot);
}
