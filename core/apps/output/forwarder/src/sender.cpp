#include "sender.h"

#include <algorithm>
#include <system_error>
#include <tuple>

#include <pthread.h>
#include <sys/prctl.h>

#include "text.h"

namespace forwarder {

namespace {

using artnet::ForwardingFault;

/// Datagrams handled at a time, and packets sent before what has arrived is taken in: enough for few system
/// calls, few enough that meanwhile no more arrive than the smallest usual receive buffer holds.
constexpr std::size_t kBatch = 64;
static_assert(kBatch <= Destination::kMostPackets);

struct FaultNames {
    const char* text;
    const char* key;
};
constexpr std::array<FaultNames, kFaults + 1> kFaultNames{{{"none", "none"},
                                                           {"size", "size"},
                                                           {"unterminated address", "unterminated_address"},
                                                           {"invalid address", "invalid_address"},
                                                           {"port", "port"},
                                                           {"Art-Net identifier", "identifier"}}};

std::string suppressed_text(std::uint64_t count) {
    return count == 0 ? "" : text(" (%llu similar lines suppressed)", static_cast<unsigned long long>(count));
}

}  // namespace

const char* fault_text(ForwardingFault fault) noexcept {
    return kFaultNames[static_cast<std::size_t>(fault)].text;
}

const char* fault_key(ForwardingFault fault) noexcept {
    return kFaultNames[static_cast<std::size_t>(fault)].key;
}

Sender::Sender(DatagramSource& source, const Options& options, LogQueue& log, WatchStatistics* watch)
    : Sender(source, options, log, watch, Times{}) {}

Sender::Sender(DatagramSource& source, const Options& options, LogQueue& log, WatchStatistics* watch,
               Times times)
    : source_(source),
      log_(log),
      watch_(watch),
      destinations_(options.rewrites, options.dscp),
      backlog_(times.patience),
      longest_end_(times.longest_end) {
    items_.reserve(kBatch);
    packets_.reserve(kBatch);
    copies_.reserve(kBatch);
    if (options.tee) {
        tee_.emplace().assign(*options.tee, *options.tee);
    }
    if (options.outlet.any()) {
        // Named here, since only this class knows that it is one.
        PacketSink& sink = *this;
        outlet_.emplace(options.outlet, sink);
    }
    thread_ = std::thread(&Sender::run, this);
    pthread_setname_np(thread_.native_handle(), "send");
}

Sender::~Sender() {
    // A no-op after a normal end; when the program's start fails, nobody else would end the wait.
    source_.stop();
    join();
}

void Sender::join() {
    if (thread_.joinable()) {
        thread_.join();
    }
}

std::uint64_t Sender::rejected(ForwardingFault fault) const noexcept {
    return fault == ForwardingFault::None
               ? 0
               : rejected_[static_cast<std::size_t>(fault) - 1].load(std::memory_order_relaxed);
}

void Sender::run() {
    if (outlet_) {
        // The kernel then adds to a sleep a thousandth of its length at most, and not the usual 50 us.
        prctl(PR_SET_TIMERSLACK, 1UL, 0UL, 0UL, 0UL);
    }
    while (!source_.finished()) {
        const auto wake = next_wake();
        const std::span<Slot> slots = source_.wait(kBatch, wake);
        sent_since_look_ = 0;
        process(slots);
        if (outlet_) {
            // The packets lie in the source until they are sent. What has come since the last of them, or
            // since the wait ended by its time, may still be in there.
            const auto now = Backoff::Clock::now();
            outlet_->serve(now, slots.empty() ? std::min(now, wake) : slots.back().received);
        }
        source_.release(slots.size());
        retry_backlog();
    }
    if (outlet_) {
        settle_outlet();
    }
    settle_backlog();
}

Backoff::Clock::time_point Sender::next_wake() const noexcept {
    return outlet_ ? std::min(backlog_.next_retry(), outlet_->next_due()) : backlog_.next_retry();
}

void Sender::process(std::span<Slot> slots) {
    sort_in(slots);
    const auto now = Backoff::Clock::now();
    packets_.clear();
    for (const Item& item : items_) {
        packets_.push_back(
            {slots[item.slot].data.data() + artnet::kForwardingHeaderSize, artnet::kForwardedPacketSize});
    }
    for (std::size_t begin = 0; begin < items_.size();) {
        const std::size_t index = items_[begin].destination;
        if (index == DestinationTable::kMostDestinations) {
            send_shared(items_[begin], packets_[begin], now);
            ++begin;
            continue;
        }
        std::size_t end = begin + 1;
        while (end < items_.size() && items_[end].destination == index) {
            ++end;
        }
        if (outlet_) {
            shape(std::span(items_).subspan(begin, end - begin), slots, now);
        } else {
            offer(destinations_[index], std::span(packets_).subspan(begin, end - begin), now);
        }
        begin = end;
    }
    if (tee_) {
        offer(*tee_, copies_, now);
    }
}

void Sender::sort_in(std::span<Slot> slots) {
    items_.clear();
    copies_.clear();
    for (std::size_t i = 0; i < slots.size(); ++i) {
        artnet::ForwardingTarget wanted;
        const ForwardingFault fault = artnet::parse_forwarding_datagram(slots[i].bytes(), wanted);
        const Endpoint target{wanted.address, wanted.port};
        if (fault != ForwardingFault::None) {
            reject(fault, slots[i].size);
            // The only fault behind a good header, so the only one of a known destination.
            if (fault == ForwardingFault::Identifier) {
                destinations_[destinations_.find(target)].count_rejected();
            }
            continue;
        }
        items_.push_back({destinations_.find(target), i, target});
        if (tee_) {
            copies_.push_back({slots[i].data.data(), artnet::kForwardingDatagramSize});
        }
        DmxFrame frame;
        if (watch_ != nullptr && read_dmx(slots[i].bytes().subspan(artnet::kForwardingHeaderSize), frame)) {
            watch_->record(target, frame, slots[i].received);
        }
    }
    accepted_.fetch_add(items_.size(), std::memory_order_relaxed);
    // By destination, and in the order of arrival within each.
    std::ranges::sort(items_, {}, [](const Item& item) { return std::tuple(item.destination, item.slot); });
}

void Sender::reject(ForwardingFault fault, std::size_t size) {
    rejected_[static_cast<std::size_t>(fault) - 1].fetch_add(1, std::memory_order_relaxed);
    if (const auto suppressed = reject_limiter_.admit(LogLimiter::Clock::now())) {
        const bool longer = size > artnet::kForwardingDatagramSize;
        log_.push(text("rejected a datagram of %s%zu bytes: %s", longer ? "more than " : "",
                       std::min(size, artnet::kForwardingDatagramSize), fault_text(fault)) +
                  suppressed_text(*suppressed));
    }
}

void Sender::shape(std::span<const Item> items, std::span<Slot> slots, Backoff::Clock::time_point now) {
    for (const Item& item : items) {
        const Slot& slot = slots[item.slot];
        outlet_->arrive(item.destination, slot.bytes().subspan(artnet::kForwardingHeaderSize), slot.received,
                        now);
    }
    outlet_->flush(now);
}

void Sender::deliver(std::size_t destination, std::span<const iovec> packets,
                     Backoff::Clock::time_point now) {
    offer(destinations_[destination], packets, now);
}

void Sender::lose(std::size_t destination, std::size_t packets) {
    destinations_[destination].count_unsent(packets);
}

void Sender::send_shared(const Item& item, iovec packet, Backoff::Clock::time_point now) {
    Destination& shared = destinations_[DestinationTable::kMostDestinations];
    shared.retarget(destinations_.rewritten_target(item.target));
    if (outlet_) {
        packet.iov_len =
            outlet_->pass({static_cast<const unsigned char*>(packet.iov_base), packet.iov_len}).size();
    }
    if (shared.send({&packet, 1}, now) == 0) {
        shared.give_up(1, now);
    }
    report_error(shared, now);
}

void Sender::offer(Destination& destination, std::span<const iovec> packets, Backoff::Clock::time_point now) {
    while (!packets.empty()) {
        if (backlog_.holds(destination)) {
            backlog_.add(destination, packets, now);
            return;
        }
        const std::span<const iovec> part = packets.first(std::min(packets.size(), kBatch));
        const std::size_t settled = destination.send(part, now);
        report_error(destination, now);
        packets = packets.subspan(settled);
        if (settled < part.size()) {
            backlog_.add(destination, packets, now);
            return;
        }
        look_after(part.size());
    }
}

void Sender::look_after(std::size_t packets) {
    sent_since_look_ += packets;
    // A batch that is sent as it came needs no look: the next wait is one.
    if (sent_since_look_ > kBatch) {
        source_.take_in();
        sent_since_look_ = 0;
    }
}

void Sender::retry_backlog() {
    // The clock is read only while something waits.
    if (backlog_.empty()) {
        return;
    }
    const auto now = Backoff::Clock::now();
    if (now < backlog_.next_retry()) {
        return;
    }
    for (Destination* destination : backlog_.retry(now)) {
        report_error(*destination, now);
    }
}

void Sender::settle_outlet() {
    auto now = Backoff::Clock::now();
    const auto deadline = now + longest_end_;
    outlet_->finish(now);
    while (!outlet_->idle() && now < deadline) {
        std::this_thread::sleep_until(std::min(next_wake(), deadline));
        retry_backlog();
        now = Backoff::Clock::now();
        outlet_->serve(now, now);
    }
    outlet_->give_up();
}

void Sender::settle_backlog() {
    const auto deadline = Backoff::Clock::now() + longest_end_;
    while (!backlog_.empty() && Backoff::Clock::now() < deadline) {
        std::this_thread::sleep_until(backlog_.next_retry());
        retry_backlog();
    }
    const auto now = Backoff::Clock::now();
    for (Destination* destination : backlog_.give_up(now)) {
        report_error(*destination, now);
    }
}

void Sender::report_error(Destination& destination, Backoff::Clock::time_point now) {
    const auto [error, about] = destination.take_error();
    if (error == 0) {
        return;
    }
    if (const auto suppressed = admit(destination.log_limiter(), error_limiter_, now)) {
        log_.push("sending to " + to_text(about) + ": " + std::generic_category().message(error) +
                  text("; %llu packets not sent so far",
                       static_cast<unsigned long long>(destination.counters().unsent)) +
                  suppressed_text(*suppressed));
    }
}

}  // namespace forwarder
