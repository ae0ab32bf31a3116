#pragma once
// What the control interface must answer and log, and what must be heard of a show, in plain code.

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "show_records.h"

namespace model {

/// What becomes of a playlist's effects file.
enum class EffectsFile { Good, Missing, NotAList, WithoutFps };

/// The one effect of a playlist, as its file describes it.
struct ControlledEffect {
    struct Output {
        int universe = 0;
        std::string ip;
        int port = 0;
    };
    /// What every packet for a universe carries, from channel 0 on.
    struct Look {
        int universe = 0;
        std::vector<std::uint8_t> levels;
    };

    std::string path;
    int fps = -1;
    std::vector<Output> outputs;
    /// Universe and zone id.
    std::vector<std::pair<int, int>> zones;
    /// Empty for a recording without a packet.
    std::vector<Look> looks;
};

/// One entry of the description file with its effects file.
struct ControlledPlaylist {
    int id = 0;
    bool loop = true;
    int brightness = 100;
    int speed_boost = 0;
    EffectsFile file = EffectsFile::Good;
    /// None for an effects file without effects.
    std::optional<ControlledEffect> effect;
    /// Whether it comes to its end when it is left alone.
    bool ends = false;
};

/// A line of the log as the thread of the control calls writes it.
struct LogLine {
    int level = 0;
    std::string text;
    /// Whether source path, line and function precede the text.
    bool context = false;
};

/// Frames that must be seen: one universe at one port of the local host.
struct Audible {
    int port = 0;
    int universe = 0;
    /// Address text and length field of each.
    std::string ip;
    int length = 0;
    std::vector<std::uint8_t> levels;
};

/**
 * The table of a playlist's states and the rules of zones, without thread or clock.
 *
 * The only thing that happens by itself is the end of a playlist: ended() tells the model when its signal
 * arrives. A pause or a stop may meet the end half-way; then the model does not know which came first until
 * all signals that precede the answer have been told and settle() is called.
 */
class ControlModel {
public:
    /**
     * @param root  data directory as the log shows it
     */
    ControlModel(std::vector<ControlledPlaylist> show, std::string root);

    // The methods of the control interface.
    void stop();
    void set_unicast_enabled(bool enabled) { unicast_ = enabled; }
    void set_brightness(int id, int percent);
    void set_speed_boost(int id, int percent);
    bool play(int id);
    bool pause(int id);
    void stop_playlist(int id);
    bool init_zones(const std::vector<Zone>& zones);
    bool add_zone(const Zone& zone);
    bool update_zone(const Zone& zone);
    bool remove_zone(int id);
    bool remove_all_zones();

    // The logger's methods.
    void set_level(int level) { level_ = level; }
    [[nodiscard]] int level() const { return level_; }
    void use_context(bool on) { context_ = on; }

    /// The lines that the calls since the last time have written, in order.
    [[nodiscard]] std::vector<LogLine> take_lines();

    /// The end of a playlist has been signalled. False when it cannot have ended now.
    [[nodiscard]] bool ended(int id);
    /// All ends before the last answer have been told.
    void settle();
    /// A pause or stop may have met an end: settle() before anything else.
    [[nodiscard]] bool unsettled() const;

    [[nodiscard]] bool nothing_loaded() const { return loaded_.empty(); }
    [[nodiscard]] bool is_loaded(int id) const { return find(id) != nullptr; }
    /// Plays and will end: its signal is still to come.
    [[nodiscard]] bool will_end(int id) const;
    [[nodiscard]] std::vector<int> all_that_will_end() const;
    /// Every universe at every port that must be heard now, those that will end apart.
    [[nodiscard]] std::vector<Audible> audible() const;
    /// Universes of playlists that may or may not have ended.
    [[nodiscard]] std::vector<int> uncertain_universes() const;
    /// "1 plays, 4 paused", for messages.
    [[nodiscard]] std::string state() const;

    /// The node of all universes without outputs has been announced: it is known as often as it has appeared
    /// more than gone.
    void node_appears() { ++node_appearances_; }
    void node_goes() { node_appearances_ -= node_appearances_ > 0 ? 1 : 0; }

    /// Where that node listens.
    Destination node;
    /// Where frames without outputs go while unicast is off.
    Destination broadcast{"", 6454};

private:
    struct Loaded {
        const ControlledPlaylist* playlist = nullptr;
        int brightness = 100;
        /// Active or asked to be: the worker turns the one into the other by itself.
        bool running = true;
        bool ended = false;
        /// Ran until the last call, and may have come to its end before it.
        bool raced = false;
    };

    [[nodiscard]] const Loaded* find(int id) const;
    [[nodiscard]] Loaded* find(int id);
    bool load(int id);
    void log(int level, const std::string& text);
    bool load_failed(const std::string& error);
    void log_effect(const ControlledEffect& effect);
    void remember_race(const Loaded& stopped);
    [[nodiscard]] std::vector<std::uint8_t> levels_of(const Loaded& loaded,
                                                      const ControlledEffect::Look& look) const;
    [[nodiscard]] std::vector<Destination> destinations_of(const ControlledEffect& effect,
                                                           int universe) const;

    std::vector<ControlledPlaylist> show_;
    std::string root_;
    std::vector<Loaded> loaded_;
    /// Stopped by the last call while they may have come to their end.
    std::vector<int> stopped_;
    std::map<int, Zone> zones_;
    bool unicast_ = true;
    int node_appearances_ = 0;
    int level_ = 3;
    bool context_ = true;
    std::vector<LogLine> lines_;
};

}  // namespace model
