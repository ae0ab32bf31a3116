#include "artnet/errors.h"

#include <climits>

#include <gtest/gtest.h>

TEST(ErrorsTest, EveryCodeHasItsNumberAndItsText) {
    const auto text = [](int code) { return errc::artnet_parser_error_category::get().message(code); };
    EXPECT_EQ(errc::no_error, 0);
    EXPECT_EQ(errc::input_file_not_found, 1);
    EXPECT_EQ(errc::unexpected_end_of_input, 2);
    EXPECT_EQ(errc::header_not_found, 3);
    EXPECT_EQ(errc::data_buffer_oversized, 4);
    EXPECT_EQ(text(0), "No error");
    EXPECT_EQ(text(1), "Input file not found");
    EXPECT_EQ(text(2), "Unexpected end of input buffer");
    EXPECT_EQ(text(3), "ArtNet header not found");
    EXPECT_EQ(text(4), "ArtNet data buffer oversized");
}

TEST(ErrorsTest, ACodeOutsideTheTableHasAFixedText) {
    for (const int code : {-1, 5, INT_MIN, INT_MAX}) {
        EXPECT_STREQ(errc::error_message(code), "Unknown error") << code;
    }
}

TEST(ErrorsTest, TheCategoryNameEndsWithABlank) {
    EXPECT_STREQ(errc::artnet_parser_error_category::get().name(), "ArtNet Parser: ");
}

TEST(ErrorsTest, ThereIsOneCategory) {
    const std::error_code code = errc::header_not_found;
    EXPECT_EQ(&code.category(), &errc::artnet_parser_error_category::get());
    EXPECT_EQ(code.message(), "ArtNet header not found");
    EXPECT_FALSE(std::error_code(errc::no_error));
}
