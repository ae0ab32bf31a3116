#include "inspect/report_output.h"

#include <nlohmann/json.hpp>

#include "inspect/wording.h"

namespace inspect {

std::string finding_text(const Finding& finding) {
    return "byte " + std::to_string(finding.offset) + ", frame " + std::to_string(finding.frame) + ": " +
           finding.text + " [" + finding.kind + "]";
}

nlohmann::ordered_json finding_json(const Finding& finding) {
    return {{"kind", finding.kind},     {"level", level_name(finding.level)},
            {"offset", finding.offset}, {"frame", finding.frame},
            {"count", finding.count},   {"text", finding.text}};
}

std::string counts_text(std::uint64_t errors, std::uint64_t warnings, std::uint64_t notes) {
    const std::string noted = notes == 0 ? "" : ", " + counted(notes, "note");
    if (errors == 0 && warnings == 0) {
        return "good" + noted;
    }
    return counted(errors, "error") + ", " + counted(warnings, "warning") + noted;
}

void print_report(std::FILE* out, const RecordingReport& report, Level lowest) {
    const char* const path = report.path.c_str();
    const Findings& findings = report.findings;
    for (const Finding& finding : findings.list()) {
        if (finding.level >= lowest) {
            std::fprintf(out, "%s: %s: %s\n", path, level_name(finding.level), finding_text(finding).c_str());
        }
    }
    for (const auto& [kind, count] : findings.left_out()) {
        std::fprintf(out, "%s: and %s more of the kind [%s] (--limit 0 shows all)\n", path,
                     std::to_string(count).c_str(), kind.c_str());
    }
    std::fprintf(
        out, "%s: %s; %s of %s, %s", path,
        counts_text(findings.count(Level::Error), findings.count(Level::Warning), findings.count(Level::Note))
            .c_str(),
        counted(report.frames, "frame").c_str(), counted(report.universes.size(), "universe").c_str(),
        time_text(report.duration).c_str());
    if (report.frames != 0) {
        std::fprintf(out, ", the last frame's %s included", time_text(report.last_played).c_str());
    }
    std::fputc('\n', out);
}

nlohmann::ordered_json report_json(const RecordingReport& report, Level lowest) {
    nlohmann::ordered_json universes = nlohmann::ordered_json::array();
    for (const UniverseCount& universe : report.universes) {
        universes.push_back({{"universe", universe.universe}, {"packets", universe.packets}});
    }
    nlohmann::ordered_json list = nlohmann::ordered_json::array();
    for (const Finding& finding : report.findings.list()) {
        if (finding.level >= lowest) {
            list.push_back(finding_json(finding));
        }
    }
    nlohmann::ordered_json left_out = nlohmann::ordered_json::object();
    for (const auto& [kind, count] : report.findings.left_out()) {
        left_out[kind] = count;
    }
    nlohmann::ordered_json recorded;
    if (report.last_recorded) {
        recorded = report.last_recorded->count();
    }
    return {{"file", report.path},
            {"bytes", report.bytes},
            {"loads", report.loads},
            {"packets", report.packets},
            {"frames", report.frames},
            {"duration_ns", report.duration.count()},
            {"last_frame", {{"recorded_ns", recorded}, {"played_ns", report.last_played.count()}}},
            {"universes", universes},
            {"errors", report.findings.count(Level::Error)},
            {"warnings", report.findings.count(Level::Warning)},
            {"notes", report.findings.count(Level::Note)},
            {"findings", list},
            {"left_out", left_out}};
}

Level level_of_name(const std::string& name) {
    return name == "error" ? Level::Error : name == "warning" ? Level::Warning : Level::Note;
}

}  // namespace inspect
