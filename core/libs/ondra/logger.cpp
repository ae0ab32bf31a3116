#include "ondra/logger.h"

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <exception>
#include <string>

#include <syslog.h>

#include "ondra/literal_format.h"
#include "ondra/log_context.h"

namespace ondra {

namespace {

constexpr std::size_t kSourcePrefix = source_prefix_length(__FILE__);

/// True from the end of the logger's construction to the start of its destruction. Written by the thread
/// that constructs or destroys it, read by any thread; constant-initialised, so valid outside its life, too.
constinit std::atomic<bool> logger_alive{false};

/// The message of one line, of any length; false when it cannot be formatted. `error` is what "%m" shows.
__attribute__((format(printf, 3, 0))) bool format_message(std::string& message, int error, const char* format,
                                                          va_list arguments) {
    va_list again;
    va_copy(again, arguments);
    errno = error;
    const int length = std::vsnprintf(nullptr, 0, format, again);
    va_end(again);
    if (length < 0) {
        return false;
    }
    message.resize(static_cast<std::size_t>(length));
    errno = error;
    return std::vsnprintf(message.data(), message.size() + 1, format, arguments) == length;
}

}  // namespace

Logger* Logger::instance() {
    static Logger logger;
    return &logger;
}

Logger::Logger() {
    // The line that constructs the logger may show errno.
    const int error = errno;
    qInstallMessageHandler(MessageHandler);
    openlog(nullptr, 0, LOG_LOCAL0);
    logger_alive.store(true, std::memory_order_release);
    errno = error;
}

Logger::~Logger() {
    logger_alive.store(false, std::memory_order_release);
    closelog();
}

void Logger::log(int level, const char* file, int line, const char* function, const char* format, ...) {
    if (!accepts(level)) {
        return;
    }
    const int error = errno;
    std::string message;
    va_list arguments;
    va_start(arguments, format);
    bool formatted = false;
    try {
        formatted = format == nullptr || format_message(message, error, format, arguments);
    } catch (...) {
        // A failed allocation passes on, but not past an open argument list.
        va_end(arguments);
        throw;
    }
    va_end(arguments);
    if (!formatted) {
        return;
    }
    std::string text;
    if (use_context_.load(std::memory_order_relaxed)) {
        text = log_context(level, kSourcePrefix, file, line, function);
    }
    text += message;
    errno = error;
    write(level, text.c_str());
}

void Logger::write(int level, const char* text) {
    if (text == nullptr) {
        text = "";
    }
    switch (output_.load(std::memory_order_relaxed)) {
        case Console:
            writeToConsole(level, text);
            break;
        case Syslog:
            writeToSyslog(level, text);
            break;
        case None:
        default:
            writeToNone(level, text);
            break;
    }
}

void Logger::writeToNone(int /*level*/, const char* /*text*/) {}

void Logger::writeToConsole(int /*level*/, const char* text) {
    std::fprintf(stderr, "%s\n", text != nullptr ? text : "");
}

void Logger::writeToSyslog(int level, const char* text) {
    const int error = errno;
    const int priority = level == kError ? LOG_ERR : level == kWarning ? LOG_WARNING : LOG_INFO;
    const std::string format = make_conversions_literal(text != nullptr ? text : "");
    errno = error;
    // The line is on purpose the format: the system log interprets "%%" and "%m" once more. All that would
    // fetch an argument has just been made literal, which the compiler cannot know.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-security"
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
    syslog(priority, format.c_str());
#pragma GCC diagnostic pop
}

void Logger::MessageHandler(QtMsgType type, const QMessageLogContext& context, const QString& message) {
    const int error = errno;
    // Qt speaks also while the static objects come and go; touching the logger then would construct it
    // within its own construction or use it after its end.
    if (!logger_alive.load(std::memory_order_acquire)) {
        return;
    }
    int level = 0;
    switch (type) {
        case QtDebugMsg:
            level = kBanner;
            break;
        case QtWarningMsg:
            level = kWarning;
            break;
        case QtCriticalMsg:
        case QtFatalMsg:
            level = kError;
            break;
        case QtInfoMsg:
        default:
            // Nothing here issues such messages: one means that the process is not what it should be.
            std::terminate();
    }
    const std::string format = make_conversions_literal(message.toLocal8Bit().toStdString());
    errno = error;
    // As in writeToSyslog(): the message is the format, with nothing left in it that fetches an argument.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-security"
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
    instance()->log(level, context.file, context.line, context.function, format.c_str());
#pragma GCC diagnostic pop
}

void Logger::setOutput(Output output) {
    output_.store(output, std::memory_order_relaxed);
}

void Logger::setLevel(int level) {
    level_.store(level, std::memory_order_relaxed);
}

int Logger::getLevel() {
    return level_.load(std::memory_order_relaxed);
}

void Logger::useContext(bool use_context) {
    use_context_.store(use_context, std::memory_order_relaxed);
}

}  // namespace ondra
