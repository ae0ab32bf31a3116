#include "environment.h"

#include <QProcessEnvironment>
#include <QString>

bool init_env(const char* primary, const char* fallback) {
    const QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    const auto present = [&environment](const char* name) {
        return environment.contains(QString::fromLocal8Bit(name == nullptr ? "" : name));
    };
    return present(primary) || present(fallback);
}
