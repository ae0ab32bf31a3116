#include "blackout.h"

#include <cstdio>
#include <optional>

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include "cli/progress.h"
#include "names.h"
#include "nodes.h"
#include "ondra/device_info.h"
#include "player.h"
#include "show.h"
#include "zero_frames.h"

namespace ctl {

namespace {

constexpr int kRounds = 3;
/// Longer than a frame at the highest rate of DMX, so that receivers see each.
constexpr std::chrono::milliseconds kRoundPause{30};

void note(const std::string& text) {
    std::fprintf(stderr, "cuewrightctl: %s\n", text.c_str());
}

/// What the programs on the bus have to say to a blackout.
struct BusSide {
    /// The worst that has happened there.
    int status = cli::kExitGood;
    /// Process of the service, if it is there.
    std::optional<int> player;
    ondra::ArtnetNodeMap nodes;
};

BusSide ask_bus(const BusSettings& settings, bool stop) {
    BusSide side;
    try {
        Bus bus(settings);
        const Player player(bus);
        try {
            side.player = player.process();
            if (stop) {
                player.stop_all();
            }
        } catch (const cli::Failure& failure) {
            // Without a service nothing lights the outputs again. One that hangs may.
            note(failure.what());
            side.status = failure.status() == kExitNotThere ? cli::kExitGood : failure.status();
        }
        try {
            side.nodes = present_nodes(bus);
        } catch (const cli::Failure& failure) {
            note("no nodes: " + std::string(failure.what()));
        }
    } catch (const cli::Failure& failure) {
        note(failure.what());
    }
    return side;
}

std::string data_directory(const BlackoutOptions& options, const BusSide& side) {
    if (!options.data.empty()) {
        return options.data;
    }
    if (!side.player) {
        throw cli::Failure(
            "without the service nobody knows its data directory: name it with --data, and what it names is "
            "made dark all the same",
            kExitNotThere);
    }
    return data_directory_of(*side.player);
}

std::string broadcast_address(const BlackoutOptions& options) {
    if (!options.broadcast.empty()) {
        return options.broadcast;
    }
    std::string address = ondra::device::broadcast_ip();
    if (address.empty()) {
        note("no frames to the broadcast address: eth0 has none (--broadcast names one)");
    }
    return address;
}

QJsonObject json_of(const ZeroFrame& frame) {
    return {{QStringLiteral("universe"), frame.universe},
            {QStringLiteral("address"), QString::fromStdString(frame.to.address)},
            {QStringLiteral("port"), frame.to.port},
            {QStringLiteral("reason"), QString::fromStdString(frame.reason)}};
}

void print_json(const std::vector<ZeroFrame>& frames, const BlackoutOptions& options,
                const ZeroDelivery& delivery) {
    QJsonArray list;
    for (const ZeroFrame& frame : frames) {
        list.append(json_of(frame));
    }
    QJsonArray failures;
    for (const auto& [port, reason] : delivery.failures) {
        failures.append(QJsonObject{{QStringLiteral("port"), port},
                                    {QStringLiteral("reason"), QString::fromStdString(reason)}});
    }
    const QJsonObject report{{QStringLiteral("dry_run"), options.dry_run},
                             {QStringLiteral("frames"), list},
                             {QStringLiteral("datagrams_sent"), static_cast<double>(delivery.sent)},
                             {QStringLiteral("failures"), failures}};
    std::printf("%s\n", QJsonDocument(report).toJson(QJsonDocument::Compact).constData());
}

void print_list(const std::vector<ZeroFrame>& frames) {
    std::printf("UNIVERSE  DESTINATION            BECAUSE OF\n");
    for (const ZeroFrame& frame : frames) {
        std::printf("%8d  %-21s  %s\n", frame.universe,
                    (frame.to.address + ":" + std::to_string(frame.to.port)).c_str(), frame.reason.c_str());
    }
}

ShowOutput read_output(const std::string& directory) {
    const Show show = read_show(directory);
    cli::Progress progress("reading recordings", recording_bytes(show));
    ShowOutput output = read_show_output(show, [&](std::uint64_t bytes) { progress.update(bytes); });
    progress.clear();
    output.problems.insert(output.problems.begin(), show.problems.begin(), show.problems.end());
    return output;
}

}  // namespace

int blackout(const BusSettings& settings, const BlackoutOptions& options) {
    const BusSide side = ask_bus(settings, !options.dry_run);
    const std::string directory = data_directory(options, side);
    const ShowOutput output = read_output(directory);
    for (const std::string& problem : output.problems) {
        note(problem);
    }
    ondra::device::initialize();
    const std::vector<ZeroFrame> frames = plan_zero_frames(output, side.nodes, broadcast_address(options));
    if (frames.empty()) {
        throw cli::Failure(directory +
                           ": no universe with a destination to make dark; is this the data directory?");
    }
    ZeroDelivery delivery;
    if (!options.dry_run) {
        delivery = send_zero_frames(frames, ondra::device::manufacturer_id(), kRounds, kRoundPause);
    }
    if (options.json) {
        print_json(frames, options, delivery);
    } else if (options.dry_run) {
        print_list(frames);
    } else if (delivery.failures.empty()) {
        std::printf("dark: %zu universes, %zu frames, each sent %d times\n", output.universes.size(),
                    frames.size(), kRounds);
    }
    for (const auto& [port, reason] : delivery.failures) {
        note("127.0.0.1:" + std::to_string(port) + ": " + reason);
    }
    return delivery.failures.empty() ? side.status : cli::kExitProblem;
}

}  // namespace ctl
