#include "ondra/log_context.h"

#include <algorithm>

#include "ondra/logger.h"

namespace ondra {

namespace {

/// Path characters that a warning shows in addition.
constexpr std::size_t kWarningLead = 2;

}  // namespace

std::string log_context(int level, std::size_t prefix, const char* file, int line, const char* function) {
    if (level != kError && level != kWarning) {
        return {};
    }
    if (level == kWarning) {
        prefix -= std::min(prefix, kWarningLead);
    }
    std::string_view path = file != nullptr ? file : "";
    path.remove_prefix(std::min(prefix, path.size()));
    std::string context(path);
    context += std::to_string(line);
    context += ' ';
    context += function != nullptr ? function : "";
    context += ") ";
    return context;
}

}  // namespace ondra
