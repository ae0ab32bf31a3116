// The parser allocates when it is built and never per packet.
#include <cstdlib>
#include <new>

#include <gtest/gtest.h>

#include "parsed.h"

namespace {
// The test has one thread.
std::size_t allocations = 0;
}  // namespace

void* operator new(std::size_t size) {
    ++allocations;
    if (void* const memory = std::malloc(size == 0 ? 1 : size)) {
        return memory;
    }
    throw std::bad_alloc();
}
void operator delete(void* memory) noexcept {
    std::free(memory);
}
void operator delete(void* memory, std::size_t /*size*/) noexcept {
    std::free(memory);
}

namespace {

/// Allocations of one parse of `packets` full packets; the channels seen go into `channels`.
std::size_t allocations_of(int packets, std::size_t& channels) {
    Recording recording;
    for (int packet = 0; packet < packets; ++packet) {
        recording.dmx(packet, std::vector<std::uint8_t>(512, 1)).frame_delay_ms(1).header(0x1234);
    }
    std::istringstream in(recording.text());
    const std::size_t before = allocations;
    ArtNetParser parser;
    parser.on_artdmx = [&channels](ArtDmx& dmx) { channels += dmx.Length; };
    parser.on_artoemvfps = [](ArtOemVfps&) {};
    parser.on_unknown = [](ArtHeader&) {};
    std::error_code ec;
    parser.parse(in, ec);
    return allocations - before;
}

}  // namespace

TEST(ArtNetParserAllocationTest, AThousandPacketsCostNoMoreAllocationsThanOne) {
    std::size_t channels = 0;
    const std::size_t one = allocations_of(1, channels);
    EXPECT_GE(one, 1U) << "the counter counts";
    EXPECT_EQ(allocations_of(1000, channels), one);
    EXPECT_GE(channels, 1001U * 512U);
}
