#pragma once
// Reading of the replies that the board's firmware gives to general commands.

#include <string>
#include <string_view>

namespace ondra::device {

/**
 * Value of OTP row `row` in the reply to "otp_dump": lines "row:value", each ended by a line feed.
 *
 * A value has at most 16 characters up to white space. Empty without such a row; a last line without line
 * feed was cut off by the reply buffer and is not read.
 */
[[nodiscard]] std::string parse_otp_reply(std::string_view reply, int row);

/// What follows the first "=" in the reply to "get_mem ..."; empty without it or when nothing follows.
[[nodiscard]] std::string parse_memory_reply(std::string_view reply);

}  // namespace ondra::device
