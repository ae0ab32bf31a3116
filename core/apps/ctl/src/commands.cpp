#include "commands.h"

#include <cstdio>

#include "listener.h"
#include "names.h"
#include "player.h"
#include "posix/stop_signals.h"
#include "zones/zone_file.h"

namespace ctl {

namespace {

constexpr const char* kZonesAreFixed =
    "zones change only while no playlist is loaded, and paused and ended ones are (\"cuewrightctl stop\" "
    "unloads all)";

std::string seconds_text(int milliseconds) {
    return QString::number(milliseconds / 1000.0).toStdString() + " s";
}

[[noreturn]] void refused(const std::string& what, const std::string& causes) {
    throw cli::Failure("the service refused to " + what + ": " + causes);
}

void change_zone(const Player& player, ZoneChange change, const Zone& zone, const std::string& done) {
    const std::string id = std::to_string(zone.id);
    if (change == ZoneChange::Add && !player.add_zone(zone)) {
        refused("add zone " + id,
                "the id is taken (\"zones update\" replaces), or " + std::string(kZonesAreFixed) + done);
    }
    if (change == ZoneChange::Update && !player.update_zone(zone)) {
        refused("update zone " + id,
                "there is no such zone (\"zones add\" makes it), or " + std::string(kZonesAreFixed) + done);
    }
}

std::string done_so_far(std::size_t count) {
    return count == 0 ? "" : "; " + std::to_string(count) + " before it went in";
}

}  // namespace

void play(Bus& bus, int playlist) {
    if (!Player(bus).play(playlist)) {
        const std::string id = std::to_string(playlist);
        refused("play playlist " + id,
                "playlists/playlists.json has no \"Id\" " + id + ", playlists/" + id +
                    ".json is missing or not valid, or its first recording cannot be read or holds no "
                    "ArtDmx packet; the service's log says which, and so does \"cuewright-check\"");
    }
}

int play_and_wait(const BusSettings& settings, int playlist, int milliseconds) {
    // Before the bus, whose thread inherits what is blocked.
    posix::StopSignals stop;
    Bus bus(settings);
    const std::optional<QString> player = bus.owner_of(kPlayer);
    // Subscribed before the call: a short playlist ends before its call is answered.
    Listener listener(bus, stop);
    listener.on_playlist_stopped = [&](int ended) {
        if (ended == playlist) {
            listener.finish(cli::kExitGood);
        }
    };
    bool gone = false;
    listener.on_owner = [&](const QString& name, const QString& owner) {
        // One that has come after the question who is there is the one that is asked to play.
        if (name == kPlayer && player && owner != *player) {
            gone = true;
            listener.finish(kExitNotThere);
        }
    };
    play(bus, playlist);
    const int result = listener.wait(milliseconds);
    if (gone) {
        throw cli::Failure("the service has ended while playlist " + std::to_string(playlist) + " played",
                           kExitNotThere);
    }
    if (result == Listener::kTimeOver) {
        throw cli::Failure("playlist " + std::to_string(playlist) + " has not ended within " +
                               seconds_text(milliseconds) +
                               "; one that loops never does, one that is stopped or paused by somebody else "
                               "says nothing, and one that had ended before stays so until it is stopped",
                           kExitTimeout);
    }
    return result;
}

void pause(Bus& bus, int playlist) {
    if (!Player(bus).pause(playlist)) {
        refused("pause playlist " + std::to_string(playlist),
                "it is not loaded (\"cuewrightctl play\" loads it)");
    }
}

void change_zones(const BusSettings& settings, ZoneChange change, const std::string& path) {
    // Read as a whole first: a bad file changes nothing.
    const std::vector<Zone> zones = zones::read_zone_file(path);
    Bus bus(settings);
    const Player player(bus);
    if (change == ZoneChange::Init) {
        if (!player.init_zones(zones)) {
            refused("replace the zones", kZonesAreFixed);
        }
        return;
    }
    std::size_t done = 0;
    for (const Zone& zone : zones) {
        change_zone(player, change, zone, done_so_far(done));
        ++done;
    }
}

void remove_zones(Bus& bus, const std::vector<int>& zones) {
    const Player player(bus);
    std::size_t done = 0;
    for (const int zone : zones) {
        if (!player.remove_zone(zone)) {
            refused("remove zone " + std::to_string(zone),
                    "there is no such zone, or " + std::string(kZonesAreFixed) + done_so_far(done));
        }
        ++done;
    }
}

void clear_zones(Bus& bus) {
    if (!Player(bus).remove_all_zones()) {
        refused("remove all zones", kZonesAreFixed);
    }
}

void log_level(Bus& bus, std::optional<int> level, bool json) {
    const Player player(bus);
    if (level) {
        player.set_log_level(*level);
        return;
    }
    std::printf(json ? "{\"level\":%d}\n" : "%d\n", player.log_level());
}

}  // namespace ctl
