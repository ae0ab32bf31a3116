#pragma once
// What start-up needs from the process environment.

/// True when the environment has a variable named `primary` or, failing that, `fallback`; only its presence
/// counts. A null name counts as an empty one. Main thread.
[[nodiscard]] bool init_env(const char* primary, const char* fallback);
