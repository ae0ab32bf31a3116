#include "text.h"

#include <cstdarg>
#include <cstddef>
#include <cstdio>

namespace forwarder {

std::string text(const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    va_list again;
    va_copy(again, arguments);
    const int length = std::vsnprintf(nullptr, 0, format, arguments);
    va_end(arguments);
    std::string result;
    if (length > 0) {
        result.resize(static_cast<std::size_t>(length));
        std::vsnprintf(result.data(), result.size() + 1, format, again);
    }
    va_end(again);
    return result;
}

}  // namespace forwarder
