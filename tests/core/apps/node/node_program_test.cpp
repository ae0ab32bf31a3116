// The real program, in a network of this test's own.
#include <array>
#include <csignal>
#include <optional>

#include <poll.h>
#include <sys/socket.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include "artnet/poll.h"
#include "artnet/recording_writer.h"
#include "posix/file_descriptor.h"
#include "posix/ipv4.h"
#include "support/child_program.h"
#include "support/eventually.h"
#include "support/private_network.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using Bytes = std::vector<std::uint8_t>;

constexpr std::uint32_t kController = 0x7F000001;
constexpr std::uint32_t kNode = 0x7F000002;

const std::string kObstacle = tests::enter_private_network();

class NodeProgramTest : public testing::Test {
protected:
    void SetUp() override {
        if (!kObstacle.empty()) {
            GTEST_SKIP() << kObstacle;
        }
        socket_ = posix::FileDescriptor(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
        const sockaddr_in own = posix::ipv4_sockaddr(kController, artnet::kPort);
        ASSERT_EQ(bind(socket_.get(), reinterpret_cast<const sockaddr*>(&own), sizeof own), 0);
    }

    void send(std::span<const std::uint8_t> bytes) const {
        const sockaddr_in node = posix::ipv4_sockaddr(kNode, artnet::kPort);
        EXPECT_EQ(sendto(socket_.get(), bytes.data(), bytes.size(), 0,
                         reinterpret_cast<const sockaddr*>(&node), sizeof node),
                  static_cast<ssize_t>(bytes.size()));
    }
    void send_dmx(std::uint16_t universe, std::uint8_t sequence) const {
        Bytes bytes;
        append_artdmx(bytes, universe, Bytes{sequence, 2}, sequence);
        send(bytes);
    }
    [[nodiscard]] Bytes receive() const {
        pollfd wait{socket_.get(), POLLIN, 0};
        Bytes bytes(2048);
        const bool any = poll(&wait, 1, 60'000) == 1;
        const ssize_t size = any ? recv(socket_.get(), bytes.data(), bytes.size(), 0) : -1;
        bytes.resize(size < 0 ? 0 : static_cast<std::size_t>(size));
        return bytes;
    }

    static std::vector<std::string> command(std::vector<std::string> arguments) {
        arguments.insert(arguments.begin(), {NODE_PROGRAM, "--address", "127.0.0.2"});
        return arguments;
    }
    /// The last whole report; empty before the first.
    static QJsonObject last_report(const tests::ChildProgram& program) {
        QJsonObject last;
        for (const QByteArray& line : QByteArray::fromStdString(program.output()).split('\n')) {
            const QJsonObject report = QJsonDocument::fromJson(line).object();
            last = report.isEmpty() ? last : report;
        }
        return last;
    }

private:
    posix::FileDescriptor socket_;
};

}  // namespace

TEST_F(NodeProgramTest, ItAnswersPollsCountsFramesAndReportsOnRequestAndAtTheEnd) {
    tests::ChildProgram node(command({"--universe", "1-4,9", "--name", "front", "--json"}));
    ASSERT_TRUE(node.wait_for_error("front listening at 127.0.0.2:6454, universes 1-4,9"))
        << node.error_output();
    send(artnet::encode_poll());
    std::vector<std::vector<std::uint16_t>> universes;
    for (int i = 1; i <= 2; ++i) {
        const auto reply = artnet::decode_poll_reply(receive());
        ASSERT_TRUE(reply);
        EXPECT_STREQ(reply->ShortName, "front");
        EXPECT_THAT(reply->IpAddress, ElementsAre(127, 0, 0, 2));
        EXPECT_EQ(reply->BindIndex, i);
        universes.push_back(artnet::output_universes(*reply));
    }
    EXPECT_THAT(universes, ElementsAre(ElementsAre(1, 2, 3, 4), ElementsAre(9)));

    for (const std::uint8_t sequence : {std::uint8_t{1}, std::uint8_t{2}, std::uint8_t{4}}) {
        send_dmx(9, sequence);
    }
    EXPECT_TRUE(eventually([&] {
        node.signal(SIGUSR1);
        return last_report(node).value(QLatin1String("packets")).toInt() == 3;
    }));
    send_dmx(9, 5);
    send_dmx(5, 1);
    node.signal(SIGTERM);
    EXPECT_EQ(node.wait_exit(), 0);
    const QJsonObject report = last_report(node);
    EXPECT_EQ(report.value(QLatin1String("packets")).toInt(), 4) << "what came before the signal counts";
    EXPECT_EQ(report.value(QLatin1String("other_universes")).toInt(), 1);
    EXPECT_EQ(report.value(QLatin1String("polls")).toInt(), 1);
    const QJsonObject last = report.value(QLatin1String("universes")).toArray().last().toObject();
    EXPECT_EQ(last.value(QLatin1String("universe")).toInt(), 9);
    EXPECT_EQ(last.value(QLatin1String("lost")).toInt(), 1);
    EXPECT_EQ(last.value(QLatin1String("levels")).toArray(), (QJsonArray{5, 2}));
}

TEST_F(NodeProgramTest, ItEndsByItselfAfterItsTimeWithATableForPeople) {
    tests::ChildProgram node(command({"--universe", "7", "--duration", "0.05"}));
    EXPECT_EQ(node.wait_exit(), 0);
    EXPECT_THAT(node.output(), HasSubstr("UNIVERSE   PACKETS"));
}

TEST_F(NodeProgramTest, WhatCannotBeDoneIsSaid) {
    tests::ChildProgram nowhere({NODE_PROGRAM, "--universe", "1", "--address", "192.0.2.1"});
    EXPECT_EQ(nowhere.wait_exit(), 1);
    EXPECT_THAT(
        nowhere.error_output(),
        HasSubstr("cuewright-node: cannot listen at 192.0.2.1:6454: Cannot assign requested address"));
    tests::ChildProgram without({NODE_PROGRAM});
    EXPECT_EQ(without.wait_exit(), 2);
    EXPECT_THAT(without.error_output(), HasSubstr("--universe is required"));
    tests::ChildProgram help({NODE_PROGRAM, "--help"});
    EXPECT_EQ(help.wait_exit(), 0);
    EXPECT_THAT(help.output(), HasSubstr("Exit status:"));
}
