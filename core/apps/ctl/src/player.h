#pragma once
// The playback service, as control software talks to it.

#include <string>
#include <vector>

#include "bus.h"
#include "zone.h"

namespace ctl {

/**
 * Calls the service's methods.
 *
 * Main thread. Functions that return bool give the service's own answer, false for "refused"; all throw what
 * Bus throws.
 */
class Player {
public:
    /// @param bus  borrowed
    explicit Player(Bus& bus);

    [[nodiscard]] bool play(int playlist) const;
    [[nodiscard]] bool pause(int playlist) const;
    void stop(int playlist) const;
    void stop_all() const;
    void set_brightness(int playlist, int percent) const;
    void set_speed_boost(int playlist, int percent) const;
    void set_unicast(bool enabled) const;

    [[nodiscard]] bool init_zones(const std::vector<Zone>& zones) const;
    [[nodiscard]] bool add_zone(const Zone& zone) const;
    [[nodiscard]] bool update_zone(const Zone& zone) const;
    [[nodiscard]] bool remove_zone(int zone) const;
    [[nodiscard]] bool remove_all_zones() const;

    [[nodiscard]] int log_level() const;
    void set_log_level(int level) const;

    /// Process id of the service.
    [[nodiscard]] int process() const;

private:
    Bus& bus_;
};

}  // namespace ctl
