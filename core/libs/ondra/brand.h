#pragma once
// The brand file: under which names and codes the device is sold.

#include <cstdint>
#include <string>

#include <QJsonObject>
#include <QString>

namespace ondra::device {

// Both come from the build's settings of the same names.
static_assert(CUEWRIGHT_DEFAULT_OEM_ID >= 0 && CUEWRIGHT_DEFAULT_OEM_ID <= 0xFFFF);
static_assert(CUEWRIGHT_DEFAULT_MANUFACTURER_ID >= 0 && CUEWRIGHT_DEFAULT_MANUFACTURER_ID <= 0xFFFF);

/// Names and codes of the device; a new object holds the built-in defaults.
struct Brand {
    std::string short_name = "Recorder";
    std::string long_name = "Torvex ArtNet Recorder";
    std::string manufacturer = "Torvex";
    std::string model = "Z-900";
    std::uint16_t oem_id = CUEWRIGHT_DEFAULT_OEM_ID;
    /// ESTA code.
    std::uint16_t manufacturer_id = CUEWRIGHT_DEFAULT_MANUFACTURER_ID;
    /// Joined with "|".
    std::string modules = "recorder";
};

/**
 * Text of `key` in `object`: a string as UTF-8, a number truncated to an integer of 32 bits (saturating), an
 * array as its elements joined with "|" (those that are no strings are empty). Empty for all else.
 */
[[nodiscard]] std::string parse_brand_field(const QString& key, const QJsonObject& object);

/// Low 16 bits of the number in `text`'s leading decimal digits, which is read with 64 bits, saturating; 0
/// without digits, so also after a sign.
[[nodiscard]] std::uint16_t parse_brand_code(const std::string& text);

/**
 * Reads a brand file, a JSON object.
 *
 * A key that the object lacks gives empty text or 0. The defaults hold only when the whole file is unusable:
 * not readable, not JSON or not an object.
 */
[[nodiscard]] Brand read_brand_file(const QString& path);

}  // namespace ondra::device
