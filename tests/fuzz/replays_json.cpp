// The fuzz targets that read JSON.
#include "replayed_kind.h"

const bool replays_json = true;

/// Qt's JSON reader loses an array or object that a later one of the same key replaces (Qt 5.15.8). Nothing
/// here can free it. Only what Qt itself allocates is excused.
extern "C" const char* __lsan_default_suppressions();
extern "C" const char* __lsan_default_suppressions() {
    return "leak:libQt5Core.so.5\n";
}
