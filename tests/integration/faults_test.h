#pragma once
// Base of the tests of docs/faults.md: the real program plays a beat while something around it fails.

#include <chrono>
#include <string>
#include <vector>

#include <QDBusPendingCall>

#include "beat.h"
#include "service_test.h"

namespace integration {

/// Whether test and service carry a sanitizer, which costs several times the time and all address space.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
inline constexpr bool kSanitized = true;
#else
inline constexpr bool kSanitized = false;
#endif
/// Whether the service, with a sanitizer or in an emulator, takes several times the time. scripts/cross tells
/// of the emulator.
[[nodiscard]] bool is_slow();

/**
 * A running service with a beat, whose frames must all come, and in time, whatever else a test does.
 */
class FaultsTest : public ServiceTest {
protected:
    using Lines = std::vector<std::string>;

    /// Starts the service and its beat.
    void start_with_beat(const ServiceSettings& settings = {});
    /// The beat has come without a gap or a standstill so far, and does so for further frames.
    void expect_beat_goes_on(std::size_t frames = 10);
    /// The same for what has come.
    void expect_beat_was_whole();
    /// The beat may once stand still for as long, since the fault is to hold it up.
    void allow_standstill(std::chrono::nanoseconds time) { allowed_ = time; }
    [[nodiscard]] Beat& beat() { return beat_; }

    /// A call of the engine whose answer may take long; a caller of its own, so that others can be made.
    [[nodiscard]] QDBusPendingCall call_later(const QString& method, const QList<QVariant>& arguments);
    /// The same by a caller who soon waits no longer.
    [[nodiscard]] QDBusPendingCall call_impatiently(const QString& method, const QList<QVariant>& arguments);
    /// A call of the logger, as above.
    [[nodiscard]] QDBusPendingCall ask_level();
    /// Whether the answer is here; false also when it is an error.
    [[nodiscard]] static bool answered(const QDBusPendingCall& call);
    [[nodiscard]] static bool wait_for_answer(const QDBusPendingCall& call,
                                              std::chrono::milliseconds deadline = kDeadline);

    /// What the log has told of trouble since the mark: errors, warnings and the lines of a refused play.
    [[nodiscard]] Lines trouble() const;
    /// The same lines for a play that its files refuse.
    /// @param error  the error's own line from its bracket on
    [[nodiscard]] static Lines refused_by_files(const std::string& error, const std::string& text);
    /// The same lines for a play that its recording refuses.
    [[nodiscard]] Lines refused_by_recording(const std::string& path, int code) const;
    [[nodiscard]] std::string parse_error_line(const std::string& path, int code) const;
    /// Nothing but the beat is loaded under this id.
    void expect_not_loaded(int id);

private:
    /// @param time_out  of the caller, in milliseconds
    [[nodiscard]] QDBusPendingCall send(const QString& path, const QString& interface, const QString& method,
                                        const QList<QVariant>& arguments, int time_out);

    Beat beat_;
    std::chrono::nanoseconds allowed_{0};
    std::unique_ptr<BusConnection> later_;
};

/// Has the service run without the right to read every file, which root has. System calls only.
int drop_right_to_read_all();
/// Empty, or why that cannot be done here.
[[nodiscard]] std::string why_all_is_readable();

}  // namespace integration
