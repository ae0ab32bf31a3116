#pragma once
// Draws the lateness histogram.

#include <chrono>
#include <span>
#include <string>

#include "comparison_report.h"

namespace monitor {

enum class PlotFormat { Svg, Png };

/// By the end of the file's name; throws cli::UsageError for any but .svg and .png.
[[nodiscard]] PlotFormat plot_format_of(const std::string& path);

/// The picture's bytes. Throws cli::Failure when it cannot be drawn.
[[nodiscard]] std::string draw_lateness(const ComparisonReport& report,
                                        std::span<const std::chrono::nanoseconds> lateness,
                                        PlotFormat format);

}  // namespace monitor
