#include "stress_run.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <sstream>

#include "bus_show.h"

namespace stress {

namespace {

using model::Random;
using std::chrono::steady_clock;

constexpr int kClients = 4;
constexpr std::size_t kRemembered = 15;
constexpr std::chrono::seconds kEndDeadline{120};
constexpr char kNodeIp[] = "192.0.2.77";

std::vector<int> ids_of(const std::vector<model::ControlledPlaylist>& show) {
    std::vector<int> ids;
    for (const model::ControlledPlaylist& playlist : show) {
        ids.push_back(playlist.id);
    }
    return ids;
}

std::string shown(const Answer& answer) {
    if (!answer.error.empty()) {
        return "error";
    }
    return answer.signature != "b" ? "nothing, number or text" : answer.value.toBool() ? "true" : "false";
}

std::string node_record(int state, int port) {
    return std::to_string(state) + ":" + std::to_string(kNodeUniverse) + ":" + kNodeIp + ":" +
           std::to_string(port);
}

}  // namespace

StressRun::StressRun(Setting setting, integration::Controller& ear)
    : setting_(std::move(setting)),
      model_(setting_.show, setting_.root),
      random_calls_(ids_of(setting_.show)),
      ear_(ear),
      log_(setting_.syslog_file),
      audience_(setting_.sockets) {
    for (int i = 0; i < kClients; ++i) {
        clients_.push_back(std::make_unique<BusClient>(setting_.address));
    }
    model_.node = {kNodeIp, setting_.sockets.back()->port()};
    log_.skip();
}

std::string StressRun::step(std::uint64_t number) {
    Random random(setting_.seed * 0xD1B54A32D192ED03U + number);
    const int drawn = random.between(1, 1000);
    if (drawn <= 12) {
        return listen();
    }
    if (drawn <= 22) {
        return wait_for_end(random);
    }
    if (drawn <= 30) {
        return vanish(random);
    }
    if (drawn <= 40) {
        return announce(random);
    }
    if (drawn <= 55) {
        return race_an_end(random);
    }
    if (drawn <= 105) {
        return batch(random);
    }
    if (drawn <= 120) {
        return see_a_zone(random);
    }
    return single(random);
}

void StressRun::remember(const std::string& text) {
    last_.push_back(text);
    if (last_.size() > kRemembered) {
        last_.pop_front();
    }
}

std::string StressRun::story() const {
    std::ostringstream text;
    text << "after " << calls_ << " calls; the model: " << model_.state() << "; the last steps:";
    for (const std::string& entry : last_) {
        text << "\n  " << entry;
    }
    return text.str();
}

BusClient& StressRun::client(Random& random) {
    return *clients_[static_cast<std::size_t>(random.between(0, kClients - 1))];
}

bool StressRun::races(const BusCall& call) const {
    return (call.halts && model_.will_end(*call.halts)) ||
           (call.halts_all && !model_.all_that_will_end().empty());
}

BusCall StressRun::draw(Random& random, bool races_allowed) {
    for (;;) {
        BusCall call = random_calls_.any(random, model_);
        if (races_allowed || !races(call)) {
            return call;
        }
    }
}

std::string StressRun::judge(const BusCall& call, const QDBusMessage& reply, const Answer& expected) {
    ++calls_;
    Mix::Answers& answers = mix_.answers[call.row];
    const bool told = expected.error.empty() && expected.signature == "b";
    ++(!told ? answers.other : expected.value.toBool() ? answers.yes : answers.no);
    const std::string wrong = difference(reply, expected);
    return wrong.empty() ? "" : call.text + ": " + wrong;
}

std::string StressRun::late() {
    std::ostringstream text;
    text.precision(1);
    text << std::fixed << "; a sleeping thread was late by "
         << std::chrono::duration<double, std::milli>(pulse_.take()).count() << " ms";
    return text.str();
}

std::string StressRun::run(BusClient& client, const BusCall& call) {
    remember(call.text);
    const std::string before = model_.state();
    const Answer expected = call.answer(model_);
    static_cast<void>(pulse_.take());
    const auto begin = steady_clock::now();
    const QDBusMessage reply = client.call(call);
    const std::chrono::nanoseconds took = steady_clock::now() - begin;
    latencies_.add(call.row, took,
                   [&] { return call.text + " -> " + shown(expected) + " with " + before + late(); });
    std::string wrong = judge(call, reply, expected);
    if (wrong.empty()) {
        wrong = log_.difference(model_.take_lines());
    }
    if (wrong.empty()) {
        wrong = model_.unsettled() ? settle() : hear_ends();
    }
    return wrong;
}

std::string StressRun::single(Random& random) {
    BusClient& caller = client(random);
    const BusCall call = draw(random, true);
    const std::string wrong = run(caller, call);
    // Nothing but the frames tells what brightness the service took.
    return wrong.empty() && call.brightens && model_.is_loaded(*call.brightens) ? listen() : wrong;
}

std::string StressRun::hear_ends() {
    const std::vector<int>& ids = ear_.stopped();
    for (; heard_ < ids.size(); ++heard_) {
        remember("the end of " + std::to_string(ids[heard_]));
        ++mix_.ends;
        if (!model_.ended(ids[heard_])) {
            return "the end of playlist " + std::to_string(ids[heard_]) + " is signalled and cannot be";
        }
    }
    return {};
}

std::string StressRun::ask_level(const std::string& behind, const std::function<QDBusMessage()>& ask) {
    static_cast<void>(pulse_.take());
    const auto begin = steady_clock::now();
    const QDBusMessage reply = ask();
    latencies_.add("getLevel (behind all)", steady_clock::now() - begin,
                   [&] { return "behind " + behind + " with " + model_.state() + late(); });
    const std::string wrong = difference(reply, {"", "i", model_.level()});
    return wrong.empty() ? "" : "getLevel behind " + behind + ": " + wrong;
}

std::string StressRun::settle() {
    const bool raced = model_.unsettled();
    // Answered on the connection that hears the ends, behind every one of them that came before.
    const std::string wrong =
        ask_level("every end so far", [this] { return ear_.call_logger(QStringLiteral("getLevel")); });
    const std::string heard = hear_ends();
    mix_.races += raced ? 1 : 0;
    mix_.races_ended += raced && !model_.unsettled() ? 1 : 0;
    model_.settle();
    return wrong.empty() ? heard : wrong;
}

std::string StressRun::batch(Random& random) {
    struct Pending {
        BusCall call;
        QDBusPendingCall reply;
        Answer expected;
    };
    const auto first = static_cast<std::size_t>(random.between(0, kClients - 1));
    const bool loaded = !model_.nothing_loaded();
    std::vector<BusCall> calls;
    std::vector<Answer> answers;
    for (int count = random.between(2, 6); count > 0; --count) {
        // An end in the middle of a batch could belong to either of two plays.
        calls.push_back(draw(random, false));
        answers.push_back(calls.back().answer(model_));
    }
    const bool stays_loaded = loaded && std::none_of(calls.begin(), calls.end(), [](const BusCall& call) {
                                  return call.halts_all || call.halts.has_value();
                              });
    const bool level_stays =
        std::none_of(calls.begin(), calls.end(), [](const BusCall& call) { return call.sets_level; });

    std::vector<Pending> pending;
    const auto begin = steady_clock::now();
    for (std::size_t i = 0; i < calls.size(); ++i) {
        // The last one's answer says that all were taken.
        const bool unanswered = i + 1 < calls.size() && random.chance(20);
        remember("in flight: " + calls[i].text);
        if (unanswered) {
            clients_[first]->send(calls[i]);
            ++mix_.unanswered;
            ++calls_;
        } else {
            pending.push_back({calls[i], clients_[first]->begin(calls[i]), answers[i]});
        }
        if (random.chance(40)) {
            const std::size_t other =
                (first + static_cast<std::size_t>(random.between(1, kClients - 1))) % kClients;
            const BusCall passive = random_calls_.passive(random, stays_loaded, level_stays);
            const Answer expected = passive.answer(model_);
            remember("in flight: " + passive.text);
            pending.push_back({passive, clients_[other]->begin(passive), expected});
        }
    }
    std::string wrong;
    for (Pending& one : pending) {
        one.reply.waitForFinished();
        latencies_.add("(several in flight)", steady_clock::now() - begin,
                       [&one] { return one.call.text + ", counted from the first"; });
        const std::string difference = judge(one.call, one.reply.reply(), one.expected);
        wrong = wrong.empty() ? difference : wrong;
        ++mix_.pipelined;
    }
    if (wrong.empty()) {
        wrong = log_.difference(model_.take_lines());
    }
    return wrong.empty() ? hear_ends() : wrong;
}

std::string StressRun::vanish(Random& random) {
    const BusCall call = draw(random, true);
    remember("vanishing: " + call.text);
    static_cast<void>(call.answer(model_));
    ++mix_.vanished;
    ++calls_;
    {
        BusClient caller(setting_.address);
        const QDBusPendingCall unread = caller.begin(call);
        if (!caller.wait_for_bus()) {
            return "the bus does not answer";
        }
    }
    // Dispatched behind the call of the one that has gone. An end that this call met comes behind this answer
    // at the latest, and before the next.
    std::string wrong = ask_level("the vanished " + call.text,
                                  [this] { return ear_.call_logger(QStringLiteral("getLevel")); });
    if (wrong.empty()) {
        wrong = settle();
    }
    return wrong.empty() ? log_.difference(model_.take_lines()) : wrong;
}

std::string StressRun::announce(Random& random) {
    if (!setting_.with_nodes) {
        return {};
    }
    if (!discovery_) {
        discovery_ = std::make_unique<BusClient>(setting_.address);
        if (!discovery_->become_discovery()) {
            return "the discovery service's name is taken, or the service does not answer";
        }
    }
    const bool appears = random.chance(55);
    remember(appears ? "the node appears" : "the node goes");
    ++mix_.announcements;
    appears ? model_.node_appears() : model_.node_goes();
    if (!discovery_->announce(node_record(appears ? 1 : 0, model_.node.port))) {
        return "the announcement cannot be sent";
    }
    return ask_level("the announcement", [this] { return discovery_->call(RandomCalls::get_level()); });
}

std::string StressRun::wait_for_end(Random& random) {
    const std::vector<int> ending = model_.all_that_will_end();
    if (ending.empty()) {
        return {};
    }
    const int id = random.of(ending);
    remember("waiting for the end of " + std::to_string(id));
    std::string wrong;
    const bool ended = integration::wait_until(
        [&] {
            wrong = hear_ends();
            return !wrong.empty() || !model_.will_end(id);
        },
        kEndDeadline);
    return ended ? wrong : "playlist " + std::to_string(id) + " does not end";
}

std::string StressRun::race_an_end(Random& random) {
    std::string wrong = run(client(random), RandomCalls::play(kShortest));
    const auto moment = steady_clock::now() + kShortestTime * random.between(0, 150) / 100;
    const int kind = random.between(0, 9);
    const BusCall halt = kind == 0  ? RandomCalls::stop()
                         : kind < 5 ? RandomCalls::pause(kShortest)
                                    : RandomCalls::stop_playlist(kShortest);
    // The moment is what is random here; nothing depends on meeting it.
    while (wrong.empty() && steady_clock::now() < moment) {
        std::this_thread::yield();
    }
    return wrong.empty() ? run(client(random), halt) : wrong;
}

std::string StressRun::see_a_zone(Random& random) {
    std::vector<std::pair<int, int>> zoned;
    for (const model::ControlledPlaylist& playlist : setting_.show) {
        if (playlist.effect && !playlist.ends) {
            for (const auto& [universe, zone] : playlist.effect->zones) {
                if (zone >= 0) {
                    zoned.emplace_back(playlist.id, zone);
                }
            }
        }
    }
    const auto [id, zone] = random.of(zoned);
    std::vector<BusCall> calls = {RandomCalls::stop(), RandomCalls::add_zone(random, zone)};
    if (random.chance(50)) {
        calls.push_back(RandomCalls::update_zone(random, zone));
    } else if (random.chance(60)) {
        calls.push_back(random_calls_.zones(random));
    }
    calls.push_back(RandomCalls::play(id));
    if (random.chance(50)) {
        calls.push_back(RandomCalls::set_brightness(id, RandomCalls::percent(random)));
    }
    std::string wrong;
    for (auto call = calls.begin(); call != calls.end() && wrong.empty(); ++call) {
        wrong = run(client(random), *call);
    }
    return wrong.empty() ? listen() : wrong;
}

std::string StressRun::listen() {
    const std::string wrong = settle();
    if (!wrong.empty()) {
        return wrong;
    }
    remember("listening");
    const std::vector<model::Audible> audible = model_.audible();
    ++mix_.listened;
    mix_.audible += static_cast<long long>(audible.size());
    return audience_.listen(audible, model_.uncertain_universes());
}

std::string StressRun::rest() {
    audience_.skip();
    return run(*clients_.front(), RandomCalls::stop());
}

std::string StressRun::warm_up(int id) {
    std::string wrong = run(*clients_.front(), RandomCalls::play(id));
    wrong = wrong.empty() ? listen() : wrong;
    return wrong.empty() ? rest() : wrong;
}

}  // namespace stress
