// Preloaded into the service, this sees the steps by which its start-up registers it on the bus.
//
// It refuses one that no real bus refuses: Qt registers objects without asking the bus, and learns too late
// to report it that a match rule was refused. REFUSE names the step, an object's path or a signal's name; all
// else goes to Qt's own function. STEPS names a file that gets one line per step, refused ones included.

#include <cstdlib>
#include <fstream>

#include <dlfcn.h>
#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusReply>
#include <QString>

namespace {

bool refused(const QString& step) {
    const char* const name = std::getenv("REFUSE");
    return name != nullptr && step == QLatin1String(name);
}

void note(const QString& step) {
    if (const char* const file = std::getenv("STEPS")) {
        std::ofstream(file, std::ios::app) << step.toStdString() << '\n';
    }
}

}  // namespace

QDBusReply<QDBusConnectionInterface::RegisterServiceReply> QDBusConnectionInterface::registerService(
    const QString& name, ServiceQueueOptions queue, ServiceReplacementOptions replacement) {
    // A member function is called as a free one whose first argument is the object.
    using Function = QDBusReply<RegisterServiceReply> (*)(QDBusConnectionInterface*, const QString&,
                                                          ServiceQueueOptions, ServiceReplacementOptions);
    static const auto original = reinterpret_cast<Function>(
        dlsym(RTLD_NEXT,
              "_ZN24QDBusConnectionInterface15registerServiceERK7QStringNS_19ServiceQueueOptionsENS_"
              "25ServiceReplacementOptionsE"));
    note(QStringLiteral("name %1").arg(name));
    return original(this, name, queue, replacement);
}

bool QDBusConnection::registerObject(const QString& path, QObject* object, RegisterOptions options) {
    note(QStringLiteral("object %1 0x%2").arg(path).arg(static_cast<int>(options), 0, 16));
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
    note(QStringLiteral("signal %1 %2 %3 %4 to %5")
             .arg(service, path, interface, name, QLatin1String(slot + 1)));
    return !refused(name) && original(this, service, path, interface, name, receiver, slot);
}
