#pragma once
// The service and the discovery service, as the demo talks to them over the bus.

#include <functional>
#include <string>
#include <vector>

#include <QDBusConnection>
#include <QObject>
#include <QString>

#include "show_plan.h"

namespace demo {

/**
 * Calls the service as control software does. Also plays the discovery service: it owns that one's name and
 * emits its signal.
 *
 * Main thread. Each call waits up to five seconds and throws Failure when the service does not answer.
 */
class Control final : public QObject {
    Q_OBJECT

public:
    /// Throws Failure when the bus cannot be reached.
    explicit Control(const std::string& bus_address);
    ~Control() override;

    /// Whether the service is on the bus.
    [[nodiscard]] bool service_is_there() const;
    /// From now on, listens for the end of playlists.
    void listen();

    [[nodiscard]] bool init_zones(std::span<const ZonePlan> plans);
    [[nodiscard]] bool remove_all_zones();
    [[nodiscard]] bool play(int playlist);
    [[nodiscard]] bool pause(int playlist);
    void stop_playlist(int playlist);
    void stop();
    void set_brightness(int playlist, int percent);
    void set_speed_boost(int playlist, int percent);
    void set_unicast_enabled(bool enabled);

    /// Reports node changes, as "1:universe:ip:port" (there) or "0:universe:ip:port" (gone), joined by ";".
    void announce_nodes(const std::string& message);

    /// Playlists whose end the service has announced.
    [[nodiscard]] const std::vector<int>& stopped() const noexcept { return stopped_; }

public Q_SLOTS:
    void note_stopped(int playlist_id) { stopped_.push_back(playlist_id); }

private:
    QVariantList call(const char* method, const QVariantList& arguments);
    bool ask(const char* method, const QVariantList& arguments);

    QDBusConnection bus_;
    std::vector<int> stopped_;
};

}  // namespace demo
