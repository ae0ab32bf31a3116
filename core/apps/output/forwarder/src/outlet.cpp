#include "outlet.h"

#include <algorithm>
#include <utility>

#include "artnet/recording_writer.h"
#include "trim.h"
#include "watch_statistics.h"

namespace forwarder {

namespace {

void add(std::atomic<std::uint64_t>& counter, std::uint64_t number) {
    counter.fetch_add(number, std::memory_order_relaxed);
}

}  // namespace

Outlet::Outlet(const OutletSettings& settings, PacketSink& sink)
    : sink_(sink),
      trim_(settings.trim),
      follows_(settings.sequence || settings.sync || settings.keep_alive || settings.pace) {
    if (settings.sequence) {
        sequences_.emplace();
    }
    if (settings.sync) {
        syncs_.emplace();
        append_artsync(sync_packet_);
    }
    if (settings.keep_alive) {
        keep_alive_.emplace(*settings.keep_alive);
    }
    if (settings.pace) {
        pacer_.emplace(*settings.pace);
    }
    out_.reserve(kMostAtOnce);
    if (settings.sequence || settings.pace) {
        copies_.resize(kMostAtOnce);
    }
}

void Outlet::arrive(std::size_t destination, std::span<const unsigned char> packet, Time received, Time now) {
    std::size_t stream = kNoStream;
    if (DmxFrame frame; follows_ && read_dmx(packet, frame)) {
        stream = streams_.find(destination, frame.universe);
        if (stream == kNoStream) {
            add(untracked_, 1);
        } else if (keep_alive_) {
            keep_alive_->store(stream, packet, now);
        }
        group(destination, stream, received, now);
    }
    enqueue(destination, stream, packet, now);
}

std::span<const unsigned char> Outlet::pass(std::span<const unsigned char> packet) noexcept {
    add(untracked_, follows_ ? 1 : 0);
    return trim_ ? packet.first(trimmed_size(packet)) : packet;
}

void Outlet::group(std::size_t destination, std::size_t stream, Time received, Time now) {
    if (syncs_ && syncs_->packet(destination, stream, received)) {
        sync(destination, now);
    }
}

void Outlet::sync(std::size_t destination, Time now) {
    if (pacer_) {
        pacer_->add_sync(destination, now);
        return;
    }
    make_room(destination, now);
    emit_sync();
}

void Outlet::emit_sync() {
    out_.push_back({sync_packet_.data(), sync_packet_.size()});
    add(sync_count_, 1);
}

void Outlet::enqueue(std::size_t destination, std::size_t stream, std::span<const unsigned char> packet,
                     Time now) {
    if (!pacer_) {
        make_room(destination, now);
        emit(stream, packet);
        return;
    }
    switch (pacer_->add(destination, stream, packet, now)) {
        case Pacer::Loss::None:
            break;
        case Pacer::Loss::Superseded:
            lose(destination, 1, superseded_);
            break;
        case Pacer::Loss::Dropped:
            lose(destination, 1, dropped_);
            break;
    }
}

void Outlet::emit(std::size_t stream, std::span<const unsigned char> packet) {
    packet = trim_ ? packet.first(trimmed_size(packet)) : packet;
    if (sequences_ && stream != kNoStream) {
        const std::span<unsigned char> own = copy(packet);
        own[kSequenceOffset] = sequences_->next(stream);
        packet = own;
    }
    out_.push_back({const_cast<unsigned char*>(packet.data()), packet.size()});
}

std::span<unsigned char> Outlet::copy(std::span<const unsigned char> packet) {
    auto& bytes = copies_[copies_used_++];
    std::ranges::copy(packet, bytes.begin());
    return {bytes.data(), packet.size()};
}

void Outlet::make_room(std::size_t destination, Time now) {
    if (out_destination_ != destination || out_.size() == kMostAtOnce) {
        flush(now);
        out_destination_ = destination;
    }
}

void Outlet::flush(Time now) {
    if (!out_.empty()) {
        sink_.deliver(out_destination_, out_, now);
        out_.clear();
        copies_used_ = 0;
    }
}

void Outlet::serve(Time now, Time seen) {
    if (keep_alive_) {
        resend(now);
    }
    if (syncs_) {
        while (const auto destination = syncs_->take_ended(seen)) {
            sync(*destination, now);
        }
    }
    if (pacer_) {
        release(now);
    }
    flush(now);
    publish();
}

void Outlet::resend(Time now) {
    // Not all at once where there are many: what arrives meanwhile is not to wait for what is only repeated.
    for (std::size_t count = 0; count < kMostAtOnce; ++count) {
        const auto stream = keep_alive_->take_due(now);
        if (!stream) {
            return;
        }
        const std::size_t destination = streams_.destination_of(*stream);
        if (pacer_ && pacer_->holds(destination, *stream)) {
            // Its newest frame has not had its turn yet, so there is nothing to repeat.
            continue;
        }
        group(destination, *stream, now, now);
        enqueue(destination, *stream, keep_alive_->frame(*stream), now);
        add(resent_, 1);
    }
}

void Outlet::release(Time now) {
    while (const auto departure = pacer_->take(now)) {
        make_room(departure->destination, now);
        if (departure->sync) {
            emit_sync();
            continue;
        }
        // The pacer gives its memory to the next one, so that a packet that is sent as it is needs a copy.
        emit(departure->stream,
             sequences_ && departure->stream != kNoStream ? departure->packet : copy(departure->packet));
    }
}

Outlet::Time Outlet::next_due() const noexcept {
    Time due = Time::max();
    if (keep_alive_) {
        due = std::min(due, keep_alive_->next_due());
    }
    if (syncs_) {
        due = std::min(due, syncs_->next_end());
    }
    if (pacer_) {
        due = std::min(due, pacer_->next_due());
    }
    return due;
}

void Outlet::finish(Time now) {
    keep_alive_.reset();
    if (syncs_) {
        while (const auto destination = syncs_->take_ended(Time::max())) {
            sync(*destination, now);
        }
    }
    flush(now);
}

void Outlet::give_up() {
    if (pacer_) {
        while (const auto forgotten = pacer_->forget_one()) {
            lose(forgotten->destination, forgotten->frames, dropped_);
        }
    }
    publish();
}

void Outlet::lose(std::size_t destination, std::size_t packets, Counter& counter) {
    add(counter, packets);
    sink_.lose(destination, packets);
}

void Outlet::publish() noexcept {
    stream_count_.store(streams_.size(), std::memory_order_relaxed);
    waiting_.store(pacer_ ? pacer_->size() : 0, std::memory_order_relaxed);
}

OutletCounters Outlet::counters() const noexcept {
    const auto read = [](const Counter& counter) { return counter.load(std::memory_order_relaxed); };
    return {read(stream_count_), read(untracked_),  read(resent_), read(sync_count_),
            read(waiting_),      read(superseded_), read(dropped_)};
}

}  // namespace forwarder
