#pragma once
// JSON texts that any reader of JSON may be given.

#include <string>
#include <vector>

#include "target.h"

namespace fuzz {

inline std::vector<Seed> json_seeds() {
    return {
        {"nothing", ""},
        {"empty_array", "[]"},
        {"empty_object", "{}"},
        {"plain_number", "3"},
        {"half_written", R"([{"Id": 3, "Lo)"},
        {"byte_order_mark", "\xEF\xBB\xBF[]"},
        {"deep", std::string(100, '[') + std::string(100, ']')},
        {"not_utf8", "[\"\xFF\xC0\x80\"]"},
        {"lone_surrogate", R"(["\ud800"])"},
        {"nul", std::string("[\"a\0b\"]", 7)},
        {"escapes", R"(["\u0000\n\"\\\/%n%s"])"},
        {"long_number", "[" + std::string(60, '9') + "]"},
    };
}

}  // namespace fuzz
