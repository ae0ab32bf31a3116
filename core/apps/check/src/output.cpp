#include "output.h"

#include <nlohmann/json.hpp>

#include "inspect/report_output.h"
#include "inspect/wording.h"

namespace datacheck {

std::string finding_line(const DataFinding& finding) {
    std::string line = finding.file;
    if (finding.line != 0) {
        line += ":" + std::to_string(finding.line) + ":" + std::to_string(finding.column);
    }
    line += (line.empty() ? "" : ": ") + std::string(inspect::level_name(finding.level)) + ": ";
    if (finding.packet) {
        return line + inspect::finding_text(*finding.packet);
    }
    if (!finding.element.empty()) {
        line += finding.element + ": ";
    }
    return line + finding.text + " [" + finding.kind + "]";
}

void print_findings(std::FILE* out, const std::string& root, const DataFindings& findings,
                    const ShowSummary& summary, Level lowest) {
    for (const DataFinding& finding : findings.list()) {
        if (finding.level >= lowest) {
            std::fprintf(out, "%s\n", finding_line(finding).c_str());
        }
    }
    std::fprintf(out, "%s: %s; %s, %s, %s\n", root.c_str(),
                 inspect::counts_text(findings.count(Level::Error), findings.count(Level::Warning),
                                      findings.count(Level::Note))
                     .c_str(),
                 inspect::counted(summary.playlists, "playlist").c_str(),
                 inspect::counted(summary.effects, "effect").c_str(),
                 inspect::counted(summary.recordings, "recording").c_str());
}

std::string findings_json(const std::string& root, const DataFindings& findings, const ShowSummary& summary,
                          Level lowest) {
    nlohmann::ordered_json list = nlohmann::ordered_json::array();
    for (const DataFinding& finding : findings.list()) {
        if (finding.level < lowest) {
            continue;
        }
        nlohmann::ordered_json object{
            {"kind", finding.kind}, {"level", inspect::level_name(finding.level)}, {"file", finding.file}};
        if (!finding.element.empty()) {
            object["element"] = finding.element;
        }
        if (finding.line != 0) {
            object["line"] = finding.line;
            object["column"] = finding.column;
        }
        if (finding.packet) {
            object["offset"] = finding.packet->offset;
            object["frame"] = finding.packet->frame;
            object["count"] = finding.packet->count;
        }
        object["text"] = finding.text;
        list.push_back(std::move(object));
    }
    const nlohmann::ordered_json answer{{"directory", root},
                                        {"playlists", summary.playlists},
                                        {"effects", summary.effects},
                                        {"recordings", summary.recordings},
                                        {"errors", findings.count(Level::Error)},
                                        {"warnings", findings.count(Level::Warning)},
                                        {"notes", findings.count(Level::Note)},
                                        {"findings", list}};
    // File names need not be UTF-8.
    return answer.dump(2, ' ', false, nlohmann::ordered_json::error_handler_t::replace) + "\n";
}

}  // namespace datacheck
