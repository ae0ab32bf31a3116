#include "bus_calls.h"

#include <limits>
#include <sstream>

#include "controller.h"
#include "misfits.h"

namespace stress {

namespace {

using integration::ControlZone;
using model::ControlModel;
using model::Random;

constexpr int kLowest = std::numeric_limits<int>::min();
constexpr int kHighest = std::numeric_limits<int>::max();
constexpr std::size_t kShownZones = 5;
const QString kEngine = QStringLiteral("com.torvexserver.Cuewright");

BusCall engine_call(const char* method, const QList<QVariant>& arguments, const std::string& shown,
                    std::function<Answer(ControlModel&)> answer) {
    BusCall call;
    call.path = QStringLiteral("/");
    call.interface = kEngine;
    call.method = QLatin1String(method);
    call.arguments = arguments;
    call.text = std::string(method) + "(" + shown + ")";
    call.row = method;
    call.answer = std::move(answer);
    return call;
}

BusCall logger_call(const char* method, const QList<QVariant>& arguments, const std::string& shown,
                    std::function<Answer(ControlModel&)> answer) {
    BusCall call = engine_call(method, arguments, shown, std::move(answer));
    call.path = QStringLiteral("/logger");
    // Found by its name alone.
    call.interface.clear();
    return call;
}

Answer nothing() {
    return {"", "", {}};
}

Answer yes_or_no(bool yes) {
    return {"", "b", yes};
}

std::string shown(int a, int b) {
    return std::to_string(a) + ", " + std::to_string(b);
}

std::string shown(const model::Zone& zone) {
    return "(" + shown(zone.id, zone.priority) + ", " + std::to_string(zone.channels.size()) + " channels)";
}

QVariant sent(const model::Zone& zone) {
    ControlZone made{zone.id, zone.priority, {}};
    for (const int channel : zone.channels) {
        made.channels.append(channel);
    }
    return QVariant::fromValue(made);
}

int zone_id(Random& random) {
    return random.chance(85) ? random.between(0, 4) : random.of<int>({-1, kLowest, kHighest, 77, 1000});
}

model::Zone zone(Random& random) {
    model::Zone made;
    made.id = zone_id(random);
    made.priority = random.chance(60) ? random.between(0, 9) : random.of<int>({-1, -2, kLowest, kHighest});
    const auto range = [&made](int first, int last) {
        for (int channel = first; channel <= last; ++channel) {
            made.channels.push_back(channel);
        }
    };
    switch (random.between(0, 4)) {
        case 0:
            break;
        case 1:
            range(0, 511);
            break;
        case 2:
            // The whole universe and much that is none of it.
            range(-700, 1300);
            made.channels.push_back(kHighest);
            made.channels.push_back(kLowest);
            break;
        default:
            for (int count = random.between(1, 12); count > 0; --count) {
                made.channels.push_back(random.chance(90) ? random.between(0, 24)
                                                          : random.of<int>({-1, 512, kHighest, kLowest}));
            }
    }
    return made;
}

BusCall add_or_update(const char* method, const model::Zone& made,
                      bool (ControlModel::*apply)(const model::Zone&)) {
    return engine_call(method, {sent(made)}, shown(made),
                       [made, apply](ControlModel& model) { return yes_or_no((model.*apply)(made)); });
}

BusCall init_zones(Random& random) {
    std::vector<model::Zone> made;
    QList<ControlZone> zones;
    std::string text;
    for (int count = random.chance(5) ? 100 : random.between(0, 5); count > 0; --count) {
        made.push_back(zone(random));
        // One negative id refuses the whole list, so most lists have none.
        if (made.back().id < 0 && random.chance(80)) {
            made.back().id = count;
        }
        zones.append(sent(made.back()).value<ControlZone>());
        text += (text.empty() ? "" : ", ") + shown(made.back());
    }
    if (made.size() > kShownZones) {
        text = std::to_string(made.size()) + " zones";
    }
    return engine_call("init_zones", {QVariant::fromValue(zones)}, text,
                       [made](ControlModel& model) { return yes_or_no(model.init_zones(made)); });
}

}  // namespace

RandomCalls::RandomCalls(std::vector<int> ids) : ids_(std::move(ids)) {}

int RandomCalls::id(Random& random) const {
    return random.chance(90) ? random.of(ids_) : random.of<int>({kLowest, -1, 0, kHighest - 1, 65537, 999});
}

BusCall RandomCalls::stop() {
    BusCall call = engine_call("stop", {}, "", [](ControlModel& model) {
        model.stop();
        return nothing();
    });
    call.halts_all = true;
    return call;
}

BusCall RandomCalls::play(int id) {
    return engine_call("play_playlist", {id}, std::to_string(id),
                       [id](ControlModel& model) { return yes_or_no(model.play(id)); });
}

BusCall RandomCalls::pause(int id) {
    BusCall call = engine_call("pause_playlist", {id}, std::to_string(id),
                               [id](ControlModel& model) { return yes_or_no(model.pause(id)); });
    call.halts = id;
    return call;
}

BusCall RandomCalls::stop_playlist(int id) {
    BusCall call = engine_call("stop_playlist", {id}, std::to_string(id), [id](ControlModel& model) {
        model.stop_playlist(id);
        return nothing();
    });
    call.halts = id;
    return call;
}

BusCall RandomCalls::get_level() {
    return logger_call("getLevel", {}, "", [](ControlModel& model) {
        return Answer{"", "i", model.level()};
    });
}

BusCall RandomCalls::set_brightness(int id, int percent) {
    BusCall call =
        engine_call("set_brightness", {id, percent}, shown(id, percent), [id, percent](ControlModel& model) {
            model.set_brightness(id, percent);
            return nothing();
        });
    call.brightens = id;
    return call;
}

BusCall RandomCalls::add_zone(Random& random, int id) {
    model::Zone made = zone(random);
    made.id = id;
    return add_or_update("add_zone", made, &ControlModel::add_zone);
}

BusCall RandomCalls::update_zone(Random& random, int id) {
    model::Zone made = zone(random);
    made.id = id;
    return add_or_update("update_zone", made, &ControlModel::update_zone);
}

int RandomCalls::percent(Random& random) {
    return random.chance(70) ? random.between(0, 100)
                             : random.of<int>({kLowest, -1, 101, 250, kHighest, -100});
}

BusCall RandomCalls::any(Random& random, const ControlModel& model) const {
    const int drawn = random.between(1, 100);
    if (drawn <= (model.nothing_loaded() ? 45 : 12)) {
        return zones(random);
    }
    if (drawn <= 55) {
        return play(id(random));
    }
    if (drawn <= 65) {
        return pause(id(random));
    }
    if (drawn <= 73) {
        return stop_playlist(id(random));
    }
    if (drawn <= 75) {
        return stop();
    }
    if (drawn <= 85) {
        const bool brightness = random.chance(50);
        const int which = id(random);
        const int value = percent(random);
        if (brightness) {
            return set_brightness(which, value);
        }
        return engine_call("set_speed_boost", {which, value}, shown(which, value), [=](ControlModel& m) {
            m.set_speed_boost(which, value);
            return nothing();
        });
    }
    if (drawn <= 88) {
        const bool on = random.chance(60);
        return engine_call("set_unicast_enabled", {on}, on ? "true" : "false", [on](ControlModel& m) {
            m.set_unicast_enabled(on);
            return nothing();
        });
    }
    return drawn <= 93 ? logger(random) : wrong(random);
}

BusCall RandomCalls::zones(Random& random) const {
    switch (random.between(0, 9)) {
        case 0:
        case 1:
        case 2:
            return init_zones(random);
        case 3:
        case 4:
            return add_or_update("add_zone", zone(random), &ControlModel::add_zone);
        case 5:
        case 6:
            return add_or_update("update_zone", zone(random), &ControlModel::update_zone);
        case 7:
            return engine_call("remove_all_zones", {}, "",
                               [](ControlModel& model) { return yes_or_no(model.remove_all_zones()); });
        default: {
            const int which = zone_id(random);
            return engine_call("remove_zone", {which}, std::to_string(which),
                               [which](ControlModel& model) { return yes_or_no(model.remove_zone(which)); });
        }
    }
}

BusCall RandomCalls::logger(Random& random) const {
    if (random.chance(25)) {
        return get_level();
    }
    if (random.chance(35)) {
        const bool on = random.chance(50);
        return logger_call("useContext", {on}, on ? "true" : "false", [on](ControlModel& model) {
            model.use_context(on);
            return nothing();
        });
    }
    // Levels 5 and above write a line or more per packet, so they are rare and do not stay for long.
    const int level =
        random.chance(90) ? random.between(-2, 4) : random.of<int>({kLowest, -3, 5, 6, kHighest, 1000});
    BusCall call = logger_call("setLevel", {level}, std::to_string(level), [level](ControlModel& model) {
        model.set_level(level);
        return nothing();
    });
    call.sets_level = true;
    return call;
}

BusCall RandomCalls::wrong(Random& random) const {
    struct Method {
        const char* name;
        const char* signature;
        bool of_logger = false;
    };
    // No signature at all: setOutput() takes a type that the bus does not know.
    constexpr const char* kNothing = "-";
    const std::vector<Method> methods = {
        {"play_playlist", "i"},       {"pause_playlist", "i"},   {"stop_playlist", "i"},
        {"set_brightness", "ii"},     {"set_speed_boost", "ii"}, {"set_unicast_enabled", "b"},
        {"init_zones", "a(iiai)"},    {"add_zone", "(iiai)"},    {"update_zone", "(iiai)"},
        {"remove_zone", "i"},         {"remove_all_zones", ""},  {"stop", ""},
        {"setLevel", "i", true},      {"getLevel", "", true},    {"useContext", "b", true},
        {"setOutput", kNothing, true}};
    const Method& method = random.of(methods);
    const QList<QVariant> arguments = misfit(random, method.signature);
    BusCall call = method.of_logger ? logger_call(method.name, arguments, "", nullptr)
                                    : engine_call(method.name, arguments, "", nullptr);
    std::string error = "org.freedesktop.DBus.Error.UnknownMethod";
    switch (random.between(0, 9)) {
        case 0:
            call.method = QString::fromLatin1(random.of<const char*>(
                {"update_artnet_node_map", "load_playlist", "set_root_dir", "deleteLater", "Play_Playlist"}));
            break;
        case 1:
            if (!method.of_logger) {
                call.interface += QStringLiteral(".Other");
                error = "org.freedesktop.DBus.Error.UnknownInterface";
            }
            break;
        case 2:
            call.path = QStringLiteral("/other");
            error = "org.freedesktop.DBus.Error.UnknownObject";
            break;
        default:
            break;
    }
    std::ostringstream text;
    text << call.path.toStdString() << " " << call.interface.toStdString() << " " << call.method.toStdString()
         << " with";
    for (const QVariant& argument : call.arguments) {
        text << " " << argument.typeName();
    }
    call.text = text.str();
    call.row = "(wrong call)";
    call.answer = [error](ControlModel&) { return Answer{error, "", {}}; };
    return call;
}

BusCall RandomCalls::passive(Random& random, bool zones_refused, bool level_stays) const {
    const int drawn = random.between(1, 100);
    if (drawn <= 40 && zones_refused) {
        return zones(random);
    }
    if (drawn <= 60 && level_stays) {
        return get_level();
    }
    if (drawn <= 75) {
        BusCall call = engine_call("Introspect", {}, "", [](ControlModel&) { return Answer{"", "s", {}}; });
        call.interface = QStringLiteral("org.freedesktop.DBus.Introspectable");
        return call;
    }
    return wrong(random);
}

}  // namespace stress
