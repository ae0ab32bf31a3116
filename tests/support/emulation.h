#pragma once
// Whether the programs under test run under an emulator, for limits that an emulator cannot keep.

#include <cstdlib>
#include <string_view>

/// True under `scripts/cross --test`, which sets CUEWRIGHT_EMULATION=yes. Any other value says no, as it does
/// to the scripts.
[[nodiscard]] inline bool is_emulated() {
    const char* value = std::getenv("CUEWRIGHT_EMULATION");
    return value != nullptr && std::string_view(value) == "yes";
}
