#include "scheduler_model.h"

#include <algorithm>

namespace model {

namespace {

constexpr std::int64_t kIdle = 10'000'000;

int percent_of(int value) {
    return value < 0 ? 0 : value > 100 ? 100 : value;
}

}  // namespace

std::int64_t boosted(std::int64_t delay, int percent) {
    // From twice the time at -100 and below to half of it at 100 and above, straight between these and 0.
    if (percent <= 0) {
        return delay * (100 - std::max(percent, -100)) / 100;
    }
    return delay * (200 - std::min(percent, 100)) / 200;
}

SchedulerModel::Record* SchedulerModel::find(int id) {
    for (Record& record : records_) {
        if (record.playlist->id == id) {
            return &record;
        }
    }
    return nullptr;
}

bool SchedulerModel::play(const Playlist& playlist) {
    if (Record* const record = find(playlist.id); record != nullptr) {
        record->requested = record->requested || !record->active;
        return true;
    }
    if (playlist.packets.empty()) {
        return false;
    }
    merge.take(playlist);
    Record record;
    record.playlist = &playlist;
    record.brightness = playlist.brightness;
    record.speed_boost = playlist.speed_boost;
    record.requested = true;
    records_.push_back(record);
    return true;
}

bool SchedulerModel::pause(int id) {
    Record* const record = find(id);
    if (record == nullptr) {
        return false;
    }
    record->active = false;
    record->requested = false;
    return true;
}

void SchedulerModel::stop(int id) {
    if (Record* const record = find(id); record != nullptr) {
        merge.give_back(*record->playlist);
        records_.remove_if([record](const Record& other) { return &other == record; });
    }
}

void SchedulerModel::stop_all() {
    records_.clear();
    merge.clear();
}

void SchedulerModel::set_brightness(int id, int percent) {
    if (Record* const record = find(id); record != nullptr) {
        record->brightness = percent_of(percent);
    }
}

void SchedulerModel::set_speed_boost(int id, int percent) {
    if (Record* const record = find(id); record != nullptr) {
        record->speed_boost = percent_of(percent);
    }
}

bool SchedulerModel::set_zones(const std::vector<Zone>& zones) {
    if (!records_.empty()) {
        return false;
    }
    merge.zones.clear();
    for (const Zone& zone : zones) {
        merge.zones[zone.id] = zone;
    }
    return true;
}

void SchedulerModel::change_node(bool add, int universe, const Destination& node) {
    std::vector<Destination>& list = merge.nodes[universe];
    const auto equal = std::find(list.begin(), list.end(), node);
    if (add) {
        list.push_back(node);
    } else if (equal != list.end()) {
        list.erase(equal);
    }
    std::sort(list.begin(), list.end(), [](const Destination& one, const Destination& other) {
        return one.ip == other.ip ? one.port < other.port : one.ip < other.ip;
    });
}

SchedulerModel::Record* SchedulerModel::choose() {
    Record* first = nullptr;
    int as_early = 0;
    for (Record& record : records_) {
        if (!record.active || record.finished) {
            continue;
        }
        if (first == nullptr || record.due < first->due) {
            first = &record;
            as_early = 0;
        } else if (record.due == first->due) {
            ++as_early;
        }
    }
    ties += as_early > 0 ? 1 : 0;
    return first;
}

void SchedulerModel::cycle() {
    for (Record& record : records_) {
        if (record.requested) {
            record.requested = false;
            record.active = true;
            record.due = now;
        }
    }
    Record* const record = choose();
    if (record == nullptr) {
        now += kIdle;
        return;
    }
    now = std::max(now, record->due);
    send_frame(*record);
}

void SchedulerModel::send_frame(Record& record) {
    const std::vector<Packet>& packets = record.playlist->packets;
    const int end = static_cast<int>(packets.size());
    if (record.playlist->loop && record.position == end) {
        record.position = 0;
    }
    const auto send = [this](const Sent& datagram) {
        if (!network(datagram)) {
            return false;
        }
        sent.push_back(datagram);
        sent.back().due = now;
        return true;
    };
    bool frame_complete = false;
    while (record.position < end && !frame_complete) {
        const Packet& packet = packets[static_cast<std::size_t>(record.position)];
        merge.send(*record.playlist, packet, record.brightness, send);
        record.position += 1;
        frame_complete = packet.delay > 0;
        if (frame_complete) {
            record.due += boosted(packet.delay, record.speed_boost);
        }
    }
    if (!record.playlist->loop && record.position == end) {
        record.finished = true;
        ended.push_back(record.playlist->id);
    }
}

}  // namespace model
