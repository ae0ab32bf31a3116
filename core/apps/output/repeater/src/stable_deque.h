#pragma once
// Append-only sequence for one appending and any number of reading threads; nothing in it ever moves.

#include <array>
#include <atomic>
#include <bit>
#include <cstddef>
#include <limits>
#include <memory>
#include <new>
#include <stdexcept>
#include <utility>

/**
 * Double-ended queue reduced to appending, reading by index and clearing as a whole.
 *
 * Elements lie in blocks that double in size, reached through a fixed directory, so that neither an element
 * nor the index moves: a reader that has seen size() > i may use at(i) without a lock while the appending
 * thread goes on (std::deque reallocates its map under the reader). A block is raw memory until an element
 * is put in place; its untouched rest costs address space only.
 */
template <typename T>
class StableDeque final {
public:
    StableDeque() = default;
    ~StableDeque() { clear(); }
    StableDeque(const StableDeque&) = delete;
    StableDeque& operator=(const StableDeque&) = delete;

    /// Appends. One thread at a time. Throws std::bad_alloc, and std::length_error past 2^31 - 1 elements.
    template <typename U>
    void push_back(U&& element) {
        const int index = count_.load(std::memory_order_relaxed);
        if (index == std::numeric_limits<int>::max()) {
            throw std::length_error("StableDeque::push_back");
        }
        const Place place = place_of(index);
        T*& block = blocks_[place.block];
        if (block == nullptr) {
            block = std::allocator<T>().allocate(kFirstBlock << place.block);
        }
        ::new (static_cast<void*>(block + place.offset)) T(std::forward<U>(element));
        count_.store(index + 1, std::memory_order_release);
    }

    /// Number of elements; everything below it is readable. Any thread (acquire).
    [[nodiscard]] int size() const noexcept { return count_.load(std::memory_order_acquire); }

    /// Element `index`, 0 to size() - 1, not checked. Any thread.
    [[nodiscard]] const T& at(int index) const noexcept {
        const Place place = place_of(index);
        return blocks_[place.block][place.offset];
    }

    /// Destroys all elements and frees the blocks. No other thread may use the store meanwhile.
    void clear() noexcept {
        const int count = count_.exchange(0, std::memory_order_acq_rel);
        for (int index = 0; index < count; ++index) {
            const Place place = place_of(index);
            std::destroy_at(blocks_[place.block] + place.offset);
        }
        for (std::size_t block = 0; block < kBlocks; ++block) {
            if (blocks_[block] != nullptr) {
                std::allocator<T>().deallocate(std::exchange(blocks_[block], nullptr), kFirstBlock << block);
            }
        }
    }

private:
    /// Elements in the first block; block k holds kFirstBlock << k.
    static constexpr std::size_t kFirstBlock = 256;
    /// 256 * (2^24 - 1) elements, more than an int can index.
    static constexpr std::size_t kBlocks = 24;

    struct Place {
        std::size_t block;
        std::size_t offset;
    };

    static Place place_of(int index) noexcept {
        // Counted from kFirstBlock on, the highest set bit names the block and the rest is the offset.
        const std::size_t position = static_cast<std::size_t>(index) + kFirstBlock;
        const auto high_bit = static_cast<std::size_t>(std::bit_width(position)) - 1;
        constexpr auto kFirstBit = static_cast<std::size_t>(std::bit_width(kFirstBlock)) - 1;
        return {high_bit - kFirstBit, position - (std::size_t{1} << high_bit)};
    }

    /// Written by the appending thread; a reader sees a block through the acquire of count_.
    std::array<T*, kBlocks> blocks_{};
    /// Published with release once the element is in place.
    std::atomic<int> count_{0};
};
