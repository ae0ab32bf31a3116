#pragma once
// Random calls of the service, each with what the model says to it.

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include <QList>
#include <QString>
#include <QVariant>

#include "control_model.h"
#include "random.h"

namespace stress {

/// What must come back.
struct Answer {
    /// Name of the error; empty for a reply.
    std::string error;
    std::string signature;
    /// The only argument; invalid when there is none or when its content is the bus library's own affair.
    QVariant value;
};

/// One call, and how the model takes it.
struct BusCall {
    QString path;
    QString interface;
    QString method;
    QList<QVariant> arguments;
    /// As messages show it.
    std::string text;
    /// The row of the table of latencies that it belongs to.
    std::string row;
    /// Plays it in the model.
    std::function<Answer(model::ControlModel&)> answer;
    /// Of a pause or a stop: of which playlist, or of all of them.
    std::optional<int> halts;
    bool halts_all = false;
    bool sets_level = false;
    /// Of which playlist it sets the brightness.
    std::optional<int> brightens;
};

/**
 * Draws calls of the twelve methods and of the logger's slots with ordinary, extreme and wrong arguments.
 */
class RandomCalls {
public:
    /// @param ids  of all playlists in the description file
    explicit RandomCalls(std::vector<int> ids);

    /// Any call. While nothing is loaded calls about zones are more frequent.
    BusCall any(model::Random& random, const model::ControlModel& model) const;
    /**
     * A call that changes and logs nothing, whatever other calls are under way.
     *
     * @param zones_refused  a playlist is loaded and stays so, which refuses every change of zones
     * @param level_stays    nobody sets the log level
     */
    BusCall passive(model::Random& random, bool zones_refused, bool level_stays) const;

    // Single calls, for a run's own needs.
    static BusCall stop();
    static BusCall play(int id);
    static BusCall pause(int id);
    static BusCall stop_playlist(int id);
    static BusCall get_level();
    static BusCall set_brightness(int id, int percent);
    /// Of the zone with that id, with random priority and channels.
    static BusCall add_zone(model::Random& random, int id);
    static BusCall update_zone(model::Random& random, int id);

    /// Any call about zones.
    BusCall zones(model::Random& random) const;
    /// Mostly from 0 to 100, and else beyond.
    static int percent(model::Random& random);

private:
    BusCall logger(model::Random& random) const;
    BusCall wrong(model::Random& random) const;
    int id(model::Random& random) const;

    std::vector<int> ids_;
};

}  // namespace stress
