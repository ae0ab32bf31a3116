// What is shown, in its order.

#include <algorithm>
#include <array>
#include <cstdio>
#include <system_error>

#include "failure.h"
#include "performance.h"
#include "sample_show.h"

namespace demo {

namespace {

using namespace std::chrono_literals;

constexpr auto kServiceStart = 30s;

std::string node_record(const char* state, const char* ip, std::uint16_t port) {
    return std::string(state) + ":5:" + ip + ":" + std::to_string(port) + ";";
}

}  // namespace

void Performance::set_up() {
    headline("Set-up");
    write_sample_show(stage_.data_directory(), options_.port);
    screen_.say("   A show of four playlists with their recordings is written.");
    stage_.start_bus();
    control_ = std::make_unique<Control>(stage_.bus_address());
    screen_.say("   A private session bus runs.");
    const std::string unmeasured =
        stage_.start_monitor(stage_.data_directory() / "recordings" / playlist(kChase).recording);
    stage_.start_forwarder();
    screen_.say("   The forwarder listens on 127.0.0.1, port " + std::to_string(options_.port) +
                ".\n   What the show sends to 192.0.2.0/24 it sends to 127.0.0.2, where this demo\n"
                "   listens. Nothing leaves this machine.");
    screen_.say(unmeasured.empty() ? "   The monitor gets copies, to see how late they are."
                                   : "   No lateness is measured: " + unmeasured);
    stage_.start_service();
    if (!stage_.wait_for([this] { return control_->service_is_there(); }, kServiceStart)) {
        throw Failure("the service does not appear on the bus");
    }
    control_->listen();
    screen_.say("   The service is on the bus.");
}

void Performance::play_alone() {
    headline("Zones");
    screen_.say(
        "   Zone 1 has all channels, priority 1. Zone 2 has channels 8 to 23, priority 5.\n"
        "   Where zones overlap, the higher priority wins.");
    perform("zones", [this] { expect("zones are accepted", true, control_->init_zones(zones())); });

    headline("Play playlist 1: a looping chase on universes 0 to 3, 40 frames a second");
    step(
        "play", [this] { expect("play playlist 1", true, control_->play(kChase)); }, From::FirstPacket);
    // Only so far does it play as recorded.
    summary_.add_shown(stage_.stop_monitor());
    expect("zones can be changed while a playlist is loaded", false, control_->remove_all_zones());

    headline("Brightness of playlist 1: 75, 50, 25, 100 % (universe 0 is shown)");
    screen_.table(table_head(), true);
    for (const int percent : {75, 50, 25, 100}) {
        step("brightness-" + std::to_string(percent),
             [=, this] { control_->set_brightness(kChase, percent); });
    }

    headline("Speed boost 100 of playlist 1: twice as fast");
    step("speed-boost", [this] { control_->set_speed_boost(kChase, 100); });
}

void Performance::play_merged() {
    headline("Playlist 2 on top: a pulse on universes 0 and 1, 20 frames a second");
    screen_.say(
        "   Its zone 2 takes channels 8 to 23 from the chase. All other channels of its\n"
        "   recording are at full, which must not be seen. The chase has its own speed\n"
        "   again.");
    step("overlay", [this] {
        control_->set_speed_boost(kChase, 0);
        expect("play playlist 2", true, control_->play(kPulse));
    });
    screen_.say("\n   A moment of it:\n" + picture_);

    screen_.say("   Brightness 50 % for playlist 2 alone:");
    step("overlay-dim", [this] { control_->set_brightness(kPulse, 50); });

    screen_.say("   Playlist 2 is stopped; the chase has all its channels back:");
    step("overlay-stop", [this] { control_->stop_playlist(kPulse); });
}

void Performance::pause_and_resume() {
    headline("Pause playlist 1 for a second, and resume");
    step("pause", [this] { expect("pause playlist 1", true, control_->pause(kChase)); });
    screen_.say("   It goes on with the very next frame:");
    step(
        "resume", [this] { expect("resume playlist 1", true, control_->play(kChase)); }, From::FirstPacket);
}

void Performance::send_to_nodes() {
    headline("Unicast: playlist 4 names no outputs, so it goes to the known nodes");
    control_->stop();
    screen_.say("   All is stopped, playlist 4 is played on universe 5. No node is known yet.");
    step("no-nodes", [this] { expect("play playlist 4", true, control_->play(kHouse)); });
    book_.forget(kHouse);
    screen_.say("   Discovery reports two nodes, one of them twice. Each gets every frame once:");
    step(
        "discovery",
        [this] {
            control_->announce_nodes(node_record("1", kFirstNode, options_.port) +
                                     node_record("1", kSecondNode, options_.port) +
                                     node_record("1", kSecondNode, options_.port));
        },
        From::FirstPacket);
}

void Performance::send_to_broadcast() {
    const auto call = [this] { control_->set_unicast_enabled(false); };
    headline("Unicast off: playlist 4 goes to the broadcast address of eth0, port 6454");
    if (options_.port != kArtNetPort) {
        screen_.say("   Left out: this run does not use port 6454, where broadcasts are handed over.");
        summary_.add_skipped(expectation("unicast-off").label, "this run does not use port 6454");
    } else if (broadcast_.empty()) {
        screen_.say(
            "   This machine has no eth0 with a broadcast address, so the service has none to\n"
            "   name, and a forwarder would refuse the packets. The demo takes its place and\n"
            "   shows what it gets:");
        stage_.stop_forwarder();
        {
            PacketReceiver in_place("127.0.0.1", options_.port);
            step("unicast-off", call, From::Answer, in_place, [] { return true; });
            show_header();
        }
        stage_.start_forwarder();
    } else {
        screen_.say("   Here that is " + broadcast_ + "; the forwarder sends this to 127.0.0.2, too.");
        step("unicast-off", call);
    }
    screen_.say("   Unicast on again, and discovery reports that one of the nodes has gone:");
    book_.forget(kHouse);
    step("unicast-on", [this] {
        // Both copies of the node that was announced twice.
        control_->announce_nodes(node_record("0", kSecondNode, options_.port) +
                                 node_record("0", kSecondNode, options_.port));
        control_->set_unicast_enabled(true);
    });
    control_->stop_playlist(kHouse);
}

void Performance::show_header() {
    std::string hex;
    for (const std::uint8_t byte : latest_.header) {
        std::array<char, 8> text{};
        std::snprintf(text.data(), text.size(), " %02x", byte);
        hex += text.data();
    }
    screen_.say("   Their header: maker's code, address (empty), port (6454):\n  " + hex);
}

void Performance::play_to_the_end() {
    headline("Playlist 3, to its end: a bar on universe 4 that empties, 25 frames a second");
    const auto announced = [this] { return std::ranges::count(control_->stopped(), kFade); };
    step(
        "fade", [this] { expect("play playlist 3", true, control_->play(kFade)); }, From::FirstPacket,
        stage_.receiver(), [&announced] { return announced() > 0; });
    screen_.say(announced() > 0 ? "   The service says OnPlaylistStopped(3)."
                                : "   The service does not say that the playlist has stopped.");
    summary_.add_fact("OnPlaylistStopped(3) arrives", "1", std::to_string(announced()));
    summary_.add_fact(
        "OnPlaylistStopped of other playlists", "0",
        std::to_string(std::ranges::count_if(control_->stopped(), [](int id) { return id != kFade; })));
}

}  // namespace demo
