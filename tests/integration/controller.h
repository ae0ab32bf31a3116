#pragma once
// The test in the role of the control software: calls the service over the bus and hears its signal.

#include <string>
#include <vector>

#include <QDBusArgument>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QList>
#include <QObject>
#include <QString>
#include <QVariant>

namespace integration {

/// A zone as control software sends it: (iiai). On purpose not the service's own type.
struct ControlZone {
    int id = 0;
    int priority = 0;
    QList<int> channels;
};
QDBusArgument& operator<<(QDBusArgument& argument, const ControlZone& zone);
const QDBusArgument& operator>>(const QDBusArgument& argument, ControlZone& zone);

/// Channels `first` to `last`.
[[nodiscard]] QList<int> channels(int first, int last);

/// A connection to a test's bus with a private name, closed with the object.
class BusConnection {
public:
    explicit BusConnection(const std::string& address);
    BusConnection(const BusConnection&) = delete;
    BusConnection& operator=(const BusConnection&) = delete;
    ~BusConnection();

    [[nodiscard]] QDBusConnection& bus() { return bus_; }

private:
    QString name_;
    QDBusConnection bus_;
};

/// Remembers the playlists whose end was signalled, in order. Belongs to the test's thread.
class StoppedPlaylists : public QObject {
    Q_OBJECT

public:
    [[nodiscard]] const std::vector<int>& ids() const { return ids_; }
    [[nodiscard]] const QString& signature() const { return signature_; }

public Q_SLOTS:
    void on_stopped(int playlist_id, const QDBusMessage& message);

private:
    std::vector<int> ids_;
    QString signature_;
};

/**
 * Calls the service's methods and waits for the answers. A method that is answered by an error, or by
 * something of another type, fails the test.
 */
class Controller {
public:
    explicit Controller(const std::string& address);

    /// Any method of any object, with whatever answer comes.
    QDBusMessage call(const QString& path, const QString& interface, const QString& method,
                      const QList<QVariant>& arguments = {});
    /// A method of the engine, with whatever answer comes.
    QDBusMessage call_engine(const QString& method, const QList<QVariant>& arguments = {});
    /// A method of the logger, with whatever answer comes.
    QDBusMessage call_logger(const QString& method, const QList<QVariant>& arguments = {});

    void stop();
    void set_unicast_enabled(bool enabled);
    void set_brightness(int playlist_id, int brightness);
    void set_speed_boost(int playlist_id, int speed_boost);
    bool play(int playlist_id);
    bool pause(int playlist_id);
    void stop_playlist(int playlist_id);
    bool init_zones(const QList<ControlZone>& zones);
    bool add_zone(const ControlZone& zone);
    bool update_zone(const ControlZone& zone);
    bool remove_zone(int id);
    bool remove_all_zones();
    void set_log_level(int level);

    /// The playlists whose end has been signalled so far.
    const std::vector<int>& stopped();
    /// Waits until as many ends have been signalled.
    [[nodiscard]] bool wait_for_stopped(std::size_t count);
    /// D-Bus signature of the last signal.
    [[nodiscard]] std::string stopped_signature() const;

private:
    bool answer(const QString& method, const QList<QVariant>& arguments);
    void no_answer(const QString& method, const QList<QVariant>& arguments);

    BusConnection connection_;
    StoppedPlaylists stopped_;
};

/// The test in the role of the discovery service.
class Discovery {
public:
    /// Takes the name and waits until the service, which has to run, knows it.
    explicit Discovery(const std::string& address);
    /// Gives the name back first, so that another may have it at once.
    ~Discovery();
    Discovery(const Discovery&) = delete;
    Discovery& operator=(const Discovery&) = delete;
    /// Announces node changes as "state:universe:ip:port" records separated by ";".
    void announce(const std::string& message);
    /// Sends the signal with any arguments.
    void announce_arguments(const QList<QVariant>& arguments);

private:
    BusConnection connection_;
};

}  // namespace integration

Q_DECLARE_METATYPE(integration::ControlZone)
Q_DECLARE_METATYPE(QList<integration::ControlZone>)
