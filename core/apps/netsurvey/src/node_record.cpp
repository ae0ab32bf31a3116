#include "node_record.h"

#include "posix/ipv4.h"

namespace netsurvey {

std::string to_text(const Change& change) {
    return std::string(change.present ? "1" : "0") + ":" + std::to_string(change.record.universe) + ":" +
           posix::ipv4_text(change.record.address) + ":" + std::to_string(change.record.port);
}

std::string to_message(std::span<const Change> changes) {
    std::string message;
    for (const Change& change : changes) {
        message += (message.empty() ? "" : ";") + to_text(change);
    }
    return message;
}

}  // namespace netsurvey
