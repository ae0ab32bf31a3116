#include "faults_test.h"

#include <algorithm>
#include <cerrno>
#include <fstream>

#include <linux/capability.h>
#include <sys/prctl.h>
#include <unistd.h>
#include <QCoreApplication>

#include "support/emulation.h"

namespace integration {

namespace {

/// Longer than any test runs.
constexpr int kNoTimeOut = 600'000;
constexpr int kShortTimeOut = 50;
constexpr char kEngine[] = "com.torvexserver.Cuewright";

/// What nobody would call playing on, with room for a machine that serves others first.
std::chrono::seconds standstill() {
    return std::chrono::seconds(is_slow() ? 5 : 1);
}

}  // namespace

bool is_slow() {
    return kSanitized || is_emulated();
}

void FaultsTest::start_with_beat(const ServiceSettings& settings) {
    add_playlist(Beat::kPlaylist, true, Beat::recording(), {beat_.output()});
    start(settings);
    if (HasFatalFailure()) {
        return;
    }
    later_ = std::make_unique<BusConnection>(bus().address());
    ASSERT_TRUE(controller().play(Beat::kPlaylist));
    expect_beat_goes_on(1);
    mark_log();
}

void FaultsTest::expect_beat_goes_on(std::size_t frames) {
    EXPECT_TRUE(beat_.wait_for_more(frames)) << "the beat has stopped";
    expect_beat_was_whole();
}

void FaultsTest::expect_beat_was_whole() {
    EXPECT_EQ(beat_.first_gap(), "");
    EXPECT_EQ(beat_.first_standstill(standstill() + allowed_), "");
}

QDBusPendingCall FaultsTest::call_later(const QString& method, const QList<QVariant>& arguments) {
    return send(QStringLiteral("/"), QString::fromLatin1(kEngine), method, arguments, kNoTimeOut);
}

QDBusPendingCall FaultsTest::call_impatiently(const QString& method, const QList<QVariant>& arguments) {
    return send(QStringLiteral("/"), QString::fromLatin1(kEngine), method, arguments, kShortTimeOut);
}

QDBusPendingCall FaultsTest::ask_level() {
    return send(QStringLiteral("/logger"), QString(), QStringLiteral("getLevel"), {}, kNoTimeOut);
}

QDBusPendingCall FaultsTest::send(const QString& path, const QString& interface, const QString& method,
                                  const QList<QVariant>& arguments, int time_out) {
    QDBusMessage message =
        QDBusMessage::createMethodCall(QString::fromLatin1(kEngine), path, interface, method);
    message.setArguments(arguments);
    return later_->bus().asyncCall(message, time_out);
}

bool FaultsTest::answered(const QDBusPendingCall& call) {
    QCoreApplication::processEvents();
    return call.isFinished() && !call.isError();
}

bool FaultsTest::wait_for_answer(const QDBusPendingCall& call, std::chrono::milliseconds deadline) {
    return wait_until([&call] { return answered(call); }, deadline);
}

FaultsTest::Lines FaultsTest::trouble() const {
    Lines lines = log_since_mark();
    std::erase_if(lines, [](const std::string& line) {
        return !line.starts_with("err ") && !line.starts_with("warning ") &&
               line.find("] Failed to load cuelist") == std::string::npos &&
               line.find("] Cuelist data is absent") == std::string::npos;
    });
    return lines;
}

FaultsTest::Lines FaultsTest::refused_by_files(const std::string& error, const std::string& text) {
    return {"err playlist_parser.cpp " + error,
            "info [Repeater::load_playlist] Failed to load cuelist (err:" + text + ")",
            "info [Repeater::play_playlist] Failed to load cuelist"};
}

FaultsTest::Lines FaultsTest::refused_by_recording(const std::string& path, int code) const {
    return {parse_error_line(path, code), "info [Repeater::play_playlist] Cuelist data is absent"};
}

std::string FaultsTest::parse_error_line(const std::string& path, int code) const {
    return "err playlist_loader.cpp [PlaylistLoader::load_effect] Cue (" + data_root() + "/" + path +
           ") parse error (" + std::to_string(code) + ")";
}

void FaultsTest::expect_not_loaded(int id) {
    mark_log();
    EXPECT_FALSE(controller().pause(id));
    EXPECT_EQ(log_since_mark().back(), "info [Repeater::pause_playlist] Cuelist is not active");
}

int drop_right_to_read_all() {
    if (geteuid() != 0) {
        return 0;
    }
    constexpr unsigned long kRights[] = {CAP_DAC_OVERRIDE, CAP_DAC_READ_SEARCH};
    for (const unsigned long right : kRights) {
        if (prctl(PR_CAPBSET_DROP, right, 0, 0, 0) != 0) {
            return errno;
        }
    }
    return 0;
}

std::string why_all_is_readable() {
    if (geteuid() != 0) {
        return {};
    }
    constexpr char kField[] = "CapEff:";
    std::ifstream status("/proc/self/status");
    for (std::string line; std::getline(status, line);) {
        if (line.starts_with(kField)) {
            const unsigned long long rights = std::stoull(line.substr(sizeof kField), nullptr, 16);
            return (rights >> CAP_SETPCAP & 1) != 0 ? "" : "root may not give up rights here, and reads all";
        }
    }
    return "no /proc/self/status to read root's rights from";
}

}  // namespace integration
