#pragma once
// The process-wide logger, and the macro through which every line is written.
//
// The support library reports failures by return value (false, -1, empty text); nothing else in it logs.

#include <atomic>

#include <QMessageLogContext>
#include <QObject>
#include <QString>

namespace ondra {

/// Message levels in use. A line is written when its level is at most the configured one.
inline constexpr int kError = -2;     ///< failed start-up steps and operations
inline constexpr int kWarning = -1;   ///< something was skipped
inline constexpr int kBanner = 1;     ///< version and level at start-up
inline constexpr int kNormal = 3;     ///< playlist, zone and engine actions; the default level
inline constexpr int kDetail = 4;     ///< parsing and settings
inline constexpr int kLoadTrace = 5;  ///< one line per loaded packet
inline constexpr int kSendTrace = 6;  ///< one line per sent packet

/**
 * Filters, formats and writes log lines; owns the process's connection to the system log.
 *
 * There is one, made by the first instance() call and destroyed with the static objects. It also
 * receives Qt's own diagnostics, and its slots are offered on the bus at "/logger".
 * Any thread may log. The settings are changed by the main thread; each is one relaxed atomic,
 * since a line needs no order towards a change of the settings.
 */
class Logger final : public QObject {
    Q_OBJECT

public:
    /// Where lines go; any other value discards them.
    enum Output : int { None = 0, Console = 1, Syslog = 2 };

    static Logger* instance();

    Logger(const Logger&) = delete;
    Logger& operator=(const Logger&) = delete;
    ~Logger() override;

    /// True when a line of `level` would be written. Any thread; one comparison.
    [[nodiscard]] bool accepts(int level) const noexcept {
        return level <= level_.load(std::memory_order_relaxed);
    }

    /**
     * Writes one line, formatted as by printf, without a limit on its length.
     *
     * @param file, line, function  source context, shown for errors and warnings only; the texts may be null
     * @param format  null counts as empty
     * Any thread. A formatting failure drops the line.
     */
    void log(int level, const char* file, int line, const char* function, const char* format, ...)
        __attribute__((format(printf, 6, 7)));

    /// Hands a finished line (null counts as empty) to the current output. Any thread.
    void write(int level, const char* text);
    void writeToNone(int level, const char* text);
    void writeToConsole(int level, const char* text);
    void writeToSyslog(int level, const char* text);

    /// Qt's message handler. Any thread.
    static void MessageHandler(QtMsgType type, const QMessageLogContext& context, const QString& message);

public Q_SLOTS:
    void setOutput(Output output);
    void setLevel(int level);
    int getLevel();
    void useContext(bool use_context);

private:
    Logger();

    std::atomic<Output> output_{Console};
    std::atomic<int> level_{kNormal};
    std::atomic<bool> use_context_{true};
};

}  // namespace ondra

/// Writes one line with the caller's source context. The arguments are evaluated only when the line is
/// written.
#define ONDRA_LOG(level, ...)                                                               \
    do {                                                                                    \
        ::ondra::Logger* const ondra_logger = ::ondra::Logger::instance();                  \
        if (ondra_logger->accepts(level)) {                                                 \
            ondra_logger->log(level, __FILE__, __LINE__, __PRETTY_FUNCTION__, __VA_ARGS__); \
        }                                                                                   \
    } while (false)
