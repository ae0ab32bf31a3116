#pragma once
// Holds received packets against what a step expects.

#include <array>
#include <cstdint>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "expectation.h"
#include "mark.h"
#include "packet.h"

namespace demo {

/**
 * What is known of the packets on each line from the whole demo so far; steps come and go.
 *
 * A line is one destination's stream of packets. A mark that arrives on it says which destination that is.
 */
struct LineBook {
    struct Line {
        /// Empty as long as no mark has come.
        std::string destination;
        /// Playlist to its latest packet, at frame * universes + index of the universe.
        std::map<int, int> positions;
        /// Universe to the frame as it stands.
        std::map<int, Levels> frames;
    };
    std::map<std::string, Line> lines;

    /// The next packet of the playlist may be any: it begins anew.
    void forget(int playlist);
    /// The line to a destination; null as long as no mark came over it.
    [[nodiscard]] const Line* find(const std::string& destination) const;
};

/// One universe of one playlist at one destination.
struct UniverseMeasurement {
    std::string destination{};
    int universe = 0;
    /// Nanoseconds since 1970, by the kernel.
    std::vector<std::int64_t> arrivals{};
    /// The latest packet's levels.
    Levels levels{};
};

/// What came of one StreamExpectation.
struct StreamMeasurement {
    std::vector<UniverseMeasurement> universes;
    int packets = 0;
    int peak = 0;
    /// Packets lost, repeated or out of turn.
    int misplaced = 0;
    /// Packets whose header or levels differ from what was expected.
    int wrong = 0;

    /// The universe's rate that is farthest from `expected`; 0 when nothing came.
    [[nodiscard]] double rate(double expected) const;
};

/// Judges one step. Main thread.
class StepJudge {
public:
    /// Borrows both for its whole life. `round` is the number of the step's marks.
    StepJudge(const StepExpectation& step, LineBook& book, std::uint32_t round);

    /**
     * Takes the next packet.
     *
     * A line's packets before its mark were sent before the step's call was answered: they are followed for
     * their order, but not judged.
     */
    void take(const ReceivedPacket& packet);

    /// Whether all marks have arrived.
    [[nodiscard]] bool marked() const;
    /// Whether every stream has shown its frames.
    [[nodiscard]] bool complete() const;

    /// In the order of the step's streams.
    [[nodiscard]] const std::vector<StreamMeasurement>& streams() const { return streams_; }
    /// Packets that belong to no stream of the step.
    [[nodiscard]] int strays() const { return strays_; }

private:
    /// Where a packet stands in the show.
    struct Place {
        const PlaylistPlan* plan = nullptr;
        int frame = 0;
        int index = 0;
    };

    static Place place_of(const std::vector<std::uint8_t>& packet);
    void take_mark(const Mark& mark, const std::string& line);
    /// Follows the order; false when the packet is not the one that was due.
    bool follow(LineBook::Line& line, const Place& place) const;
    void judge(LineBook::Line& line, const Place& place, const ReceivedPacket& packet, bool in_order);
    void measure(StreamMeasurement& stream, const LineBook::Line& line, const Place& place,
                 const ReceivedPacket& packet);

    const StepExpectation& step_;
    LineBook& book_;
    std::uint32_t round_;
    /// Lines whose mark has come.
    std::vector<std::string> marked_;
    std::vector<StreamMeasurement> streams_;
    int strays_ = 0;
};

}  // namespace demo
