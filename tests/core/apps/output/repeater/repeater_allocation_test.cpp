// Playing allocates nothing per packet. The real engine sends over loopback; what its threads ask the C
// library for is counted.
#include <atomic>
#include <cstdlib>
#include <new>

#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <QCoreApplication>

#include <gtest/gtest.h>

#include "ondra/logger.h"
#include "repeater.h"
#include "support/captured_log.h"
#include "support/eventually.h"
#include "support/recording.h"
#include "support/repeater_access.h"
#include "support/show_directory.h"

namespace {

/// Allocations of all threads but the test's own.
std::atomic<long> allocations{0};
thread_local bool test_thread = false;

void count() noexcept {
    if (!test_thread) {
        allocations.fetch_add(1, std::memory_order_relaxed);
    }
}

}  // namespace

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)

// The sanitizers have the C library's allocation to themselves, so that C++'s alone is counted.
void* operator new(std::size_t size) {
    count();
    if (void* const memory = std::malloc(size == 0 ? 1 : size)) {
        return memory;
    }
    throw std::bad_alloc();
}
void* operator new[](std::size_t size) {
    return operator new(size);
}
// Sorting asks in this way for its scratch memory, which it gives back like any other.
void* operator new(std::size_t size, const std::nothrow_t& /*tag*/) noexcept {
    count();
    return std::malloc(size == 0 ? 1 : size);
}
void operator delete(void* memory) noexcept {
    std::free(memory);
}
void operator delete(void* memory, std::size_t /*size*/) noexcept {
    std::free(memory);
}
void operator delete[](void* memory) noexcept {
    std::free(memory);
}
void operator delete[](void* memory, std::size_t /*size*/) noexcept {
    std::free(memory);
}

#else

// Libraries and operator new come through here, too: the program's own symbols go before the C library's.
extern "C" {
void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t number, std::size_t size);
void* __libc_realloc(void* memory, std::size_t size);
void* __libc_memalign(std::size_t alignment, std::size_t size);

void* malloc(std::size_t size) noexcept {
    count();
    return __libc_malloc(size);
}
void* calloc(std::size_t number, std::size_t size) noexcept {
    count();
    return __libc_calloc(number, size);
}
void* realloc(void* memory, std::size_t size) noexcept {
    count();
    return __libc_realloc(memory, size);
}
void* aligned_alloc(std::size_t alignment, std::size_t size) noexcept {
    count();
    return __libc_memalign(alignment, size);
}
}

#endif

namespace {

constexpr int kUniverses = 4;
/// Packets counted, after as many that may still allocate what is then reused.
constexpr long kPackets = 2000;

/// Counts what arrives at a port of its own on loopback.
class Sink {
public:
    Sink() {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t length = sizeof address;
        EXPECT_EQ(bind(descriptor_, reinterpret_cast<const sockaddr*>(&address), length), 0);
        EXPECT_EQ(getsockname(descriptor_, reinterpret_cast<sockaddr*>(&address), &length), 0);
        port_ = ntohs(address.sin_port);
    }
    ~Sink() { close(descriptor_); }
    Sink(const Sink&) = delete;
    Sink& operator=(const Sink&) = delete;

    [[nodiscard]] int port() const { return port_; }

    /// Waits until `count` more have arrived.
    [[nodiscard]] bool wait_for(long count) const {
        return eventually([&count, this] {
            char byte = 0;
            while (count > 0 && recv(descriptor_, &byte, sizeof byte, MSG_DONTWAIT) >= 0) {
                --count;
            }
            return count == 0;
        });
    }

private:
    int descriptor_ = socket(AF_INET, SOCK_DGRAM, 0);
    int port_ = 0;
};

class RepeaterAllocationTest : public testing::Test {
protected:
    RepeaterAllocationTest() {
        test_thread = true;
        Recording recording;
        for (int universe = 0; universe < kUniverses; ++universe) {
            recording.dmx(universe, std::vector<std::uint8_t>(512, 1));
        }
        show_.recording("frame.rec", recording.bytes());
    }

    /// A looping playlist of a thousand frames a second, through the effect's own destinations or zones.
    ShowPlaylist fast(int id) { return ShowPlaylist(id).effect(effect()); }
    static ShowEffect effect() { return ShowEffect("frame.rec").fps(1000).ppf(kUniverses); }

    /// Builds the engine on the show.
    Repeater& start() {
        engine_.emplace();
        engine_->set_root_dir(show_.root());
        engine_->set_playlist_desc_path(QString::fromLatin1(ShowDirectory::kDescriptionPath));
        return *engine_;
    }

    /// Allocations of the worker while kPackets arrive, once playing has gone on for as many.
    long allocations_while_playing() {
        EXPECT_TRUE(sink_.wait_for(kPackets));
        const long before = allocations.load();
        EXPECT_TRUE(sink_.wait_for(kPackets));
        return allocations.load() - before;
    }

    ShowDirectory show_;
    Sink sink_;

private:
    int argc_ = 1;
    char name_[7] = "engine";
    char* argv_[2] = {name_, nullptr};
    QCoreApplication application_{argc_, argv_};
    CapturedLog log_{ondra::kNormal};
    std::optional<Repeater> engine_;
};

TEST_F(RepeaterAllocationTest, StartingToPlayIsSeenByTheCounter) {
    const long before = allocations.load();
    show_.playlist(fast(1));
    ASSERT_TRUE(start().play_playlist(1));
    EXPECT_GT(allocations.load(), before) << "the loader thread allocates the packets";
}

TEST_F(RepeaterAllocationTest, APlayingShowWithDestinationsAllocatesNothing) {
    const std::string output = "*:192.0.2.1:" + std::to_string(sink_.port());
    show_.playlist(ShowPlaylist(1).effect(effect().output(output)));
    ASSERT_TRUE(start().play_playlist(1));
    EXPECT_EQ(allocations_while_playing(), 0);
}

TEST_F(RepeaterAllocationTest, TwoShowsMergingInZonesAtHalfBrightnessAllocateNothing) {
    const std::string output = "*:192.0.2.1:" + std::to_string(sink_.port());
    for (const int id : {1, 2}) {
        ShowEffect zoned = effect().output(output);
        for (int universe = 0; universe < kUniverses; ++universe) {
            zoned.zone(universe, id);
        }
        show_.playlist(ShowPlaylist(id).brightness(50).effect(zoned));
    }
    Repeater& engine = start();
    ASSERT_TRUE(engine.init_zones({Zone{1, 5, {0, 1, 2}}, Zone{2, 5, {2, 3, 511}}}));
    ASSERT_TRUE(engine.play_playlist(1));
    ASSERT_TRUE(engine.play_playlist(2));
    EXPECT_EQ(allocations_while_playing(), 0);
}

TEST_F(RepeaterAllocationTest, AShowForDiscoveredNodesAllocatesNothing) {
    show_.playlist(fast(1));
    Repeater& engine = start();
    QString nodes;
    for (int universe = 0; universe < kUniverses; ++universe) {
        for (const char* const ip : {"192.0.2.10", "192.0.2.111"}) {
            nodes += QStringLiteral("1:%1:%2:%3;").arg(universe).arg(QLatin1String(ip)).arg(sink_.port());
        }
    }
    RepeaterAccess::update_artnet_node_map(engine, nodes);
    ASSERT_TRUE(engine.play_playlist(1));
    EXPECT_EQ(allocations_while_playing(), 0);
}

}  // namespace
