#include "support/captured_log.h"

#include <algorithm>
#include <cstdio>
#include <sstream>

#include <sys/mman.h>
#include <unistd.h>

#include "ondra/logger.h"

CapturedLog::CapturedLog(int level) {
    std::fflush(stderr);
    captured_ = memfd_create("captured-log", MFD_CLOEXEC);
    saved_stderr_ = dup(STDERR_FILENO);
    dup2(captured_, STDERR_FILENO);
    ondra::Logger* const logger = ondra::Logger::instance();
    logger->setOutput(ondra::Logger::Console);
    logger->setLevel(level);
    logger->useContext(false);
}

CapturedLog::~CapturedLog() {
    ondra::Logger* const logger = ondra::Logger::instance();
    logger->setLevel(ondra::kNormal);
    logger->useContext(true);
    std::fflush(stderr);
    dup2(saved_stderr_, STDERR_FILENO);
    close(saved_stderr_);
    close(captured_);
}

std::vector<std::string> CapturedLog::lines() const {
    std::fflush(stderr);
    std::string text;
    char block[4096];
    off_t offset = 0;
    ssize_t size = 0;
    while ((size = pread(captured_, block, sizeof block, offset)) > 0) {
        text.append(block, static_cast<std::size_t>(size));
        offset += size;
    }
    std::vector<std::string> result;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) {
        result.push_back(line);
    }
    return result;
}

bool CapturedLog::has(std::string_view line) const {
    const std::vector<std::string> all = lines();
    return std::find(all.begin(), all.end(), line) != all.end();
}

std::vector<std::string> CapturedLog::lines_starting(std::string_view start) const {
    std::vector<std::string> result = lines();
    std::erase_if(result, [start](const std::string& line) { return !line.starts_with(start); });
    return result;
}
