#include "watch_output.h"

#include "text.h"
#include "watch_view.h"

namespace forwarder {

void WatchOutput::show(const WatchStatistics& statistics, const Report& report) {
    const std::vector<WatchRow> rows = statistics.rows(WatchStatistics::Clock::now());
    if (json_) {
        cli::print(to_json(rows));
        return;
    }
    if (!screen_.can_draw()) {
        std::string lines;
        for (const WatchRow& row : rows) {
            lines += to_plain_line(row);
        }
        cli::print(lines);
        return;
    }
    const std::string heading = text("received %llu  rejected %llu  dropped by kernel %llu  (Ctrl-C ends)",
                                     static_cast<unsigned long long>(report.received()),
                                     static_cast<unsigned long long>(report.rejected_in_all()),
                                     static_cast<unsigned long long>(report.kernel_drops()));
    screen_.draw(
        to_screen(heading, rows, statistics.frames_beyond_limit(), screen_.size(), screen_.glyphs()));
}

}  // namespace forwarder
