// Real sockets on the loopback interface.
#include "capture/source.h"

#include <cstdlib>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <fcntl.h>
#include <poll.h>
#include <sched.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "capture/limited_reader.h"
#include "support/artnet_sender.h"
#include "support/child_process.h"

using namespace std::chrono_literals;

namespace {

using capture::Datagram;
using capture::LimitedReader;
using capture::Source;
using capture::SourceError;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;
using tests::ArtNetSender;

struct Kept {
    std::chrono::nanoseconds time;
    capture::Endpoint sender;
    std::vector<unsigned char> bytes;
    std::uint32_t own_address;
};

std::uint16_t port_of(const Source& source) {
    const std::string place = source.place();
    return static_cast<std::uint16_t>(std::atoi(place.c_str() + place.find(':') + 1));
}

/// Receives until `count` datagrams have come, or a minute is over.
std::vector<Kept> receive(Source& source, std::size_t count) {
    std::vector<Kept> kept;
    while (kept.size() < count) {
        pollfd wait{source.descriptor(), POLLIN, 0};
        if (poll(&wait, 1, 60'000) != 1) {
            break;
        }
        source.receive([&](const Datagram& datagram) {
            kept.push_back({datagram.time,
                            datagram.sender,
                            {datagram.bytes.begin(), datagram.bytes.end()},
                            datagram.own_address});
        });
    }
    return kept;
}

std::string failure_of(const capture::UdpPlace& place) {
    try {
        static_cast<void>(capture::open_udp(place));
    } catch (const SourceError& error) {
        return error.what();
    }
    return "";
}

TEST(UdpSourceTest, DatagramsComeWithSenderBytesAndStampsInOrder) {
    const auto source = capture::open_udp({.port = 0});
    const ArtNetSender sender;
    const auto before = source->now();
    for (unsigned char i = 0; i < 200; ++i) {
        sender.send(port_of(*source), {i, 1, 2});
    }
    const std::vector<Kept> kept = receive(*source, 200);
    ASSERT_THAT(kept, SizeIs(200)) << "more than one batch";
    EXPECT_GE(kept.front().time, before);
    EXPECT_LE(kept.back().time, source->now());
    for (std::size_t i = 0; i < kept.size(); ++i) {
        EXPECT_THAT(kept[i].bytes, ElementsAre(i, 1, 2));
        EXPECT_EQ(kept[i].sender, (capture::Endpoint{ArtNetSender::kLoopback, sender.port()}));
        EXPECT_TRUE(i == 0 || kept[i - 1].time <= kept[i].time);
    }
    EXPECT_EQ(source->receive([](const Datagram&) {}), 0U) << "and does not wait for more";
    EXPECT_EQ(source->kernel_drops(), 0U);
}

TEST(UdpSourceTest, ABroadcastReachesEveryProgramThatSharesThePortWithOneStamp) {
    const ArtNetSender other(0, 0);
    const auto source = capture::open_udp({.port = other.port()});
    ArtNetSender().send(other.port(), {1, 2, 3}, ArtNetSender::kLoopbackBroadcast);
    const std::vector<Kept> kept = receive(*source, 1);
    ASSERT_THAT(kept, SizeIs(1));
    EXPECT_EQ(kept.front().time, other.receive_stamp());
}

TEST(UdpSourceTest, ADatagramTellsAtWhichAddressOfThisMachineItCameIn) {
    const auto source = capture::open_udp({.port = 0});
    const ArtNetSender sender;
    sender.send(port_of(*source), {1}, 0x7F000005);
    sender.send(port_of(*source), {2}, ArtNetSender::kLoopbackBroadcast);
    const std::vector<Kept> kept = receive(*source, 2);
    ASSERT_THAT(kept, SizeIs(2));
    EXPECT_EQ(kept[0].own_address, 0x7F000005U);
    EXPECT_EQ(kept[1].own_address, ArtNetSender::kLoopback) << "of a broadcast the interface's";
}

TEST(UdpSourceTest, WhatTheKernelDropsIsCounted) {
    const auto source = capture::open_udp({.port = 0});
    const ArtNetSender sender;
    const std::uint16_t port = port_of(*source);
    // The buffer counts twice what each datagram holds at the least.
    const int sent = source->receive_buffer() / 1024 + 1000;
    const std::vector<std::uint8_t> bytes(2000, 1);
    for (int i = 0; i < sent; ++i) {
        sender.send(port, bytes);
    }
    const std::uint64_t dropped = source->kernel_drops();
    EXPECT_GT(dropped, 0U) << "seen before anything is read";
    std::uint64_t received = 0;
    while (const std::size_t batch = source->receive([](const Datagram&) {})) {
        received += batch;
    }
    EXPECT_EQ(received + dropped, static_cast<std::uint64_t>(sent));
    sender.send(port, bytes);
    receive(*source, 1);
    EXPECT_EQ(source->kernel_drops(), dropped) << "the counter beside the datagram says the same";
}

TEST(UdpSourceTest, WhatCannotBeBoundIsNamedWithWhatToDo) {
    EXPECT_THAT(failure_of({0x01020304, 0, ""}), HasSubstr("1.2.3.4:0 is no address of this machine"));
    EXPECT_THAT(failure_of({0, 0, "no-such-if"}), HasSubstr("cannot listen on interface no-such-if"));

    const posix::FileDescriptor selfish(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    sockaddr_in address{};
    address.sin_family = AF_INET;
    socklen_t size = sizeof address;
    ASSERT_EQ(bind(selfish.get(), reinterpret_cast<sockaddr*>(&address), size), 0);
    getsockname(selfish.get(), reinterpret_cast<sockaddr*>(&address), &size);
    EXPECT_THAT(failure_of({0, ntohs(address.sin_port), ""}), HasSubstr("lets nobody beside it"));
}

TEST(UdpSourceTest, APortWithoutPermissionIsNamed) {
    const tests::ChildReport report = tests::run_in_child(CLONE_NEWNET, []() -> std::string {
        // In a network of one's own the limit can be set, and rights be given up.
        tests::child_process_detail::write_file("/proc/sys/net/ipv4/ip_unprivileged_port_start", "1024");
        if (unshare(CLONE_NEWUSER) != 0) {
            throw tests::Unavailable("no user namespace here");
        }
        return failure_of({0, 80, ""});
    });
    SKIP_IF_UNAVAILABLE(report);
    EXPECT_THAT(report.text, HasSubstr("0.0.0.0:80: ports below 1024 need privileges"));
}

class LimitedReaderTest : public testing::Test {
protected:
    void send(unsigned char byte) const { sender_.send(port_of(*source_), {byte}); }
    [[nodiscard]] LimitedReader reader(const capture::Limits& limits) {
        return {*source_, limits,
                [this](const Datagram& datagram) { taken_.push_back(datagram.bytes.front()); }};
    }

    std::unique_ptr<Source> source_ = capture::open_udp({.port = 0});
    ArtNetSender sender_;
    std::vector<int> taken_;
};

TEST_F(LimitedReaderTest, AllThatHadComeBeforeTheEndIsTakenAndNothingThatCameLater) {
    LimitedReader endless = reader({});
    send(1);
    send(2);
    EXPECT_FALSE(endless.read());
    EXPECT_THAT(taken_, ElementsAre(1, 2));
    send(3);
    endless.read_rest();
    send(4);
    endless.read_rest();
    EXPECT_THAT(taken_, ElementsAre(1, 2, 3));
}

TEST_F(LimitedReaderTest, TheDurationEndsItEvenWhileDatagramsKeepComing) {
    LimitedReader brief = reader({.duration = 1ns, .idle = {}});
    do {
        send(1);
        brief.wait(1s, {});
    } while (!brief.read());
    EXPECT_THAT(taken_, IsEmpty());
}

TEST_F(LimitedReaderTest, TheIdleTimeCountsFromTheLatestThatWasWanted) {
    std::optional<LimitedReader> patient;
    const auto want_two = [&](const Datagram& datagram) {
        taken_.push_back(datagram.bytes.front());
        if (datagram.bytes.front() == 2) {
            patient->note_wanted(datagram);
        }
    };
    patient.emplace(*source_, capture::Limits{.duration = {}, .idle = 1ms}, want_two);
    send(1);
    while (taken_.empty()) {
        patient->wait(1s, {});
        EXPECT_FALSE(patient->read()) << "not before there is one";
    }
    send(2);
    while (!patient->read()) {
        patient->wait(1s, {});
    }
    EXPECT_THAT(taken_, ElementsAre(1, 2));
}

TEST(PacketSocketSourceTest, WatchesAPortThatBelongsToAnotherProgramAndSeesEachPacketOnce) {
    const tests::ChildReport report = tests::run_in_child(CLONE_NEWNET, []() -> std::string {
        tests::ip("link set lo up");
        const ArtNetSender owner;
        const ArtNetSender bystander;
        const auto source = capture::open_packet_socket("lo", owner.port());
        const ArtNetSender sender;
        sender.send(bystander.port(), {9});
        sender.send(owner.port(), {1, 2, 3});
        sender.send(owner.port(), {4});
        std::string text;
        for (const Kept& kept : receive(*source, 2)) {
            text += std::to_string(kept.bytes.size()) + (kept.sender.port == sender.port() ? " " : "? ");
            // The owner loses nothing, and both are told the same time.
            text += kept.time == owner.receive_stamp() ? "same " : "other ";
        }
        source->receive([&](const Datagram&) { text += "more"; });
        return text;
    });
    SKIP_IF_UNAVAILABLE(report);
    EXPECT_EQ(report.text, "3 same 1 same ");
}

TEST(PacketSocketSourceTest, WithoutTheRightItSaysHowToGetIt) {
    const tests::ChildReport report = tests::run_in_child(0, []() -> std::string {
        // Rights in a new user namespace do not reach the network outside.
        if (unshare(CLONE_NEWUSER) != 0) {
            throw tests::Unavailable("no user namespace here");
        }
        try {
            static_cast<void>(capture::open_packet_socket("lo", 6454));
        } catch (const SourceError& error) {
            return error.what();
        }
        return "opened";
    });
    SKIP_IF_UNAVAILABLE(report);
    EXPECT_THAT(report.text, HasSubstr("setcap cap_net_raw+ep"));
}

}  // namespace
