#include "control_log.h"

#include <algorithm>
#include <array>
#include <fstream>
#include <istream>
#include <sstream>
#include <string>
#include <string_view>

#include <syslog.h>
#include <unistd.h>

#include "support/syslog_records.h"

namespace stress {

namespace {

/// How the lines of the other threads begin, behind their context.
constexpr std::array<std::string_view, 4> kOthers = {"[PlaylistLoader::", "[Repeater::do_render_work]",
                                                     "[Repeater::send_packet]",
                                                     "[Repeater::send_to_address]"};

/// All errors of the main thread are the parser's.
constexpr std::string_view kErrorSource = "core/apps/output/repeater/src/playlist_parser.cpp";

bool of_another_thread(const std::string& line) {
    return std::any_of(kOthers.begin(), kOthers.end(),
                       [&line](std::string_view start) { return line.find(start) != std::string::npos; });
}

/// The lines of the thread of the control calls. The others, many thousands at some levels, are passed over
/// before they are taken apart: what reads more slowly than the service writes falls behind more and more.
std::vector<tests::SyslogLine> lines_of_calls(std::istream& file) {
    std::stringstream kept;
    for (std::string line; std::getline(file, line) && !file.eof();) {
        if (!of_another_thread(line)) {
            kept << line << '\n';
        }
    }
    return tests::syslog_lines(kept);
}

bool matches(const tests::SyslogLine& line, const model::LogLine& expected) {
    const bool error = expected.level < 0;
    if (line.priority != (error ? LOG_ERR : LOG_INFO)) {
        return false;
    }
    if (!expected.context) {
        return line.text == expected.text;
    }
    return line.text.starts_with(kErrorSource) && line.text.ends_with(") " + expected.text);
}

}  // namespace

std::string ControlLog::difference(const std::vector<model::LogLine>& expected) {
    std::ifstream file(file_);
    // Before it is read: the service begins a new one then. At a level with lines for every packet it may
    // write faster than this reads, and there would be no end.
    unlink(file_.c_str());
    const std::vector<tests::SyslogLine> lines = lines_of_calls(file);
    compared_ += static_cast<long long>(expected.size());
    const auto [line, wanted] =
        std::mismatch(lines.begin(), lines.end(), expected.begin(), expected.end(), matches);
    std::ostringstream text;
    if (line != lines.end() || wanted != expected.end()) {
        text << "line " << line - lines.begin() << " of the log is "
             << (line == lines.end() ? "missing" : "\"" + line->text + "\"") << " instead of "
             << (wanted == expected.end() ? "none" : "\"" + wanted->text + "\"");
    }
    return text.str();
}

void ControlLog::skip() {
    unlink(file_.c_str());
}

}  // namespace stress
