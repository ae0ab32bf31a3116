#include "survey.h"

#include <algorithm>
#include <system_error>
#include <utility>

#include "posix/ipv4.h"
#include "posix/port_sharing.h"

namespace netsurvey {

namespace {

/// How late a node's end may be noticed, at most.
constexpr std::chrono::milliseconds kExpiryCheck{500};
/// Replies that are taken in before the event loop gets its turn: bus calls are answered, whatever the
/// network sends.
constexpr int kRepliesAtOnce = 4096;

}  // namespace

Survey::Survey(const SurveySettings& settings, std::function<void(const Changes&)> changed,
               std::function<void(const std::string&)> log)
    : settings_(settings),
      changed_(std::move(changed)),
      log_(std::move(log)),
      table_(settings.expiry),
      socket_(settings.port),
      readable_(socket_.descriptor(), QSocketNotifier::Read) {
    QObject::connect(&readable_, &QSocketNotifier::activated, &readable_, [this] { take_in(); });
    QObject::connect(&poll_timer_, &QTimer::timeout, &poll_timer_, [this] { poll(); });
    QObject::connect(&expiry_timer_, &QTimer::timeout, &expiry_timer_, [this] { expire(); });
    // Qt's usual timers may be late by a twentieth, which is out of the range that the protocol asks for.
    poll_timer_.setTimerType(Qt::PreciseTimer);
    for (const std::string& line : posix::robbed_of_unicast(socket_.descriptor())) {
        log_(line + "; it should bind the address of its interface, or watch with --packet-socket");
    }
}

void Survey::start() {
    poll_timer_.start(settings_.interval);
    expiry_timer_.start(std::min(settings_.interval, kExpiryCheck));
    poll();
}

std::vector<PollTarget> Survey::targets() const {
    if (settings_.targets.empty()) {
        return broadcast_targets(settings_.interfaces);
    }
    std::vector<PollTarget> targets;
    for (const std::uint32_t address : settings_.targets) {
        targets.push_back({"target", address});
    }
    return targets;
}

void Survey::poll() {
    table_.count_poll();
    const std::vector<PollTarget> all = targets();
    for (const PollTarget& target : all) {
        note(target, socket_.send_poll(target.address));
    }
    if (all.empty() != without_target_) {
        without_target_ = all.empty();
        log_(without_target_ ? "no interface that is up and can broadcast: nothing to poll"
                             : "an interface is there again");
    }
}

void Survey::note(const PollTarget& target, int error) {
    int& last = errors_[target.address];
    if (error != last) {
        log_("poll to " + posix::ipv4_text(target.address) + " (" + target.name +
             "): " + (error == 0 ? "goes out again" : std::generic_category().message(error)));
        last = error;
    }
}

void Survey::take_in() {
    Changes changes;
    const auto now = NodeTable::Clock::now();
    for (int i = 0; i < kRepliesAtOnce; ++i) {
        const std::optional<SurveySocket::Received> datagram = socket_.receive();
        if (!datagram) {
            break;
        }
        if (const std::optional<ArtPollReply> reply = artnet::decode_poll_reply(datagram->bytes)) {
            const Changes more = table_.hear(*reply, datagram->sender, now);
            changes.insert(changes.end(), more.begin(), more.end());
        }
    }
    if (table_.refused() != 0 && !std::exchange(told_of_refused_, true)) {
        log_("more than " + std::to_string(NodeTable::kMaxEntries) + " replies: the others are left out");
    }
    report(changes);
}

void Survey::expire() {
    // What waits in the socket is older than now: a process that could not run for a while is no reason to
    // call nodes silent.
    take_in();
    report(table_.expire(NodeTable::Clock::now()));
}

void Survey::report(const Changes& changes) {
    if (!changes.empty()) {
        changed_(changes);
    }
}

}  // namespace netsurvey
