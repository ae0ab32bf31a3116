#include "checks.h"

namespace ctl {

namespace {

constexpr const char* kStartPlayer = "start cuewright in this session, or name its bus with --address";

Finding needs_bus(const char* check) {
    return {check, Verdict::Unknown, "not to be found out without the bus", ""};
}

}  // namespace

Finding check_bus(const BusFacts& facts) {
    if (!facts.bus_problem.empty()) {
        return {"bus", Verdict::Problem, facts.bus_problem,
                "run this in the session of the service, where DBUS_SESSION_BUS_ADDRESS is set; a session of "
                "its own is started by \"dbus-run-session -- PROGRAM\""};
    }
    return {"bus", Verdict::Good, "connected to " + facts.address, ""};
}

Finding check_service(const BusFacts& facts) {
    if (!facts.bus_problem.empty()) {
        return needs_bus("service");
    }
    if (!facts.player_problem.empty()) {
        return {"service", Verdict::Problem, facts.player_problem,
                "a recording with a very long frame holds its answers: wait; otherwise end the process and "
                "start cuewright again"};
    }
    if (!facts.player) {
        return {"service", Verdict::Problem, "com.torvexserver.Cuewright is not on the bus", kStartPlayer};
    }
    return {"service", Verdict::Good, "process " + std::to_string(*facts.player) + " answers", ""};
}

Finding check_discovery(const BusFacts& facts) {
    if (!facts.bus_problem.empty()) {
        return needs_bus("discovery");
    }
    if (!facts.nodes) {
        return {"discovery", Verdict::Problem,
                facts.discovery_problem.empty() ? "com.torvexserver.Netsurvey is not on the bus"
                                                : facts.discovery_problem,
                "start cuewright-netsurvey; where every output is named in the data directory or unicast is "
                "off, it is not needed: leave this check out with --skip discovery"};
    }
    if (*facts.nodes == 0) {
        return {
            "discovery", Verdict::Problem, "knows no node",
            "see that the nodes are on, in the same network, and that nothing filters UDP port 6454; name "
            "devices that answer no polls in its file of static nodes"};
    }
    return {"discovery", Verdict::Good,
            "knows " + std::to_string(*facts.nodes) + (*facts.nodes == 1 ? " node" : " nodes"), ""};
}

}  // namespace ctl
