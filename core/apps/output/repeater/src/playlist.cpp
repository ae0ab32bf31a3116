#include "playlist.h"

#include <arpa/inet.h>

#include <utility>

namespace {

/// What a present but empty destination list points at, so that it differs from no list at all.
const Playlist::Address& no_address() {
    static const Playlist::Address none;
    return none;
}

/// Asks the processor to have the bytes ready when they are copied. A long show lies in memory that no cache
/// holds: the next packet comes in while this one is being sent instead of being waited for.
void prefetch(const std::vector<unsigned char>& data) noexcept {
    constexpr std::size_t kCacheLine = 64;
    for (std::size_t offset = 0; offset < data.size(); offset += kCacheLine) {
        __builtin_prefetch(data.data() + offset);
    }
}

}  // namespace

Playlist::Address::Address(std::string ip_text, int udp_port)
    : ip(std::move(ip_text)), port(udp_port), ipv4(ntohl(inet_addr(ip.c_str()))) {}

void Playlist::add_packet(const Packet& packet) {
    add_packet(Packet(packet));
}

void Playlist::add_packet(Packet&& packet) {
    const ondra::WriterGuard guard{lock_};
    packets_.push_back(std::move(packet));
    packet_count_.fetch_add(1, std::memory_order_release);
}

bool Playlist::packet(int index, Packet& out) const {
    const ondra::ReaderGuard guard{lock_};
    if (index < 0 || index >= packets_.size()) {
        return false;
    }
    const Packet& stored = packets_.at(index);
    out.universe = stored.universe;
    out.data = stored.data;
    out.delay = stored.delay;
    if (index + 1 < packets_.size()) {
        prefetch(packets_.at(index + 1).data);
    }
    return true;
}

int Playlist::effect_of(int index) const {
    const auto end_of = [this](int effect) {
        return std::atomic_ref<int>(effect_end_[static_cast<std::size_t>(effect)])
            .load(std::memory_order_relaxed);
    };
    const int loaded = loaded_effects_.load(std::memory_order_acquire);
    int effect = 0;
    while (effect < loaded && (end_of(effect) == -1 || index > end_of(effect))) {
        ++effect;
    }
    return effect;
}

bool Playlist::packet_info(int index, const Address** addresses, int& count, int& zone) const {
    const auto number = static_cast<std::size_t>(effect_of(index));
    if (number >= effects_.size()) {
        return false;
    }
    const Effect& effect = effects_[number];
    *addresses = nullptr;
    count = 0;
    zone = kNoZone;
    const int universe = packets_.at(index).universe;
    if (const auto entry = effect.universes.find(universe); entry != effect.universes.end()) {
        zone = entry->second;
    }
    auto output = effect.outputs.find(universe);
    if (output == effect.outputs.end()) {
        output = effect.outputs.find(kAllUniverses);
    }
    if (output != effect.outputs.end()) {
        *addresses = output->second.empty() ? &no_address() : output->second.data();
        count = static_cast<int>(output->second.size());
    }
    return true;
}
