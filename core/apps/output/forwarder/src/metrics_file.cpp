#include "metrics_file.h"

#include <array>
#include <system_error>
#include <utility>

#include <sys/stat.h>

#include "cuewright/version.h"
#include "posix/new_file.h"
#include "text.h"

namespace forwarder {

namespace {

using Counters = Destination::Counters;

/// Collects the lines of one metric after the other.
class Exposition {
public:
    void begin(const char* name, const char* type, const char* help) {
        name_ = name;
        text_ += text("# HELP cuewright_forwarder_%s %s\n# TYPE cuewright_forwarder_%s %s\n", name, help,
                      name, type);
    }
    /// @param labels  NAME="VALUE" pairs with commas between; may be empty
    void sample(const std::string& labels, std::uint64_t value) {
        text_ +=
            text("cuewright_forwarder_%s%s %llu\n", name_, labels.empty() ? "" : ("{" + labels + "}").c_str(),
                 static_cast<unsigned long long>(value));
    }
    void single(const char* name, const char* type, const char* help, std::uint64_t value) {
        begin(name, type, help);
        sample({}, value);
    }
    [[nodiscard]] std::string take() { return std::move(text_); }

private:
    const char* name_ = "";
    std::string text_;
};

struct CounterMetric {
    const char* name;
    const char* help;
    std::uint64_t Counters::*field;
};
constexpr std::array<CounterMetric, 6> kDestinationMetrics{
    {{"destination_packets_total", "Packets given to the network.", &Counters::packets},
     {"destination_bytes_total", "Bytes of those packets.", &Counters::bytes},
     {"destination_errors_total", "Errors that the system reported.", &Counters::errors},
     {"destination_unsent_total", "Packets given up or passed over.", &Counters::unsent},
     {"destination_waits_total", "Times that the system's send queue was full.", &Counters::waits},
     {"destination_rejected_total", "Datagrams without an Art-Net identifier.", &Counters::rejected}}};

std::string labels_of(const char* target, const char* sent_to) {
    return text(R"(destination="%s",sent_to="%s")", target, sent_to);
}

std::string labels_of(const Report::Peer& peer) {
    return labels_of(to_text(peer.target).c_str(), to_text(peer.sent_to).c_str());
}

void add_ports(Exposition& out, const Report& report) {
    const auto label = [](const Report::Port& port) { return text(R"(port="%u")", unsigned{port.port}); };
    out.begin("received_datagrams_total", "counter", "Datagrams taken in.");
    for (const Report::Port& port : report.ports) {
        out.sample(label(port), port.received);
    }
    out.begin("kernel_dropped_datagrams_total", "counter", "Datagrams that the kernel threw away.");
    for (const Report::Port& port : report.ports) {
        out.sample(label(port), port.kernel_drops);
    }
    out.begin("receive_buffer_bytes", "gauge", "Receive buffer as the kernel counts it.");
    for (const Report::Port& port : report.ports) {
        out.sample(label(port), static_cast<std::uint64_t>(port.receive_buffer));
    }
}

void add_totals(Exposition& out, const Report& report) {
    out.single("accepted_datagrams_total", "counter", "Datagrams that passed all checks.", report.accepted);
    out.begin("rejected_datagrams_total", "counter", "Datagrams that did not, by reason.");
    for (std::size_t i = 0; i < kFaults; ++i) {
        const char* reason = fault_key(static_cast<artnet::ForwardingFault>(i + 1));
        out.sample(text(R"(reason="%s")", reason), report.rejected[i]);
    }
    out.single("left_behind_datagrams_total", "counter", "Datagrams not taken in before the end.",
               report.left_behind);
}

void add_destinations(Exposition& out, const Report& report) {
    for (const CounterMetric& metric : kDestinationMetrics) {
        out.begin(metric.name, "counter", metric.help);
        for (const Report::Peer& peer : report.destinations) {
            out.sample(labels_of(peer), peer.counters.*metric.field);
        }
        if (report.others) {
            out.sample(labels_of("others", ""), *report.others.*metric.field);
        }
        if (report.tee) {
            out.sample(labels_of("copies", to_text(report.tee->sent_to).c_str()),
                       report.tee->counters.*metric.field);
        }
    }
}

void add_outlet(Exposition& out, const OutletCounters& c) {
    out.single("streams", "gauge", "Pairs of destination and universe that are followed.", c.streams);
    out.single("untracked_packets_total", "counter", "Packets of pairs beyond the limit.", c.untracked);
    out.single("resent_packets_total", "counter", "Frames sent again after a silence.", c.resent);
    out.single("sync_packets_total", "counter", "ArtSync packets.", c.syncs);
    out.single("pace_waiting_packets", "gauge", "Frames that wait for their turn.", c.waiting);
    out.single("pace_superseded_packets_total", "counter", "Frames that a newer one replaced as they waited.",
               c.superseded);
    out.single("pace_dropped_packets_total", "counter", "Frames that found no room to wait.", c.dropped);
}

}  // namespace

std::string to_prometheus(const Report& report, std::uint64_t write_failures) {
    Exposition out;
    out.begin("build_info", "gauge", "Always 1; the version is in the label.");
    out.sample("version=\"" CUEWRIGHT_VERSION "\"", 1);
    add_ports(out, report);
    add_totals(out, report);
    add_destinations(out, report);
    if (report.outlet) {
        add_outlet(out, *report.outlet);
    }
    out.single("metrics_write_failures_total", "counter", "Times that this file could not be written.",
               write_failures);
    return out.take();
}

std::string MetricsFile::write(const std::string& text) {
    const std::string failure = try_write(text);
    if (failure.empty()) {
        return {};
    }
    // Once: whoever watches the file sees that it grows old, and later how often it failed.
    return ++failures_ > 1 ? std::string()
                           : "cannot write the metrics: " + failure +
                                 "; the forwarding goes on, later failures are only counted";
}

std::string MetricsFile::try_write(const std::string& text) const {
    // A pipe that nobody reads would hold up this thread, and with it the end of the program.
    struct stat status {};
    if (stat(path_.c_str(), &status) == 0 && !S_ISREG(status.st_mode)) {
        return path_ + ": expected a plain file or none";
    }
    try {
        posix::NewFile file(path_, posix::NewFile::Existing::Replace);
        file.stream() << text;
        // Every five seconds: that would wear flash memory for figures that nobody needs after a power cut.
        file.commit(posix::NewFile::Durability::Transient);
        return {};
    } catch (const std::system_error& error) {
        return error.what();
    }
}

}  // namespace forwarder
