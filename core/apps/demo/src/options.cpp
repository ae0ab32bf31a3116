#include "options.h"

#include <CLI/CLI.hpp>

#include "cuewright/version.h"

namespace demo {

namespace {

constexpr int kExitUsage = 2;

constexpr const char* kDescription =
    "Shows the playback service at work: writes a small show, starts a private session bus, the forwarder\n"
    "and the service, plays the show over D-Bus as control software would, and holds what comes out against\n"
    "what must come out. Takes half a minute; nothing leaves this machine.";

std::string footer(const std::vector<std::string>& calls) {
    std::string text = "Calls, in their order:\n ";
    std::size_t width = 0;
    for (const std::string& call : calls) {
        if (width + call.size() > 90) {
            text += "\n ";
            width = 0;
        }
        text += " " + call;
        width += call.size() + 1;
    }
    return text +
           "\n\nExit status:\n"
           "  0  what came out agrees with what was expected\n"
           "  1  it does not, or something that the demo needs is missing\n"
           "  2  the command line is wrong\n"
           "  130, 143  interrupted; everything that was started has been stopped\n";
}

/// The programs as they lie in a build tree.
std::filesystem::path built_program(const char* below_apps) {
    std::error_code error;
    const std::filesystem::path self = std::filesystem::read_symlink("/proc/self/exe", error);
    return self.parent_path().parent_path().parent_path() / below_apps;
}

}  // namespace

ParsedOptions parse_options(int argc, const char* const* argv, const std::vector<std::string>& calls) {
    ParsedOptions parsed;
    Options& options = parsed.options;
    std::string service = built_program("output/repeater/src/cuewright");
    std::string forwarder = built_program("output/forwarder/src/cuewright-forwarder");
    std::string monitor = built_program("monitor/src/cuewright-monitor");
    std::string keep;
    CLI::App app{kDescription, "cuewright-demo"};
    app.footer(footer(calls));
    app.set_version_flag("--version", "cuewright-demo " CUEWRIGHT_VERSION);
    app.add_option("--port", options.port, "Port to use instead of 6454; leaves the broadcast step out")
        ->check(CLI::Range(1024, 65535))
        ->type_name("PORT");
    app.add_option("--keep", keep, "Write show and logs into DIR and leave them there")->type_name("DIR");
    app.add_option("--skip-call", options.skipped, "Leave one call out, to see the check fail; repeatable")
        ->allow_extra_args(false)
        ->check(CLI::IsMember(calls))
        ->type_name("NAME");
    app.add_option("--service", service, "The service's program (default: the one of this build)")
        ->type_name("PATH");
    app.add_option("--forwarder", forwarder, "The forwarder's program (default: the one of this build)")
        ->type_name("PATH");
    app.add_option(
           "--monitor", monitor,
           "The monitor's program (default: the one of this build); without it no lateness is measured")
        ->type_name("PATH");
    try {
        app.parse(argc, argv);
    } catch (const CLI::CallForVersion& call) {
        return {{}, 0, std::string(call.what()) + "\n"};
    } catch (const CLI::CallForHelp&) {
        return {{}, 0, app.help()};
    } catch (const CLI::ParseError& error) {
        return {
            {},
            kExitUsage,
            std::string("cuewright-demo: ") + error.what() + "\nTry \"cuewright-demo --help\" for more.\n"};
    }
    options.service = service;
    options.forwarder = forwarder;
    options.monitor = monitor;
    options.keep = keep;
    return parsed;
}

}  // namespace demo
