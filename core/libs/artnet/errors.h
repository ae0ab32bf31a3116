#pragma once
// What can go wrong while a recording is parsed, as error codes of a category of their own.

#include <string>
#include <system_error>

namespace errc {

enum artnet_parser_error : int {
    no_error = 0,
    /// Fatal: the file cannot be opened.
    input_file_not_found = 1,
    /// Fatal: the input ends in the middle of a record.
    unexpected_end_of_input = 2,
    /// Fatal: no identifier in the whole input, or no byte at all.
    header_not_found = 3,
    /// Not fatal: an ArtDmx packet claims more than 512 channels. Only ever passed to on_error.
    data_buffer_oversized = 4,
};

/// Text of a code; "Unknown error" for one that is not in the list.
[[nodiscard]] const char* error_message(int code) noexcept;

/// The category of the parser's codes. Stateless; any thread.
class artnet_parser_error_category final : public std::error_category {
public:
    static const artnet_parser_error_category& get();

    [[nodiscard]] const char* name() const noexcept override;
    [[nodiscard]] std::string message(int code) const override;
};

[[nodiscard]] std::error_code make_error_code(artnet_parser_error error) noexcept;

}  // namespace errc

template <>
struct std::is_error_code_enum<errc::artnet_parser_error> : std::true_type {};
