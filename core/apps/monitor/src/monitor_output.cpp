#include "monitor_output.h"

namespace monitor {

void MonitorOutput::show(const Snapshot& snapshot) {
    if (screen_.can_draw()) {
        screen_.draw(to_screen(snapshot, screen_.size(), screen_.glyphs()));
    } else {
        cli::print(json_ ? to_json(snapshot) : to_lines(snapshot));
    }
}

void MonitorOutput::finish(const Snapshot& snapshot) {
    screen_.leave();
    cli::print(json_ ? to_json(snapshot) : to_lines(snapshot));
}

}  // namespace monitor
