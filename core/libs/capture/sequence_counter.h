#pragma once
// What the sequence numbers of one sender's universe tell of losses.

#include <cstdint>

namespace capture {

/**
 * Follows sequence numbers, which run from 1 to 255 and on to 1 again. 0 says that the sender does not use
 * them.
 *
 * Of 255 numbers, the next 127 are ahead, the others behind: a loss of more than 126 packets in a row cannot
 * be told from packets out of order. Packets that come from behind in unbroken order, four of them, are a
 * sender that has begun anew.
 */
class SequenceCounter {
public:
    void add(std::uint8_t sequence) noexcept;

    /// Packets that never came, as far as the numbers show.
    [[nodiscard]] std::uint64_t lost() const noexcept { return lost_; }
    /// Packets that came after a later one.
    [[nodiscard]] std::uint64_t late() const noexcept { return late_; }
    /// Packets with the number of the one before.
    [[nodiscard]] std::uint64_t repeated() const noexcept { return repeated_; }
    /// How often the numbers began anew.
    [[nodiscard]] std::uint64_t restarts() const noexcept { return restarts_; }
    /// Lost, late and repeated packets together.
    [[nodiscard]] std::uint64_t errors() const noexcept { return lost_ + late_ + repeated_; }

private:
    /// The latest number; 0: none yet, or not used.
    std::uint8_t last_ = 0;
    /// The number that came from behind last, and how many have done so in order.
    std::uint8_t behind_ = 0;
    unsigned behind_run_ = 0;
    std::uint64_t lost_ = 0;
    std::uint64_t late_ = 0;
    std::uint64_t repeated_ = 0;
    std::uint64_t restarts_ = 0;
};

}  // namespace capture
