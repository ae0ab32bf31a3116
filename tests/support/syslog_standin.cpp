// Stands in for the system log: linked into a test or preloaded into a program, it appends every call to the
// file that SYSLOG_STANDIN_FILE names. One line a call, fields separated by tabs:
//   openlog   identity, option, facility
//   syslog    facility, priority, format, text
//   closelog
// Back slash, tab and line feed inside a field appear as \\, \t and \n.

#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <string>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

std::atomic<int> opened_facility{-1};

std::string escaped(const char* text) {
    std::string result;
    for (; *text != '\0'; ++text) {
        switch (*text) {
            case '\\':
                result += "\\\\";
                break;
            case '\t':
                result += "\\t";
                break;
            case '\n':
                result += "\\n";
                break;
            default:
                result += *text;
        }
    }
    return result;
}

/// The file at `path`, -1 when it cannot be opened. Kept open, as the real system log keeps its socket, so
/// that lines also come from a program that has no descriptor left; opened anew when it was removed. Caller
/// holds recording.
int record_file(const char* path) {
    static std::string& opened_path = *new std::string;
    static int file = -1;
    struct stat state {};
    if (file == -1 || opened_path != path || fstat(file, &state) != 0 || state.st_nlink == 0) {
        if (file != -1) {
            close(file);
        }
        file = open(path, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
        opened_path = path;
    }
    return file;
}

/// One write to a file opened for appending, so that lines of several processes do not mix.
void record(const std::string& line) {
    // Never destroyed: lines come until the very end of the process.
    static std::mutex& recording = *new std::mutex;
    const char* const path = std::getenv("SYSLOG_STANDIN_FILE");
    if (path == nullptr) {
        return;
    }
    const std::scoped_lock guard(recording);
    const int file = record_file(path);
    if (file != -1 && write(file, line.data(), line.size()) != static_cast<ssize_t>(line.size())) {
        std::abort();
    }
}

__attribute__((format(printf, 2, 0))) void record_message(int priority, const char* format,
                                                          va_list arguments) {
    // Also what "%m" shows.
    const int error = errno;
    va_list again;
    va_copy(again, arguments);
    const int length = std::vsnprintf(nullptr, 0, format, again);
    va_end(again);
    std::string text(length > 0 ? static_cast<std::size_t>(length) : 0, '\0');
    errno = error;
    std::vsnprintf(text.data(), text.size() + 1, format, arguments);
    record("syslog\t" + std::to_string(opened_facility.load()) + "\t" + std::to_string(priority) + "\t" +
           escaped(format) + "\t" + escaped(text.c_str()) + "\n");
    errno = error;
}

}  // namespace

extern "C" {

void openlog(const char* identity, int option, int facility) {
    opened_facility = facility;
    record(std::string("openlog\t") + (identity != nullptr ? escaped(identity) : "(none)") + "\t" +
           std::to_string(option) + "\t" + std::to_string(facility) + "\n");
}

void closelog() {
    record("closelog\n");
}

__attribute__((format(printf, 2, 3))) void syslog(int priority, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    record_message(priority, format, arguments);
    va_end(arguments);
}

/// What a fortified build calls instead of syslog().
__attribute__((format(printf, 3, 4))) void __syslog_chk(int priority, int /*flag*/, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    record_message(priority, format, arguments);
    va_end(arguments);
}

__attribute__((format(printf, 2, 0))) void vsyslog(int priority, const char* format, va_list arguments) {
    record_message(priority, format, arguments);
}

__attribute__((format(printf, 3, 0))) void __vsyslog_chk(int priority, int /*flag*/, const char* format,
                                                         va_list arguments) {
    record_message(priority, format, arguments);
}
}
