#pragma once
// Which target a libFuzzer program runs.

/// Constant from the start: the leak sanitizer asks before main().
extern const char* const fuzz_target_name;
