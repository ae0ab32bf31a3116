#include "report.h"

#include <algorithm>
#include <numeric>
#include <system_error>

#include "text.h"

namespace forwarder {

namespace {

using artnet::ForwardingFault;
using Counters = Destination::Counters;

unsigned long long wide(std::uint64_t number) {
    return number;
}

ForwardingFault fault_at(std::size_t index) {
    return static_cast<ForwardingFault>(index + 1);
}

std::string error_text(int error) {
    return error == 0 ? std::string() : std::generic_category().message(error);
}

std::string table_line(const std::string& target, const std::string& sent_to, const Counters& c) {
    return text("%-21s %-21s %12llu %14llu %9llu %9llu %9llu %9llu  %s\n", target.c_str(), sent_to.c_str(),
                wide(c.packets), wide(c.bytes), wide(c.errors), wide(c.unsent), wide(c.waits),
                wide(c.rejected), error_text(c.last_error).c_str());
}

/// The counters as members of a JSON object, without its braces.
std::string json_counters(const Counters& c) {
    // System messages are plain words, but a quotation mark in one must not break the line.
    std::string message = error_text(c.last_error);
    std::erase_if(message, [](char letter) { return letter == '"' || letter == '\\' || letter < ' '; });
    return text(
        R"("packets":%llu,"bytes":%llu,"errors":%llu,"unsent":%llu,"waits":%llu,"rejected":{"%s":%llu},"last_error":"%s")",
        wide(c.packets), wide(c.bytes), wide(c.errors), wide(c.unsent), wide(c.waits),
        fault_key(ForwardingFault::Identifier), wide(c.rejected), message.c_str());
}

std::string json_peer(const Report::Peer& peer) {
    return text(R"({"address":"%s","port":%u,"sent_to":"%s",)", to_text(peer.target.address).c_str(),
                unsigned{peer.target.port}, to_text(peer.sent_to).c_str()) +
           json_counters(peer.counters) + "}";
}

template <typename List, typename Write>
std::string json_list(const List& list, Write write) {
    std::string joined;
    for (const auto& element : list) {
        joined += (joined.empty() ? "" : ",") + write(element);
    }
    return "[" + joined + "]";
}

}  // namespace

std::uint64_t Report::received() const {
    return std::accumulate(ports.begin(), ports.end(), std::uint64_t{0},
                           [](std::uint64_t sum, const Port& port) { return sum + port.received; });
}

std::uint64_t Report::kernel_drops() const {
    return std::accumulate(ports.begin(), ports.end(), std::uint64_t{0},
                           [](std::uint64_t sum, const Port& port) { return sum + port.kernel_drops; });
}

std::uint64_t Report::rejected_in_all() const {
    return std::accumulate(rejected.begin(), rejected.end(), std::uint64_t{0});
}

Report take_report(std::span<const std::unique_ptr<ReceiveSocket>> sockets, const Intake& intake,
                   const Sender& sender) {
    Report report;
    // Read against the flow, so that no datagram is seen further on than where it is counted first.
    const DestinationTable& table = sender.destinations();
    const std::size_t count = table.size();
    for (std::size_t i = 0; i < count; ++i) {
        report.destinations.push_back({table[i].target(), table[i].sent_to(), table[i].counters()});
    }
    const Counters others = table[DestinationTable::kMostDestinations].counters();
    if (others.packets + others.unsent + others.rejected > 0) {
        report.others = others;
    }
    if (sender.tee()) {
        report.tee = {sender.tee()->target(), sender.tee()->sent_to(), sender.tee()->counters()};
    }
    if (sender.outlet()) {
        report.outlet = sender.outlet()->counters();
    }
    for (std::size_t i = 0; i < kFaults; ++i) {
        report.rejected[i] = sender.rejected(fault_at(i));
    }
    report.accepted = sender.accepted();
    report.left_behind = intake.left_behind();
    for (const auto& socket : sockets) {
        report.ports.push_back(
            {socket->port(), socket->received(), socket->kernel_drops(), socket->receive_buffer()});
    }
    return report;
}

std::string to_table(const Report& report) {
    std::string table = text(
        "received %llu, accepted %llu, rejected %llu, dropped by the kernel %llu, left behind at the end "
        "%llu\n",
        wide(report.received()), wide(report.accepted), wide(report.rejected_in_all()),
        wide(report.kernel_drops()), wide(report.left_behind));
    if (report.rejected_in_all() > 0) {
        table += "rejected because of:";
        for (std::size_t i = 0; i < kFaults; ++i) {
            if (report.rejected[i] > 0) {
                table += text(" %s %llu;", fault_text(fault_at(i)), wide(report.rejected[i]));
            }
        }
        table.back() = '\n';
    }
    for (const Report::Port& port : report.ports) {
        table += text("port %u: received %llu, dropped by the kernel %llu, receive buffer %d bytes\n",
                      unsigned{port.port}, wide(port.received), wide(port.kernel_drops), port.receive_buffer);
    }
    if (report.outlet) {
        const OutletCounters& c = *report.outlet;
        table += text(
            "streams %llu (packets beyond the limit %llu), re-sent %llu, ArtSync %llu, waiting %llu, "
            "superseded %llu, dropped %llu\n",
            wide(c.streams), wide(c.untracked), wide(c.resent), wide(c.syncs), wide(c.waiting),
            wide(c.superseded), wide(c.dropped));
    }
    table += text("%-21s %-21s %12s %14s %9s %9s %9s %9s  %s\n", "destination", "sent to", "packets", "bytes",
                  "errors", "unsent", "waits", "rejected", "last error");
    for (const Report::Peer& peer : report.destinations) {
        table += table_line(to_text(peer.target), to_text(peer.sent_to), peer.counters);
    }
    if (report.others) {
        table += table_line("others", "", *report.others);
    }
    if (report.tee) {
        table += table_line("(copies)", to_text(report.tee->sent_to), report.tee->counters);
    }
    if (std::ranges::any_of(report.destinations,
                            [](const auto& peer) { return peer.counters.rejected > 0; }) ||
        (report.others && report.others->rejected > 0)) {
        table +=
            text("(rejected of a destination: the packet's %s is wrong; all other faults leave it unknown)\n",
                 fault_text(ForwardingFault::Identifier));
    }
    return table;
}

std::string to_json(const Report& report) {
    std::string json =
        text(R"({"type":"counters","received":%llu,"accepted":%llu,"kernel_drops":%llu,"left_behind":%llu,)",
             wide(report.received()), wide(report.accepted), wide(report.kernel_drops()),
             wide(report.left_behind));
    std::string reasons;
    for (std::size_t i = 0; i < kFaults; ++i) {
        reasons +=
            text(R"(%s"%s":%llu)", i == 0 ? "" : ",", fault_key(fault_at(i)), wide(report.rejected[i]));
    }
    json += R"("rejected":{)" + reasons + "}";
    json += R"(,"ports":)" + json_list(report.ports, [](const Report::Port& port) {
                return text(R"({"port":%u,"received":%llu,"kernel_drops":%llu,"receive_buffer":%d})",
                            unsigned{port.port}, wide(port.received), wide(port.kernel_drops),
                            port.receive_buffer);
            });
    json += R"(,"destinations":)" + json_list(report.destinations, json_peer);
    if (report.others) {
        json += R"(,"others":{)" + json_counters(*report.others) + "}";
    }
    if (report.tee) {
        json += R"(,"tee":)" + json_peer(*report.tee);
    }
    if (report.outlet) {
        const OutletCounters& c = *report.outlet;
        json += text(
            R"(,"outlet":{"streams":%llu,"untracked":%llu,"resent":%llu,"syncs":%llu,"waiting":%llu,"superseded":%llu,"dropped":%llu})",
            wide(c.streams), wide(c.untracked), wide(c.resent), wide(c.syncs), wide(c.waiting),
            wide(c.superseded), wide(c.dropped));
    }
    return json + "}\n";
}

}  // namespace forwarder
