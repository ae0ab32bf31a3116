#pragma once
// What the engine's control calls and its worker must do, cycle by cycle, in plain code without threads.

#include <cstdint>
#include <list>
#include <vector>

#include "merge_model.h"
#include "show_records.h"

namespace model {

/// A model engine. Its time is the number of nanoseconds in `now`; cycle() is one turn of the worker.
class SchedulerModel {
public:
    explicit SchedulerModel(std::int64_t start) : now(start) {}

    std::int64_t now;
    MergeModel merge;
    /// Asked for each datagram; what it refuses is not sent.
    MergeModel::Network network;
    std::vector<Sent> sent;
    /// Playlists that ended by themselves, in that order.
    std::vector<int> ended;
    /// Turns in which several playlists were due at the same moment.
    int ties = 0;

    // The calls, with the replies of the bus. Loading takes no time here.
    bool play(const Playlist& playlist);
    bool pause(int id);
    void stop(int id);
    void stop_all();
    void set_brightness(int id, int percent);
    void set_speed_boost(int id, int percent);
    bool set_zones(const std::vector<Zone>& zones);
    /// Adds a node, or takes one that is equal away.
    void change_node(bool add, int universe, const Destination& node);

    void cycle();

private:
    struct Record {
        const Playlist* playlist = nullptr;
        int brightness = 0;
        int speed_boost = 0;
        bool active = false;
        bool requested = false;
        bool finished = false;
        int position = 0;
        std::int64_t due = 0;
    };

    Record* find(int id);
    Record* choose();
    void send_frame(Record& record);

    /// In load order.
    std::list<Record> records_;
};

/// Nanoseconds that a delay lasts at a speed boost.
std::int64_t boosted(std::int64_t delay, int percent);

}  // namespace model
