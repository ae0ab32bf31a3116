#include "doctor.h"

#include <cstdio>
#include <cstdlib>
#include <functional>

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include "names.h"
#include "nodes.h"
#include "player.h"

namespace ctl {

namespace {

/// Names a directory that stands before /proc and /sys. For tests of the program alone, and in no help: a
/// machine's buffers, governor, clock and memory cannot be made bad for a test.
constexpr const char* kRootVariable = "CUEWRIGHT_DOCTOR_ROOT";

/// Everything that checks look at, beside the system's own files.
struct Facts {
    /// Of the system's own files; see checks.h.
    std::string root;
    BusFacts bus;
    Show show;
    std::string no_show;
};

struct Check {
    std::string name;
    std::function<Finding(const Facts&)> run;
};

const std::vector<Check>& checks() {
    static const std::vector<Check> all{
        {"bus", [](const Facts& facts) { return check_bus(facts.bus); }},
        {"service", [](const Facts& facts) { return check_service(facts.bus); }},
        {"forwarder", [](const Facts& facts) { return check_forwarder(facts.root); }},
        {"discovery", [](const Facts& facts) { return check_discovery(facts.bus); }},
        {"data", [](const Facts& facts) { return check_data(facts.show, facts.no_show); }},
        {"ports",
         [](const Facts& facts) {
             return check_ports(
                 facts.root, facts.no_show.empty() ? std::optional(output_ports(facts.show)) : std::nullopt);
         }},
        {"buffers", [](const Facts& facts) { return check_buffers(facts.root); }},
        {"governor", [](const Facts& facts) { return check_governor(facts.root); }},
        {"clock", [](const Facts& facts) { return check_clock(facts.root, read_clock_state()); }},
        {"memory",
         [](const Facts& facts) { return check_memory(facts.root, largest_playlist_bytes(facts.show)); }},
    };
    return all;
}

void find_show(const BusFacts& bus, const DoctorOptions& options, Facts& facts) {
    std::string directory = options.data;
    if (directory.empty()) {
        if (!bus.player) {
            facts.no_show = "the service, which knows where it is, is not there";
            return;
        }
        try {
            directory = data_directory_of(*bus.player);
        } catch (const cli::Failure& failure) {
            facts.no_show = failure.what();
            return;
        }
    }
    facts.show = read_show(directory);
}

const char* word(Verdict verdict) {
    switch (verdict) {
        case Verdict::Good:
            return "good";
        case Verdict::Unknown:
            return "unknown";
        case Verdict::Problem:
            break;
    }
    return "problem";
}

void print_text(const std::vector<Finding>& findings) {
    for (const Finding& finding : findings) {
        const bool problem = finding.verdict == Verdict::Problem;
        std::printf("%-8s %-10s %s\n", problem ? "PROBLEM" : word(finding.verdict), finding.check.c_str(),
                    finding.text.c_str());
        if (!finding.advice.empty()) {
            std::printf("%-8s %-10s   %s%s\n", "", "", problem ? "do: " : "", finding.advice.c_str());
        }
    }
}

void print_json(const std::vector<Finding>& findings, bool good) {
    QJsonArray array;
    for (const Finding& finding : findings) {
        array.append(QJsonObject{{QStringLiteral("check"), QString::fromStdString(finding.check)},
                                 {QStringLiteral("verdict"), QString::fromLatin1(word(finding.verdict))},
                                 {QStringLiteral("text"), QString::fromStdString(finding.text)},
                                 {QStringLiteral("advice"), QString::fromStdString(finding.advice)}});
    }
    const QJsonObject report{{QStringLiteral("good"), good}, {QStringLiteral("checks"), array}};
    std::printf("%s\n", QJsonDocument(report).toJson(QJsonDocument::Compact).constData());
}

}  // namespace

const std::vector<std::string>& check_names() {
    static const std::vector<std::string> names = [] {
        std::vector<std::string> all;
        for (const Check& check : checks()) {
            all.push_back(check.name);
        }
        return all;
    }();
    return names;
}

BusFacts ask_bus_facts(const BusSettings& settings) {
    BusFacts facts;
    try {
        Bus bus(settings);
        facts.address = bus.address();
        if (bus.owner_of(kPlayer)) {
            try {
                facts.player = bus.process_of(kPlayer);
                // Answered by its event loop without any lock: what keeps this waiting keeps everything
                // waiting.
                static_cast<void>(Player(bus).log_level());
            } catch (const cli::Failure& failure) {
                facts.player_problem = failure.what();
            }
        }
        if (bus.owner_of(kDiscovery)) {
            try {
                facts.nodes = count_nodes(present_nodes(bus));
            } catch (const cli::Failure& failure) {
                facts.discovery_problem = failure.what();
            }
        }
    } catch (const cli::Failure& failure) {
        facts.bus_problem = failure.what();
    }
    return facts;
}

int doctor(const BusSettings& settings, const DoctorOptions& options) {
    Facts facts;
    const char* const root = std::getenv(kRootVariable);
    facts.root = root == nullptr ? "" : root;
    facts.bus = ask_bus_facts(settings);
    find_show(facts.bus, options, facts);
    std::vector<Finding> findings;
    bool good = true;
    for (const Check& check : checks()) {
        if (!options.skip.contains(check.name)) {
            findings.push_back(check.run(facts));
            good = good && findings.back().verdict != Verdict::Problem;
        }
    }
    if (options.json) {
        print_json(findings, good);
    } else {
        print_text(findings);
    }
    return good ? cli::kExitGood : cli::kExitProblem;
}

}  // namespace ctl
