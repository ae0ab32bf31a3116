#include "summary.h"

#include <array>
#include <cstddef>
#include <cstdio>

#include "statistics.h"

namespace demo {

namespace {

std::string number(double value) {
    std::array<char, 32> text{};
    std::snprintf(text.data(), text.size(), "%.2f", value);
    return text.data();
}

std::string plural(int count, const char* noun) {
    return std::to_string(count) + " " + noun + (count == 1 ? "" : "s");
}

const char* verdict(bool good) {
    return good ? "ok" : "NOT OK";
}

std::string step_row(const std::string& label, const StreamExpectation& expected,
                     const StreamMeasurement& measured, bool good) {
    std::array<char, 256> line{};
    const double rate = measured.rate(expected.rate);
    // A rate in brackets is shown but not judged.
    const std::string shown = expected.rate_judged ? number(rate) : "(" + number(rate) + ")";
    std::snprintf(line.data(), line.size(), "%-20s%3d %4d %5d %6.2f %7s %4d %4d %6d %6d %s\n", label.c_str(),
                  expected.playlist, expected.packets(), measured.packets, expected.rate, shown.c_str(),
                  expected.peak, measured.peak, measured.misplaced, measured.wrong, verdict(good));
    return line.data();
}

std::vector<std::string> differences(const StreamExpectation& expected, const StreamMeasurement& measured) {
    std::vector<std::string> reasons;
    if (measured.packets != expected.packets()) {
        reasons.push_back("expected " + plural(expected.packets(), "packet") + ", " +
                          std::to_string(measured.packets) + " came");
    }
    const double rate = measured.rate(expected.rate);
    if (expected.rate_judged && !rate_agrees(expected.rate, rate)) {
        reasons.push_back("expected " + number(expected.rate) + " frames a second, measured " + number(rate));
    }
    if (measured.peak != expected.peak) {
        reasons.push_back("the highest level should be " + std::to_string(expected.peak) + " and is " +
                          std::to_string(measured.peak));
    }
    if (measured.misplaced != 0) {
        reasons.push_back(plural(measured.misplaced, "packet") + " lost, repeated or out of turn");
    }
    if (measured.wrong != 0) {
        reasons.push_back(plural(measured.wrong, "packet") + " with other levels than expected");
    }
    return reasons;
}

}  // namespace

void Summary::add(const StepExpectation& step, const StepJudge& judge) {
    for (std::size_t i = 0; i < step.streams.size(); ++i) {
        const StreamExpectation& expected = step.streams[i];
        const StreamMeasurement& measured = judge.streams()[i];
        const std::vector<std::string> reasons = differences(expected, measured);
        step_rows_ += step_row(step.label, expected, measured, reasons.empty());
        complain(step.label + ", playlist " + std::to_string(expected.playlist), reasons);
    }
    if (step.streams.empty()) {
        add_fact(step.label + ": packets in " + std::to_string(step.silence.count()) + " ms", "0",
                 std::to_string(judge.strays()));
    } else if (judge.strays() != 0) {
        complain(step.label, {plural(judge.strays(), "packet") + " that should not come, or not to there"});
    }
}

void Summary::add_fact(const std::string& label, const std::string& expected, const std::string& measured) {
    std::array<char, 256> line{};
    const bool good = expected == measured;
    std::snprintf(line.data(), line.size(), "%-46s %10s %10s    %s\n", label.c_str(), expected.c_str(),
                  measured.c_str(), verdict(good));
    fact_rows_ += line.data();
    if (!good) {
        complain(label, {"expected " + expected + ", got " + measured});
    }
}

void Summary::add_skipped(const std::string& label, const std::string& reason) {
    step_rows_.append(label).append(": left out, ").append(reason).append("\n");
}

void Summary::complain(const std::string& label, const std::vector<std::string>& reasons) {
    for (const std::string& reason : reasons) {
        complaints_.emplace_back(label).append(": ").append(reason);
    }
}

std::string Summary::text() const {
    std::string text =
        "                           packets frames/second peak level out of  wrong\n"
        "step               list exp.   got   exp.     got exp.  got   turn levels\n" +
        step_rows_ + "\n                                                 expected        got\n" + fact_rows_ +
        "\n" + (shown_.empty() ? "" : shown_ + "\n");
    for (const std::string& complaint : complaints_) {
        text += complaint + "\n";
    }
    return text + (agrees() ? "All that came out is what was expected.\n"
                            : "What came out is NOT what was expected.\n");
}

}  // namespace demo
