// Whom the service listens to, and whose word it takes: what docs/security.md says of the bus and the files.

#include <fstream>

#include <QFileInfo>
#include <QTemporaryDir>

#include "service_test.h"

using namespace integration;
using namespace std::chrono_literals;

namespace {

class TrustTest : public ServiceTest {
protected:
    ForwarderSocket wire_;
    static constexpr std::chrono::milliseconds kFrame{2};
};

/// A program on the bus that is not the discovery service and speaks like it.
class Pretender {
public:
    explicit Pretender(const std::string& address) : connection_(address) {}

    /// Returns once the bus has passed the message on.
    void announce(const std::string& message) {
        QDBusMessage signal =
            QDBusMessage::createSignal(QStringLiteral("/"), QStringLiteral("com.torvexserver.Netsurvey.Dump"),
                                       QStringLiteral("OnArtnetNodesUpdated"));
        signal << QString::fromStdString(message);
        EXPECT_TRUE(connection_.bus().send(signal));
        const QDBusMessage request =
            QDBusMessage::createMethodCall(QStringLiteral("org.freedesktop.DBus"), QStringLiteral("/"),
                                           QStringLiteral("org.freedesktop.DBus"), QStringLiteral("GetId"));
        EXPECT_EQ(connection_.bus().call(request).type(), QDBusMessage::ReplyMessage);
    }

private:
    BusConnection connection_;
};

}  // namespace

TEST_F(TrustTest, NodesAnnouncedByAnotherThanTheDiscoveryServiceAreIgnored) {
    add_playlist(1, true, Recording{}.dmx(5, {1}).frame_delay(kFrame), {});
    start();
    Discovery discovery(bus().address());
    Pretender pretender(bus().address());
    const std::string port = std::to_string(wire_.port());
    pretender.announce("1:5:10.0.0.1:" + port);
    discovery.announce("1:5:10.0.0.2:" + port);
    EXPECT_TRUE(controller().play(1));
    // Nodes get each frame in the order of their addresses, so the first one's would show at once.
    for (const Frame& frame : wire_.next(5)) {
        EXPECT_EQ(frame.ip(), "10.0.0.2");
    }
}

TEST_F(TrustTest, AnEffectsFileMayNameARecordingOutsideTheDataDirectory) {
    const QTemporaryDir elsewhere;
    ASSERT_TRUE(elsewhere.isValid());
    const std::vector<std::uint8_t> bytes = Recording{}.dmx(5, {77}).frame_delay(kFrame).bytes();
    std::ofstream(elsewhere.filePath(QStringLiteral("far.rec")).toStdString(), std::ios::binary)
        .write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
    const std::string above = "../" + QFileInfo(elsewhere.path()).fileName().toStdString();
    show().playlist(
        ShowPlaylist(1).loop(true).effect(ShowEffect(above + "/far.rec").output(wire_.output("*"))));
    start();
    EXPECT_TRUE(controller().play(1));
    EXPECT_EQ(wire_.next().level(0), 77);
}
