#pragma once
// Which of the fuzz targets a program replays.

/// Those that read JSON, or all others.
extern const bool replays_json;
