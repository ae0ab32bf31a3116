// Preloaded into the service, this refuses one step of its start-up that no real bus refuses: Qt registers
// objects without asking the bus, and learns too late to report it that a match rule was refused. REFUSE
// names the step, an object's path or a signal's name; all else goes to Qt's own function.

#include <cstdlib>

#include <dlfcn.h>
#include <QDBusConnection>
#include <QString>

namespace {

bool refused(const QString& step) {
    const char* const name = std::getenv("REFUSE");
    return name != nullptr && step == QLatin1String(name);
}

}  // namespace

bool QDBusConnection::registerObject(const QString& path, QObject* object, RegisterOptions options) {
    using Function = bool (*)(QDBusConnection*, const QString&, QObject*, RegisterOptions);
    static const auto original = reinterpret_cast<Function>(dlsym(
        RTLD_NEXT, "_ZN15QDBusConnection14registerObjectERK7QStringP7QObject6QFlagsINS_14RegisterOptionEE"));
    return !refused(path) && original(this, path, object, options);
}

bool QDBusConnection::connect(const QString& service, const QString& path, const QString& interface,
                              const QString& name, QObject* receiver, const char* slot) {
    using Function = bool (*)(QDBusConnection*, const QString&, const QString&, const QString&,
                              const QString&, QObject*, const char*);
    static const auto original = reinterpret_cast<Function>(
        dlsym(RTLD_NEXT, "_ZN15QDBusConnection7connectERK7QStringS2_S2_S2_P7QObjectPKc"));
    return !refused(name) && original(this, service, path, interface, name, receiver, slot);
}
