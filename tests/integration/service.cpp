#include "service.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>

#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <syslog.h>
#include <unistd.h>

#include <QRegularExpression>

namespace integration {

namespace {

int write_text(const char* path, const std::string& text) {
    const int file = open(path, O_WRONLY | O_CREAT | O_CLOEXEC, 0644);
    const ssize_t written = write(file, text.data(), text.size());
    const int error = written == static_cast<ssize_t>(text.size()) ? 0 : errno;
    close(file);
    return error;
}

/// A mount namespace, within a user namespace for those who may have none otherwise. There each user stands
/// for itself, since the bus compares who asks. System calls only.
int enter_mount_namespace(const std::string& user_map, const std::string& group_map) {
    if (unshare(CLONE_NEWNS) == 0) {
        return 0;
    }
    if (unshare(CLONE_NEWUSER | CLONE_NEWNS) != 0) {
        return errno;
    }
    int error = write_text("/proc/self/setgroups", "deny");
    error = error != 0 ? error : write_text("/proc/self/uid_map", user_map);
    return error != 0 ? error : write_text("/proc/self/gid_map", group_map);
}

/// Covers /opt with a file system that holds nothing but the brand file. System calls only.
int mount_brand(const std::string& brand) {
    if (mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
        mount("tmpfs", "/opt", "tmpfs", 0, nullptr) != 0 || mkdir("/opt/torvex", 0755) != 0 ||
        mkdir("/opt/torvex/data", 0755) != 0 || mkdir("/opt/torvex/data/cfg", 0755) != 0) {
        return errno;
    }
    return write_text("/opt/torvex/data/cfg/brand.json", brand);
}

ProgramSettings program_settings(const Installation& installation, const ServiceSettings& settings,
                                 const std::string& syslog_file, const std::string& output_file) {
    ProgramSettings program;
    program.command = {installation.path() + "/" + settings.program};
    program.environment = settings.environment;
    program.environment.push_back("LC_ALL=C.UTF-8");
    program.environment.push_back("LD_PRELOAD=" INTEGRATION_SYSLOG_STANDIN +
                                  (settings.preload.empty() ? "" : ":" + settings.preload));
    program.environment.push_back(std::string(tests::kSyslogFileVariable) + "=" + syslog_file);
    program.environment.push_back("ASAN_OPTIONS=verify_asan_link_order=0");
    for (const std::string& option : sanitizer_options()) {
        program.environment.push_back(option);
    }
    program.output_file = output_file;
    program.prepare = settings.prepare;
    if (settings.brand) {
        const std::string user = std::to_string(getuid());
        const std::string group = std::to_string(getgid());
        program.prepare = [&brand = *settings.brand, user_map = user + " " + user + " 1",
                           group_map = group + " " + group + " 1"] {
            const int error = enter_mount_namespace(user_map, group_map);
            return error != 0 ? error : mount_brand(brand);
        };
    }
    return program;
}

std::string new_file(const Installation& installation, const std::string& name) {
    for (int i = 0;; ++i) {
        const std::string path = installation.path() + "/" + name + std::to_string(i);
        if (!std::filesystem::exists(path)) {
            std::ofstream created(path);
            return path;
        }
    }
}

std::string shown(const tests::SyslogLine& line) {
    if (line.priority == LOG_INFO) {
        return "info " + line.text;
    }
    // Errors and warnings begin with path, line, blank, function and a bracket; warnings have two more
    // characters of the path.
    static const QRegularExpression error(QStringLiteral("^core/(?:[^/]+/)*([^/]+\\.cpp)[0-9]+ [^\\[]*\\) "));
    static const QRegularExpression warning(
        QStringLiteral("^.{0,2}core/(?:[^/]+/)*([^/]+\\.cpp)[0-9]+ [^\\[]*\\) "));
    const bool is_error = line.priority == LOG_ERR;
    const QString text = QString::fromStdString(line.text);
    const QRegularExpressionMatch context = (is_error ? error : warning).match(text);
    const std::string priority = is_error                       ? "err "
                                 : line.priority == LOG_WARNING ? "warning "
                                                                : std::to_string(line.priority) + " ";
    if (!context.hasMatch()) {
        return priority + line.text;
    }
    return priority + context.captured(1).toStdString() + " " + text.mid(context.capturedEnd()).toStdString();
}

}  // namespace

std::vector<std::string> sanitizer_options() {
    std::vector<std::string> options;
    for (const char* const name : {"TSAN_OPTIONS", "UBSAN_OPTIONS"}) {
        if (const char* const value = std::getenv(name); value != nullptr) {
            options.push_back(std::string(name) + "=" + value);
        }
    }
    return options;
}

bool matches(const std::string& text, const std::string& expression) {
    const QRegularExpression whole(QRegularExpression::anchoredPattern(QString::fromStdString(expression)),
                                   QRegularExpression::DotMatchesEverythingOption);
    return whole.match(QString::fromStdString(text)).hasMatch();
}

Installation::Installation(const std::string& data) {
    if (!directory_.isValid()) {
        throw std::runtime_error("no temporary directory");
    }
    namespace fs = std::filesystem;
    path_ = fs::canonical(directory_.path().toStdString()).string();
    fs::create_directory(path_ + "/bin");
    // The program looks for its data beside the place where it really lies, so a link would not do.
    std::error_code refused;
    fs::create_hard_link(INTEGRATION_PROGRAM, path_ + "/bin/cuewright", refused);
    if (refused) {
        fs::copy_file(INTEGRATION_PROGRAM, path_ + "/bin/cuewright");
    }
    if (!data.empty()) {
        fs::create_directory_symlink(data, path_ + "/data");
    }
}

Service::Service(const Installation& installation, const ServiceSettings& settings)
    : syslog_file_(new_file(installation, "syslog")),
      output_file_(new_file(installation, "output")),
      program_(program_settings(installation, settings, syslog_file_, output_file_)) {}

std::vector<std::string> Service::log() const {
    std::vector<std::string> lines;
    for (const tests::SyslogLine& line : raw_log()) {
        lines.push_back(shown(line));
    }
    return lines;
}

bool Service::wait_for_log(const std::string& line) const {
    return wait_until([this, &line] {
        const std::vector<std::string> lines = log();
        return std::find(lines.begin(), lines.end(), line) != lines.end();
    });
}

std::string Service::output() const {
    std::ifstream file(output_file_);
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}

}  // namespace integration
