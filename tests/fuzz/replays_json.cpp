// The fuzz targets that read JSON.
#include "replayed_kind.h"

const bool replays_json = true;

/// Qt's JSON reader loses an array or object that a later one of the same key replaces (Qt 5.15.8). Nothing
/// here can free it. Only what its reader allocates is excused.
extern "C" const char* __lsan_default_suppressions();
extern "C" const char* __lsan_default_suppressions() {
    return "leak:QJsonDocument::fromJson\n";
}

/// Qt is built without frame pointers, so that by default such a stack ends within it, at a function whose
/// name is stripped. Ten times slower, the reader's own name stands further down.
extern "C" const char* __asan_default_options();
extern "C" const char* __asan_default_options() {
    return "fast_unwind_on_malloc=0";
}
