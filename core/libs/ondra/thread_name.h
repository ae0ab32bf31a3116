#pragma once
// Names for threads, as debuggers and ps -L show them.

namespace ondra {

/// Names the calling thread; at most 15 characters are kept.
void name_this_thread(const char* name) noexcept;

}  // namespace ondra
