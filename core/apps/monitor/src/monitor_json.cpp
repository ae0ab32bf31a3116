// The JSON form of what is seen.

#include <nlohmann/json.hpp>

#include "monitor_view.h"

namespace monitor {

namespace {

using Json = nlohmann::ordered_json;

Json histogram_json(const IntervalFigures& intervals) {
    Json steps = Json::array();
    for (std::size_t i = 0; i < intervals.histogram.size(); ++i) {
        Json step;
        step["to_ms"] =
            i < IntervalFigures::kBounds.size() ? Json(IntervalFigures::kBounds[i]) : Json(nullptr);
        step["count"] = intervals.histogram[i];
        steps.push_back(step);
    }
    return steps;
}

Json row_json(const StreamRow& row, bool wrapped) {
    return {{"universe", row.universe},
            {wrapped ? "destination" : "source", capture::endpoint_text(row.peer)},
            {"fps", row.intervals.fps},
            {"interval_ms",
             {{"p50", row.intervals.p50},
              {"p99", row.intervals.p99},
              {"max", row.intervals.max},
              {"worst", row.intervals.worst},
              {"histogram", histogram_json(row.intervals)}}},
            {"packets", row.packets},
            {"lost", row.sequence.lost()},
            {"late", row.sequence.late()},
            {"repeated", row.sequence.repeated()},
            {"restarts", row.sequence.restarts()},
            {"conflict", row.conflict},
            {"levels", row.levels}};
}

}  // namespace

std::string to_json(const Snapshot& snapshot) {
    Json streams = Json::array();
    for (const StreamRow& row : snapshot.rows) {
        streams.push_back(row_json(row, snapshot.wrapped));
    }
    Json object{{"type", "monitor"},
                {"streams", streams},
                {"other_artnet", snapshot.others.other_artnet},
                {"malformed", snapshot.others.malformed},
                {"not_artnet", snapshot.others.not_artnet},
                {"beyond_limit", snapshot.others.beyond_limit},
                {"kernel_drops", snapshot.kernel_drops}};
    if (snapshot.comparison != nullptr) {
        object["compared"] = snapshot.comparison->matched;
        object["missing"] = snapshot.comparison->missing;
        object["extra"] = snapshot.comparison->extra;
    }
    return object.dump() + "\n";
}

}  // namespace monitor
