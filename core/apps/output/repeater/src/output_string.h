#pragma once
// One output of an effect as it is written in the effects file: "universe:ip:port".

#include <variant>

#include <QString>

#include "playlist.h"

/// Why an output string is rejected; the parts are looked at in this order.
enum class OutputError { Format, Universe, Ip, Port };

struct ParsedOutput {
    /// 0 to 32767, or Playlist::kAllUniverses for "*".
    int universe = Playlist::kAllUniverses;
    Playlist::Address address;
};

/**
 * Parses one output string. Pure.
 *
 * Universe (0 to 32767) and port (1024 to 65535) are decimal integers; blanks around one and a sign before it
 * are accepted, as everywhere in Qt, so that "+1" and " 1 " are 1. A "*" stands alone, without blanks. The
 * address is an IPv4 address of 1.0.0.0 or above that is not loopback; short forms such as "10.5" are
 * accepted and stored in full, as 10.0.0.5.
 */
[[nodiscard]] std::variant<ParsedOutput, OutputError> parse_output_string(const QString& text);
