#include "blackout.h"

#include <chrono>
#include <cstdio>
#include <memory>
#include <optional>
#include <thread>
#include <utility>

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

/// Rounds of all frames, once everything is known.
constexpr int kRounds = 3;
/// Every frame also goes out as soon as it is known.
constexpr int kTimesSent = 1 + kRounds;
/// Longer than a frame at the highest rate of DMX, so that receivers see each.
constexpr std::chrono::milliseconds kRoundPause{30};

void note(const std::string& text) {
    std::fprintf(stderr, "cuewrightctl: %s\n", text.c_str());
}

/// What the bus has to say to a blackout.
struct BusSide {
    /// Empty when it cannot be reached.
    std::unique_ptr<Bus> bus;
    /// The worst that has happened there.
    int status = cli::kExitGood;
    /// Process of the service, if it is there.
    std::optional<int> player;
};

BusSide ask_bus(const BusSettings& settings, bool stop) {
    BusSide side;
    try {
        side.bus = std::make_unique<Bus>(settings);
        const Player player(*side.bus);
        side.player = player.process();
        if (stop) {
            player.stop_all();
        }
    } catch (const cli::Failure& failure) {
        note(failure.what());
        // Without a service nothing lights the outputs again. One that hangs may, and one on a bus that was
        // not reached plays on.
        const bool no_service =
            failure.status() == kExitNotThere && side.bus && side.bus->connection().isConnected();
        side.status = no_service ? cli::kExitGood : failure.status();
    }
    return side;
}

ondra::ArtnetNodeMap ask_nodes(const BusSide& side) {
    if (side.bus) {
        try {
            return present_nodes(*side.bus);
        } catch (const cli::Failure& failure) {
            note("no nodes: " + std::string(failure.what()));
        }
    }
    return {};
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

/// Finds out where output goes, and sends frames of zeros there as it becomes known.
class Darkening {
public:
    /// @param sender  null: only find out
    Darkening(const BusSide& side, std::string broadcast, ZeroSender* sender)
        : side_(side), broadcast_(std::move(broadcast)), sender_(sender) {}

    /// Reads the show; what cannot be read costs a line.
    void read(const std::string& directory) {
        const Show show = read_show(directory);
        note_all(show.problems);
        const ShowOutput named = named_output(show);
        // Before the nodes are asked for and recordings are read: both can take long.
        send_new(named);
        nodes_ = ask_nodes(side_);
        send_new(named);
        cli::Progress progress("reading recordings", recording_bytes(show));
        output_ = read_show_output(show, {[&](std::uint64_t bytes) { progress.update(bytes); },
                                          [&](int universe, const auto& destinations) {
                                              send_new({{{universe, destinations}}, {}});
                                          }});
        progress.clear();
        note_all(output_.problems);
    }

    [[nodiscard]] std::size_t universes() const { return output_.universes.size(); }
    [[nodiscard]] std::vector<ZeroFrame> frames() const {
        return plan_zero_frames(output_, nodes_, broadcast_);
    }

private:
    static void note_all(const std::vector<std::string>& problems) {
        for (const std::string& problem : problems) {
            note(problem);
        }
    }
    void send_new(const ShowOutput& output) const {
        if (sender_ != nullptr) {
            sender_->send_new(plan_zero_frames(output, nodes_, broadcast_));
        }
    }

    const BusSide& side_;
    std::string broadcast_;
    ZeroSender* sender_;
    ondra::ArtnetNodeMap nodes_;
    ShowOutput output_;
};

}  // namespace

int blackout(const BusSettings& settings, const BlackoutOptions& options) {
    const BusSide side = ask_bus(settings, !options.dry_run);
    const std::string directory = data_directory(options, side);
    ondra::device::initialize();
    ZeroSender sender(ondra::device::manufacturer_id());
    Darkening darkening(side, broadcast_address(options), options.dry_run ? nullptr : &sender);
    darkening.read(directory);
    const std::vector<ZeroFrame> frames = darkening.frames();
    if (frames.empty()) {
        throw cli::Failure(directory +
                           ": no universe with a destination to make dark; is this the data directory?");
    }
    for (int round = 0; round < kRounds && !options.dry_run; ++round) {
        std::this_thread::sleep_for(kRoundPause);
        sender.send(frames);
    }
    const ZeroDelivery delivery = sender.delivery();
    if (options.json) {
        print_json(frames, options, delivery);
    } else if (options.dry_run) {
        print_list(frames);
    } else if (delivery.failures.empty()) {
        std::printf("dark: %zu universes, %zu frames, each sent %d times\n", darkening.universes(),
                    frames.size(), kTimesSent);
    }
    for (const auto& [port, reason] : delivery.failures) {
        note("127.0.0.1:" + std::to_string(port) + ": " + reason);
    }
    if (!delivery.failures.empty()) {
        return cli::kExitProblem;
    }
    // What was only listed has not failed because a service may play on.
    return options.dry_run ? cli::kExitGood : side.status;
}

}  // namespace ctl
