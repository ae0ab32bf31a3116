#include "bus_probe.h"

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstring>
#include <optional>
#include <thread>

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <QByteArray>
#include <QList>

#include "posix/file_descriptor.h"

namespace ctl {

namespace {

using Clock = std::chrono::steady_clock;

/// A socket's address, as the system takes it.
struct UnixAddress {
    sockaddr_un name{};
    socklen_t size = 0;
};

/// That of a bus address such as "unix:path=/run/user/1000/bus,guid=...". Of several the first counts.
std::optional<UnixAddress> unix_address(const std::string& address) {
    const QByteArray first = QByteArray::fromStdString(address).split(';').front();
    if (!first.startsWith("unix:")) {
        return std::nullopt;
    }
    const QList<QByteArray> keys = first.mid(5).split(',');
    for (const QByteArray& key : keys) {
        const bool abstract = key.startsWith("abstract=");
        if (!abstract && !key.startsWith("path=")) {
            continue;
        }
        QByteArray path = QByteArray::fromPercentEncoding(key.mid(key.indexOf('=') + 1));
        if (abstract) {
            path.prepend('\0');
        }
        UnixAddress result;
        const auto length = static_cast<std::size_t>(path.size());
        if (length >= sizeof result.name.sun_path) {
            return std::nullopt;
        }
        result.name.sun_family = AF_UNIX;
        std::copy(path.begin(), path.end(), result.name.sun_path);
        result.size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + length + (abstract ? 0 : 1));
        return result;
    }
    return std::nullopt;
}

/// "\0AUTH EXTERNAL" and the user's number in hexadecimal of its digits.
std::string greeting() {
    std::string text(1, '\0');
    text += "AUTH EXTERNAL " + QByteArray::number(getuid()).toHex().toStdString() + "\r\n";
    return text;
}

}  // namespace

bool daemon_answers(const std::string& address, std::chrono::milliseconds time) {
    const std::optional<UnixAddress> where = unix_address(address);
    if (!where) {
        return true;
    }
    const Clock::time_point end = Clock::now() + time;
    const posix::FileDescriptor socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    while (connect(socket.get(), reinterpret_cast<const sockaddr*>(&where->name), where->size) != 0) {
        // Many wait to be let in already: the only refusal that may pass.
        if (errno != EAGAIN) {
            return true;
        }
        if (Clock::now() >= end) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    const std::string text = greeting();
    if (send(socket.get(), text.data(), text.size(), MSG_NOSIGNAL) < 0) {
        return true;
    }
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(end - Clock::now());
    pollfd wait{socket.get(), POLLIN, 0};
    return poll(&wait, 1, static_cast<int>(std::max<std::chrono::milliseconds::rep>(left.count(), 0))) == 1;
}

}  // namespace ctl
