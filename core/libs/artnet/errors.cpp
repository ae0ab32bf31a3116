#include "artnet/errors.h"

#include <array>
#include <cstddef>

namespace errc {

namespace {

constexpr std::array<const char*, 5> err_msg{
    "No error",
    "Input file not found",
    "Unexpected end of input buffer",
    "ArtNet header not found",
    "ArtNet data buffer oversized",
};

}  // namespace

const char* error_message(int code) noexcept {
    const auto index = static_cast<std::size_t>(code);
    return index < err_msg.size() ? err_msg[index] : "Unknown error";
}

const artnet_parser_error_category& artnet_parser_error_category::get() {
    static const artnet_parser_error_category category;
    return category;
}

// The trailing blank belongs to the name: it is shown right before a code.
const char* artnet_parser_error_category::name() const noexcept {
    return "ArtNet Parser: ";
}

std::string artnet_parser_error_category::message(int code) const {
    return error_message(code);
}

std::error_code make_error_code(artnet_parser_error error) noexcept {
    return {static_cast<int>(error), artnet_parser_error_category::get()};
}

}  // namespace errc
