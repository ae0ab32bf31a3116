#include "comparison_report.h"

#include <iomanip>
#include <sstream>

#include <nlohmann/json.hpp>

namespace monitor {

namespace {

std::string milliseconds(std::chrono::nanoseconds time) {
    std::ostringstream out;
    out << std::fixed << std::setprecision(3) << std::chrono::duration<double, std::milli>(time).count();
    return out.str();
}

}  // namespace

std::string report_text(const ComparisonReport& report) {
    const LatenessFigures& lateness = report.lateness;
    std::ostringstream out;
    out << report.recording << ": " << report.counts.matched << " packets compared at a speed boost of "
        << report.speed_boost << ", " << report.counts.missing << " missing, " << report.counts.extra
        << " extra, " << report.counts.ignored << " of other universes or streams\n"
        << "lateness in ms, of which the first packet has none: p50 " << milliseconds(lateness.p50)
        << ", p99 " << milliseconds(lateness.p99) << ", p99.9 " << milliseconds(lateness.p999) << ", max "
        << milliseconds(lateness.max) << ", min " << milliseconds(lateness.min) << '\n';
    if (report.counts.resynchronised > 0) {
        out << "the place in the recording was lost and found anew " << report.counts.resynchronised
            << " times; what was missing then is not counted\n";
    }
    if (report.kernel_drops > 0) {
        out << "the kernel dropped " << report.kernel_drops
            << " datagrams here, which may be among the missing\n";
    }
    return out.str();
}

std::string report_json(const ComparisonReport& report) {
    const nlohmann::ordered_json object{{"type", "comparison"},
                                        {"recording", report.recording},
                                        {"speed_boost", report.speed_boost},
                                        {"compared", report.counts.matched},
                                        {"missing", report.counts.missing},
                                        {"extra", report.counts.extra},
                                        {"ignored", report.counts.ignored},
                                        {"resynchronised", report.counts.resynchronised},
                                        {"kernel_drops", report.kernel_drops},
                                        {"lateness_ns",
                                         {{"min", report.lateness.min.count()},
                                          {"p50", report.lateness.p50.count()},
                                          {"p99", report.lateness.p99.count()},
                                          {"p99_9", report.lateness.p999.count()},
                                          {"max", report.lateness.max.count()}}}};
    return object.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace) + "\n";
}

}  // namespace monitor
