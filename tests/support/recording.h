#pragma once
// Builder of recordings for tests.

#include <chrono>
#include <cstdint>
#include <initializer_list>
#include <string>
#include <string_view>
#include <vector>

/// A recording, packet by packet: Recording{}.dmx(1, {255, 0}).frame_delay(40ms).bytes()
class Recording {
public:
    /// An ArtDmx packet with up to 512 channels.
    Recording& dmx(int universe, const std::vector<std::uint8_t>& levels);
    /// How long the frame before it stands, as an ArtOemVfpsNs packet.
    Recording& frame_delay(std::chrono::nanoseconds time);
    /// How long the frame before it stands, as an ArtOemVfps packet.
    Recording& frame_delay_ms(std::uint32_t milliseconds);

    /// The identifier and an opcode, nothing else.
    Recording& header(std::uint16_t opcode);
    Recording& raw(std::initializer_list<int> bytes);
    Recording& raw(std::string_view bytes);
    /// `value` until the recording has `size` bytes.
    Recording& fill_to(std::size_t size, std::uint8_t value = 0);
    /// Leaves only the first `size` bytes.
    Recording& cut_to(std::size_t size);

    [[nodiscard]] std::size_t size() const { return bytes_.size(); }
    [[nodiscard]] std::vector<std::uint8_t> bytes() const { return bytes_; }
    /// The same bytes, for string streams.
    [[nodiscard]] std::string text() const;
    /// False when the file cannot be written.
    [[nodiscard]] bool write(const std::string& path) const;

private:
    std::vector<std::uint8_t> bytes_;
};
