// The fuzz targets that read no JSON. Nothing of theirs may leak.
#include "replayed_kind.h"

const bool replays_json = false;
