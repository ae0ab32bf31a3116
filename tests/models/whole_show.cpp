#include "whole_show.h"

namespace {

/// The packet as a recording holds it, channels and all.
model::Frame frame_of(const Due& due) {
    const std::vector<int> header{'A', 'r', 't', '-', 'N', 'e', 't', 0, 0, 0x50, 0, 14, 0, 0};
    model::Frame frame{};
    std::size_t place = 0;
    const auto put = [&](int value) { frame.at(place++) = static_cast<std::uint8_t>(value); };
    std::for_each(header.begin(), header.end(), put);
    put(due.universe & 0xFF);
    put(due.universe >> 8);
    put(due.length >> 8);
    put(due.length & 0xFF);
    std::for_each(due.levels.begin(), due.levels.end(), put);
    return frame;
}

/// What a reader of a failure wants to see.
std::string summary(const std::string& to, long long time, const std::vector<unsigned char>& bytes) {
    std::string text = std::to_string(time) + " ns to " + to + ":";
    for (std::size_t place = 24 + 14; place < 24 + 18 + 8; ++place) {
        text += " " + std::to_string(int{bytes.at(place)});
    }
    return text;
}

}  // namespace

void WholeShowTest::add(ShowPlaylist playlist, ShowEffect effect, Recording recording) {
    const std::string path = std::to_string(playlist.id()) + ".rec";
    show.recording(path, recording.bytes());
    show.playlist(playlist.effect(effect));
}

void WholeShowTest::play(int id) {
    ASSERT_TRUE(engine().play_playlist(id));
    ASSERT_TRUE(eventually([=, this] { return RepeaterAccess::loader_done(engine(), id); }));
}

void WholeShowTest::play_until_sent(std::size_t count) {
    Conductor::go_on_until([count] { return FakeUdpSocket::attempts() >= count; });
    ASSERT_TRUE(Conductor::wait_for_halt());
}

void WholeShowTest::play_until(nanoseconds time) {
    const auto end = begin_ + time;
    Conductor::go_on_until([end] { return VirtualClock::now() >= end; });
    ASSERT_TRUE(Conductor::wait_for_halt());
}

void WholeShowTest::call_while_sending(std::size_t number, bool waits, const Call& call) {
    std::atomic<bool> sending{false};
    std::atomic<bool> may_go_on{false};
    std::size_t attempt = FakeUdpSocket::attempts();
    FakeUdpSocket::set_verdict([&](const SentDatagram&) {
        if (++attempt == number) {
            sending.store(true);
            while (!may_go_on.load()) {
                sched_yield();
            }
        }
        return 0;
    });
    Conductor::go_on_until([&sending] { return sending.load(); });
    EXPECT_TRUE(eventually([&sending] { return sending.load(); }));
    may_go_on.store(waits);
    call();
    may_go_on.store(true);
    EXPECT_TRUE(Conductor::wait_for_halt());
    FakeUdpSocket::set_verdict(nullptr);
}

void WholeShowTest::expect_sent(const std::vector<Due>& expected) const {
    const std::vector<SentDatagram> sent = FakeUdpSocket::sent();
    for (std::size_t index = 0; index < std::min(sent.size(), expected.size()); ++index) {
        const SentDatagram& was = sent[index];
        const Due& due = expected[index];
        const model::Sent wanted{due.time.count(), due.to, frame_of(due)};
        const std::vector<std::uint8_t> bytes = model::datagram(FakeDevice::kManufacturer, wanted);
        EXPECT_EQ(was.ip, "127.0.0.1");
        EXPECT_EQ(was.port, due.to.port);
        EXPECT_EQ(summary(was.destination(), (was.time - begin_).count(), was.bytes),
                  summary(due.to.ip + ":" + std::to_string(due.to.port), due.time.count(), bytes))
            << "datagram " << index;
        EXPECT_TRUE(was.bytes == bytes) << "datagram " << index << " differs in its 554 bytes";
    }
    EXPECT_EQ(sent.size(), expected.size());
}
