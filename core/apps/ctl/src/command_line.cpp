#include "command_line.h"

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>

#include "blackout.h"
#include "bus.h"
#include "cli/program.h"
#include "commands.h"
#include "doctor.h"
#include "listing.h"
#include "ondra/logger.h"
#include "player.h"
#include "show.h"
#include "watch.h"

namespace ctl {

namespace {

constexpr const char* kDescription =
    "Controls the playback service over the session bus, and looks after the device.";

constexpr const char* kFooter = R"(Examples:
  cuewrightctl play 3                    play playlist 3
  cuewrightctl play 3 --wait             the same; returns when it has ended
  cuewrightctl brightness 3 40           dim it to 40 %
  cuewrightctl zones init zones.json     replace all zones; nothing may be loaded
  cuewrightctl watch --json              signals as they come, one JSON object a line
  cuewrightctl blackout                  stop everything and make all outputs dark
  cuewrightctl doctor                    what is wrong, and what to do
  cuewrightctl COMMAND --help            more about one command

Exit status:
  0    done
  1    the service refused, something failed, or the doctor has found a problem
  2    the command line is wrong
  3    the bus or the service is not there
  4    no answer in time, or the playlist has not ended in time
  130  ended by Ctrl-C while waiting (143: by SIGTERM, 129: by SIGHUP)
)";

constexpr double kLongestWait = 2'000'000;
constexpr double kShortest = 0.001;
constexpr int kMilliseconds = 1000;

int to_milliseconds(double seconds) {
    return static_cast<int>(seconds * kMilliseconds);
}

/// What options and arguments are read into.
struct Values {
    std::string address;
    double call_timeout = 10;
    int playlist = 0;
    std::optional<int> optional_playlist;
    int percent = 0;
    bool wait = false;
    double timeout = 0;
    std::string on_off;
    std::string file = "-";
    std::vector<int> zones;
    std::optional<int> level;
    bool json = false;
    BlackoutOptions blackout;
    std::string data;
    std::vector<std::string> skip;

    [[nodiscard]] BusSettings bus() const {
        return {address, std::chrono::milliseconds(to_milliseconds(call_timeout))};
    }
};

/// The tree of commands; each notes what is to be done once the whole line is read.
class Commands {
public:
    explicit Commands(CLI::App& app) : app_(app) {
        app_.footer(kFooter);
        app_.require_subcommand(1);
        app_.add_option("--address", values_.address,
                        "Address of the bus (default: DBUS_SESSION_BUS_ADDRESS, then the user's own bus)");
        app_.add_option("--call-timeout", values_.call_timeout, "Time that an answer may take (10)")
            ->check(CLI::Range(kShortest, kLongestWait).description(""))
            ->type_name("SECONDS");
        add_playback();
        add_settings();
        add_zones();
        add_watch();
        add_care();
    }

    [[nodiscard]] int run() const { return action_(); }

private:
    CLI::App& add(CLI::App& parent, const std::string& name, const std::string& text,
                  std::function<int()> action) {
        CLI::App* const command = parent.add_subcommand(name, text);
        command->fallthrough();
        command->callback([this, action = std::move(action)] { action_ = action; });
        return *command;
    }
    CLI::App& add(const std::string& name, const std::string& text, std::function<int()> action) {
        return add(app_, name, text, std::move(action));
    }
    /// An action that needs the bus and cannot end in anything but success or an exception.
    std::function<int()> with_bus(std::function<void(Bus&)> action) {
        return [this, action = std::move(action)] {
            Bus bus(values_.bus());
            action(bus);
            return cli::kExitGood;
        };
    }
    static void playlist_argument(CLI::App& command, Values& values) {
        command.add_option("ID", values.playlist, "Playlist, by its \"Id\" in playlists.json")->required();
    }

    void add_playback();
    void add_settings();
    void add_zones();
    void add_watch();
    void add_care();

    CLI::App& app_;
    Values values_;
    std::function<int()> action_;
};

void Commands::add_playback() {
    CLI::App& play_command = add("play", "Play a playlist; load it first, or resume it, if need be", [this] {
        if (values_.wait) {
            return play_and_wait(values_.bus(), values_.playlist, to_milliseconds(values_.timeout));
        }
        Bus bus(values_.bus());
        play(bus, values_.playlist);
        return cli::kExitGood;
    });
    playlist_argument(play_command, values_);
    CLI::Option* const wait = play_command.add_flag(
        "--wait", values_.wait, "Return when the service says that the playlist has ended");
    play_command.add_option("--timeout", values_.timeout, "With --wait: give up after that time (status 4)")
        ->check(CLI::Range(kShortest, kLongestWait).description(""))
        ->type_name("SECONDS")
        ->needs(wait);
    play_command.footer(
        "A playlist that has ended stays loaded; to play it again, stop it first:\n"
        "  cuewrightctl stop 3; cuewrightctl play 3 --wait --timeout 600\n"
        "The service says nothing of a playlist that is stopped or paused before its end.");

    playlist_argument(add("pause", "Halt a playlist where it is; \"play\" resumes it",
                          with_bus([this](Bus& bus) { pause(bus, values_.playlist); })),
                      values_);

    CLI::App& stop =
        add("stop", "Stop and unload one playlist, or all; the last look stands", with_bus([this](Bus& bus) {
                if (values_.optional_playlist) {
                    Player(bus).stop(*values_.optional_playlist);
                } else {
                    Player(bus).stop_all();
                }
            }));
    stop.add_option("ID", values_.optional_playlist, "Playlist; without it all are stopped");
}

void Commands::add_settings() {
    constexpr int kFull = 100;
    CLI::App& brightness =
        add("brightness", "Set the brightness of a loaded playlist",
            with_bus([this](Bus& bus) { Player(bus).set_brightness(values_.playlist, values_.percent); }));
    playlist_argument(brightness, values_);
    brightness.add_option("PERCENT", values_.percent, "0 to 100")->required()->check(CLI::Range(0, kFull));
    brightness.footer("The service says nothing of a playlist that is not loaded; its log does.");

    CLI::App& speed =
        add("speed", "Set the speed boost of a loaded playlist",
            with_bus([this](Bus& bus) { Player(bus).set_speed_boost(values_.playlist, values_.percent); }));
    playlist_argument(speed, values_);
    speed.add_option("PERCENT", values_.percent, "0 to 100; 100 plays twice as fast")
        ->required()
        ->check(CLI::Range(0, kFull));
    speed.footer("The service says nothing of a playlist that is not loaded; its log does.");

    add("unicast", "Send output without destinations to the nodes (on) or to the broadcast address (off)",
        with_bus([this](Bus& bus) { Player(bus).set_unicast(values_.on_off == "on"); }))
        .add_option("STATE", values_.on_off, "on or off")
        ->required()
        ->check(CLI::IsMember({"on", "off"}));

    CLI::App& level = add("log-level", "Print or set how much the service logs",
                          with_bus([this](Bus& bus) { log_level(bus, values_.level, values_.json); }));
    level.add_option(
        "LEVEL", values_.level,
        "-3 nothing, -2 errors, -1 warnings, 1 start-up, 3 normal, 4 details, 5 loading, 6 sending");
    level.add_flag("--json", values_.json, "Print {\"level\":3}");
}

void Commands::add_zones() {
    CLI::App* const zones = app_.add_subcommand("zones", "Define zones, while no playlist is loaded");
    zones->require_subcommand(1);
    zones->fallthrough();
    zones->footer(
        "FILE holds an array; it is read from standard input where none is given:\n"
        "  [{\"id\": 1, \"priority\": 5, \"channels\": [0, 1, 2]}, {\"id\": 2, \"priority\": 9, "
        "\"channels\": [2]}]");
    const auto add_change = [&](const char* name, const char* text, ZoneChange change) {
        add(*zones, name, text, [this, change] {
            change_zones(values_.bus(), change, values_.file);
            return cli::kExitGood;
        }).add_option("FILE", values_.file, "JSON file; - is standard input (default)");
    };
    add_change("init", "Replace all zones by those of a file", ZoneChange::Init);
    add_change("add", "Add the zones of a file", ZoneChange::Add);
    add_change("update", "Replace zones that there are by those of a file", ZoneChange::Update);
    add(*zones, "remove", "Remove zones", with_bus([this](Bus& bus) { remove_zones(bus, values_.zones); }))
        .add_option("ID", values_.zones, "Zones, by their id")
        ->required();
    add(*zones, "clear", "Remove all zones", with_bus([](Bus& bus) { clear_zones(bus); }));
}

void Commands::add_watch() {
    CLI::App& command = add("watch", "Print what the service and the discovery announce, until Ctrl-C",
                            [this] { return watch(values_.bus(), values_.json); });
    command.add_flag("--json", values_.json, "One JSON object a line");
}

void Commands::add_care() {
    CLI::App& list = add("list", "List the playlists of the data directory", [this] {
        return list_playlists(find_data_directory(values_.bus(), values_.data), values_.json);
    });
    list.add_option("--data", values_.data, "Data directory (default: that of the running service)");
    list.add_flag("--json", values_.json, "One JSON array");

    CLI::App& dark =
        add("blackout", "Stop everything, then send zeros wherever output can have gone", [this] {
            values_.blackout.data = values_.data;
            values_.blackout.json = values_.json;
            return blackout(values_.bus(), values_.blackout);
        });
    dark.add_option("--data", values_.data, "Data directory (default: that of the running service)");
    dark.add_option("--broadcast", values_.blackout.broadcast, "Broadcast address (default: that of eth0)")
        ->check(CLI::ValidIPV4);
    dark.add_flag("--dry-run", values_.blackout.dry_run, "List the frames; stop and send nothing");
    dark.add_flag("--json", values_.json, "Print a JSON object");

    CLI::App& care = add("doctor", "Check all that playback needs, and say what to do", [this] {
        return doctor(values_.bus(),
                      {values_.data, {values_.skip.begin(), values_.skip.end()}, values_.json});
    });
    care.add_option("--data", values_.data, "Data directory (default: that of the running service)");
    care.add_option("--skip", values_.skip, "Leave a check out; repeatable")
        ->allow_extra_args(false)
        ->check(CLI::IsMember(check_names()));
    care.add_flag("--json", values_.json, "Print a JSON object");
}

}  // namespace

int run(int argc, const char* const* argv) {
    // The service's parsers report to its log; here their exceptions are enough.
    ondra::Logger::instance()->setOutput(ondra::Logger::None);
    CLI::App app{kDescription, "cuewrightctl"};
    const Commands commands(app);
    return cli::run(app, argc, argv, [&commands] { return commands.run(); });
}

}  // namespace ctl
