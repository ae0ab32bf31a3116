#pragma once
// One run of random calls against the running service, step by step beside the model.

#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <QDBusMessage>

#include "audience.h"
#include "bus_calls.h"
#include "bus_client.h"
#include "control_log.h"
#include "controller.h"
#include "latencies.h"

namespace stress {

/// What a run of some length has met, for its report.
struct Mix {
    /// By method: true, false, and all others.
    struct Answers {
        long long yes = 0;
        long long no = 0;
        long long other = 0;
    };
    std::map<std::string, Answers> answers;
    long long pipelined = 0;
    long long unanswered = 0;
    long long vanished = 0;
    long long announcements = 0;
    long long listened = 0;
    long long audible = 0;
    long long ends = 0;
    /// A pause or a stop came so close to an end that only the order of answer and signal told which was
    /// first.
    long long races = 0;
    long long races_ended = 0;
};

/**
 * Draws steps from a seed: single calls by clients taking turns, several calls in flight, callers that
 * vanish, node announcements, waits for an end, halts close to one, and listening to what comes out.
 *
 * Every step has random numbers of its own, so a run replays also where an end came at another moment. Each
 * function returns nothing, or what is wrong.
 */
class StressRun {
public:
    struct Setting {
        std::uint64_t seed = 1;
        std::string address;
        std::string syslog_file;
        std::vector<model::ControlledPlaylist> show;
        /// Data directory as the log shows it.
        std::string root;
        /// Where frames arrive; the last is the node's when there are nodes.
        std::vector<integration::ForwarderSocket*> sockets;
        bool with_nodes = false;
    };

    /// @param ear  hears the ends of playlists
    StressRun(Setting setting, integration::Controller& ear);

    std::string step(std::uint64_t number);
    /// Stops all, so that nothing but what the service always holds is left.
    std::string rest();
    /// Plays one playlist until it is heard, and rests.
    std::string warm_up(int id);

    [[nodiscard]] long calls() const { return calls_; }
    [[nodiscard]] const Mix& mix() const { return mix_; }
    [[nodiscard]] const Latencies& latencies() const { return latencies_; }
    [[nodiscard]] long long lines_compared() const { return log_.compared(); }
    [[nodiscard]] long long frames() const { return audience_.frames(); }
    /// The last calls and the model's state, for a failure's message.
    [[nodiscard]] std::string story() const;

private:
    BusCall draw(model::Random& random, bool races_allowed);
    [[nodiscard]] bool races(const BusCall& call) const;
    std::string single(model::Random& random);
    std::string run(BusClient& client, const BusCall& call);
    std::string batch(model::Random& random);
    std::string vanish(model::Random& random);
    std::string announce(model::Random& random);
    std::string wait_for_end(model::Random& random);
    /// Halts the shortest playlist about when it ends.
    std::string race_an_end(model::Random& random);
    /// Changes a zone while nothing is loaded, plays what belongs to it, and listens.
    std::string see_a_zone(model::Random& random);
    std::string listen();
    /// Compares one answer and takes it into the report.
    std::string judge(const BusCall& call, const QDBusMessage& reply, const Answer& expected);
    std::string hear_ends();
    std::string settle();
    /// A call that changes nothing and is answered behind all that was sent before it; timed, and its answer
    /// compared.
    std::string ask_level(const std::string& behind, const std::function<QDBusMessage()>& ask);
    /// How late the machine was since the pulse was last asked, for a story.
    std::string late();
    BusClient& client(model::Random& random);
    void remember(const std::string& text);

    Setting setting_;
    model::ControlModel model_;
    RandomCalls random_calls_;
    integration::Controller& ear_;
    std::vector<std::unique_ptr<BusClient>> clients_;
    std::unique_ptr<BusClient> discovery_;
    ControlLog log_;
    Audience audience_;
    Latencies latencies_;
    Pulse pulse_;
    Mix mix_;
    long calls_ = 0;
    /// Ends that the model has been told, of those that the ear has heard.
    std::size_t heard_ = 0;
    std::deque<std::string> last_;
};

}  // namespace stress
