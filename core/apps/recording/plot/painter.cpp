#include "plot/painter.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <cstring>
#include <string>

#include "inspect/wording.h"
#include "plot/axis.h"
#include "plot/cairo_owner.h"

namespace plot {

namespace {

// All in pixels.
constexpr int kLeft = 84;
constexpr int kRight = 70;
constexpr int kTop = 58;
constexpr int kIntervalHeight = 96;
constexpr int kGap = 26;
constexpr int kBottom = 48;
constexpr int kTickLength = 4;
constexpr double kFont = 11;
constexpr double kTitleFont = 14;
/// Panels share this height, each within its limits.
constexpr int kPanelsHeight = 1100;
constexpr int kLeastPanel = 40;
constexpr int kMostPanel = 256;
constexpr int kPixelsPerTimeTick = 80;

constexpr double kMillisecond = 1e6;
constexpr double kSecond = 1e9;
/// Frame period of a full DMX line.
constexpr double kDmxLimit = 1000.0 / 44.0;
/// Beyond this ratio of the longest interval to the median, the axis is logarithmic.
constexpr double kLinearRatio = 20;

struct Colour {
    double red;
    double green;
    double blue;
};
constexpr Colour kInk{0.13, 0.13, 0.15};
constexpr Colour kFaint{0.87, 0.87, 0.89};
constexpr Colour kGrey{0.45, 0.45, 0.48};
constexpr Colour kInterval{0.12, 0.36, 0.72};
constexpr Colour kLimit{0.80, 0.25, 0.20};
/// Nothing is sent: not a grey, so that it is told from a level of 0.
constexpr std::uint32_t kNothingPixel = 0xFF26'3A5E;

enum class Align { Left, Centre, Right };

/// Rounds to the middle of a pixel, where a line of one pixel is sharp.
double sharp(double position) {
    return std::floor(position) + 0.5;
}

int panel_height(const UniverseMap& universe, std::size_t panels) {
    const int share = std::clamp(kPanelsHeight / static_cast<int>(panels), kLeastPanel, kMostPanel);
    // Few channels as bands of whole pixels.
    return universe.channels < share
               ? universe.channels * std::max(1, std::min(share / universe.channels, 16))
               : share;
}

/// One picture being drawn.
class Painter {
public:
    Painter(cairo_t* context, const LevelMap& map, const Section& section, int width)
        : cr_(context), map_(map), section_(section), right_(width - kRight) {
        cairo_select_font_face(cr_, "sans-serif", CAIRO_FONT_SLANT_NORMAL, CAIRO_FONT_WEIGHT_NORMAL);
        cairo_set_line_width(cr_, 1);
    }

    /// @param on_universe  told of the universes drawn
    void draw(const Caption& caption, int height, const std::function<void(std::uint64_t)>& on_universe) {
        colour({1, 1, 1});
        cairo_paint(cr_);
        draw_caption(caption);
        int top = kTop + kGap / 2;
        draw_intervals(top);
        top += kIntervalHeight + kGap;
        const int levels_top = top;
        std::uint64_t drawn = 0;
        for (const UniverseMap& universe : map_.universes) {
            const int panel = panel_height(universe, map_.universes.size());
            draw_universe(universe, top, panel);
            top += panel + kGap;
            on_universe(++drawn);
        }
        draw_time_axis(top - kGap);
        draw_legend(levels_top, height);
    }

private:
    void colour(const Colour& c) { cairo_set_source_rgb(cr_, c.red, c.green, c.blue); }

    void text(double x, double y, const std::string& words, Align align, double size = kFont,
              const Colour& ink = kInk) {
        cairo_set_font_size(cr_, size);
        cairo_text_extents_t extents;
        cairo_text_extents(cr_, words.c_str(), &extents);
        const double shift = align == Align::Left    ? 0
                             : align == Align::Right ? -extents.x_advance
                                                     : -extents.x_advance / 2;
        colour(ink);
        cairo_move_to(cr_, x + shift, y);
        cairo_show_text(cr_, words.c_str());
    }

    void upright_text(double x, double y, const std::string& words) {
        cairo_save(cr_);
        cairo_translate(cr_, x, y);
        cairo_rotate(cr_, -M_PI / 2);
        text(0, 0, words, Align::Centre);
        cairo_restore(cr_);
    }

    void line(double x1, double y1, double x2, double y2, const Colour& ink) {
        colour(ink);
        cairo_move_to(cr_, x1, y1);
        cairo_line_to(cr_, x2, y2);
        cairo_stroke(cr_);
    }

    void frame(int top, int height) {
        colour(kGrey);
        cairo_rectangle(cr_, kLeft - 0.5, top - 0.5, right_ - kLeft + 1, height + 1);
        cairo_stroke(cr_);
    }

    [[nodiscard]] double from() const { return static_cast<double>(section_.from.count()) / kSecond; }
    [[nodiscard]] double to() const { return static_cast<double>(section_.to.count()) / kSecond; }
    [[nodiscard]] double x_of(double seconds) const {
        return kLeft + (seconds - from()) / (to() - from()) * (right_ - kLeft);
    }
    [[nodiscard]] std::vector<Tick> ticks() const {
        return time_ticks(from(), to(), std::max(2, (right_ - kLeft) / kPixelsPerTimeTick));
    }

    void draw_caption(const Caption& caption) {
        text(kLeft, 24, caption.title, Align::Left, kTitleFont);
        text(kLeft, 42, caption.subtitle, Align::Left, kFont, kGrey);
    }

    /// Height of an interval within the panel, 0 to 1.
    [[nodiscard]] double interval_height(double milliseconds) const {
        if (logarithmic_) {
            return std::log(std::max(milliseconds, low_) / low_) / std::log(high_ / low_);
        }
        return milliseconds / high_;
    }

    void scale_intervals() {
        const double longest = static_cast<double>(map_.longest.count()) / kMillisecond;
        const double median = static_cast<double>(map_.median.count()) / kMillisecond;
        high_ = longest > 0 ? longest * 1.15 : 1;
        logarithmic_ = median > 0 && longest > kLinearRatio * median;
        if (!logarithmic_) {
            return;
        }
        low_ = median;
        for (const IntervalColumn& column : map_.intervals) {
            if (column.shortest.count() > 0) {
                low_ = std::min(low_, static_cast<double>(column.shortest.count()) / kMillisecond);
            }
        }
        // Whole powers of ten, so that the ends are marked.
        low_ = std::pow(10.0, std::floor(std::log10(std::max(low_, 0.001))));
        high_ = std::pow(10.0, std::ceil(std::log10(high_)));
    }

    void draw_intervals(int top) {
        scale_intervals();
        const int bottom = top + kIntervalHeight;
        const auto y_of = [&](double milliseconds) {
            return bottom - interval_height(milliseconds) * kIntervalHeight;
        };
        text(kLeft, top - 6, interval_text(), Align::Left);
        for (const Tick& tick : logarithmic_ ? power_ticks(low_, high_) : linear_ticks(high_, 4)) {
            const double y = sharp(y_of(tick.value));
            line(kLeft, y, right_, y, kFaint);
            line(kLeft - kTickLength, y, kLeft, y, kGrey);
            text(kLeft - kTickLength - 3, y + 4, tick.label, Align::Right);
        }
        for (const Tick& tick : ticks()) {
            line(sharp(x_of(tick.value)), top, sharp(x_of(tick.value)), bottom, kFaint);
        }
        if (const double limit = interval_height(kDmxLimit); limit > 0 && limit < 1) {
            const double y = sharp(y_of(kDmxLimit));
            const std::array<double, 2> dashes{4, 3};
            cairo_set_dash(cr_, dashes.data(), static_cast<int>(dashes.size()), 0);
            line(kLeft, y, right_, y, kLimit);
            cairo_set_dash(cr_, nullptr, 0, 0);
            text(right_ + 5, y + 4, "44 Hz", Align::Left, kFont, kLimit);
        }
        colour(kInterval);
        const double column_width = static_cast<double>(right_ - kLeft) / section_.columns;
        for (std::size_t column = 0; column < map_.intervals.size(); ++column) {
            const IntervalColumn& cell = map_.intervals[column];
            if (cell.longest.count() == 0) {
                continue;
            }
            const double high = y_of(static_cast<double>(cell.longest.count()) / kMillisecond);
            const double low = y_of(static_cast<double>(cell.shortest.count()) / kMillisecond);
            cairo_rectangle(cr_, kLeft + static_cast<double>(column) * column_width, high - 1, column_width,
                            low - high + 2);
        }
        cairo_fill(cr_);
        frame(top, kIntervalHeight);
        upright_text(20, top + kIntervalHeight / 2.0, "interval (ms)");
    }

    [[nodiscard]] std::string interval_text() const {
        if (map_.frames == 0) {
            return "Frame intervals: no frame begins here";
        }
        return "Frame intervals: median " + inspect::time_text(map_.median) + ", p99 " +
               inspect::time_text(map_.p99) + ", longest " + inspect::time_text(map_.longest);
    }

    void draw_universe(const UniverseMap& universe, int top, int height) {
        text(kLeft, top - 6,
             "Universe " + std::to_string(universe.universe) + " (net " +
                 std::to_string(universe.universe >> 8) + ", sub-net " +
                 std::to_string(universe.universe >> 4 & 15) + ", universe " +
                 std::to_string(universe.universe & 15) + ")",
             Align::Left);
        paint_levels(universe, top, height);
        frame(top, height);
        draw_channel_axis(universe, top, height);
    }

    /// One pixel a column and row, stretched to the panel without smoothing.
    void paint_levels(const UniverseMap& universe, int top, int height) {
        const int rows = std::min(height, universe.channels);
        const Surface image(cairo_image_surface_create(CAIRO_FORMAT_RGB24, section_.columns, rows));
        unsigned char* const pixels = cairo_image_surface_get_data(image.get());
        const std::ptrdiff_t stride = cairo_image_surface_get_stride(image.get());
        for (int row = 0; row < rows && pixels != nullptr; ++row) {
            const int first = row * universe.channels / rows;
            const int behind = std::max(first + 1, (row + 1) * universe.channels / rows);
            for (int column = 0; column < section_.columns; ++column) {
                std::int16_t level = UniverseMap::kNothing;
                for (int channel = first; channel < behind; ++channel) {
                    level = std::max(level, universe.level(column, channel));
                }
                const auto grey = static_cast<std::uint32_t>(std::max<std::int16_t>(level, 0));
                const std::uint32_t pixel =
                    level == UniverseMap::kNothing ? kNothingPixel : 0xFF00'0000U | grey * 0x01'0101U;
                std::memcpy(pixels + row * stride + std::ptrdiff_t{4} * column, &pixel, sizeof pixel);
            }
        }
        cairo_surface_mark_dirty(image.get());
        cairo_save(cr_);
        cairo_translate(cr_, kLeft, top);
        cairo_scale(cr_, static_cast<double>(right_ - kLeft) / section_.columns,
                    static_cast<double>(height) / rows);
        cairo_set_source_surface(cr_, image.get(), 0, 0);
        cairo_pattern_set_filter(cairo_get_source(cr_), CAIRO_FILTER_NEAREST);
        cairo_paint(cr_);
        cairo_restore(cr_);
    }

    void draw_channel_axis(const UniverseMap& universe, int top, int height) {
        const auto mark = [&](int channel) {
            const double y = sharp(top + (channel - 0.5) / universe.channels * height);
            line(kLeft - kTickLength, y, kLeft, y, kGrey);
            text(kLeft - kTickLength - 3, y + 4, std::to_string(channel), Align::Right);
            return y;
        };
        const double first = mark(1);
        constexpr double kRoom = 13;
        double previous = first;
        const std::vector<Tick> marks = linear_ticks(universe.channels, std::max(1, height / 40));
        const double last = top + (universe.channels - 0.5) / universe.channels * height;
        for (const Tick& tick : marks) {
            const auto channel = static_cast<int>(std::lround(tick.value));
            const double y = top + (channel - 0.5) / universe.channels * height;
            if (channel > 1 && channel == tick.value && y - previous >= kRoom && last - y >= kRoom) {
                previous = mark(channel);
            }
        }
        if (universe.channels > 1 && last - previous >= kRoom - 1) {
            mark(universe.channels);
        }
        upright_text(20, top + height / 2.0, height >= 60 ? "channel" : "ch.");
    }

    void draw_time_axis(int y) {
        for (const Tick& tick : ticks()) {
            const double x = sharp(x_of(tick.value));
            line(x, y + 1, x, y + 1 + kTickLength, kGrey);
            text(x, y + kTickLength + 14, tick.label, Align::Centre);
        }
        text((kLeft + right_) / 2.0, y + kTickLength + 32,
             !in_minutes(from(), to()) ? "time (s)"
             : to() >= 3600            ? "time (h:min:s)"
                                       : "time (min:s)",
             Align::Centre);
    }

    void draw_legend(int top, int height) {
        constexpr int kWidth = 12;
        const int bar = std::min(128, std::max(64, height - top - kBottom - kGap));
        const double x = right_ + 12;
        cairo_pattern_t* const shades = cairo_pattern_create_linear(0, top + bar, 0, top);
        cairo_pattern_add_color_stop_rgb(shades, 0, 0, 0, 0);
        cairo_pattern_add_color_stop_rgb(shades, 1, 1, 1, 1);
        cairo_rectangle(cr_, x, top, kWidth, bar);
        cairo_set_source(cr_, shades);
        cairo_fill(cr_);
        cairo_pattern_destroy(shades);
        colour(kGrey);
        cairo_rectangle(cr_, x - 0.5, top - 0.5, kWidth + 1, bar + 1);
        cairo_stroke(cr_);
        text(x, top - 6, "level", Align::Left);
        text(x + kWidth + 5, top + 8, "255", Align::Left);
        text(x + kWidth + 5, top + bar / 2.0 + 4, "128", Align::Left);
        text(x + kWidth + 5, top + bar, "0", Align::Left);
        // What is not sent, in the colour of its pixels.
        const double box = top + bar + 14;
        colour({(kNothingPixel >> 16 & 0xFF) / 255.0, (kNothingPixel >> 8 & 0xFF) / 255.0,
                (kNothingPixel & 0xFF) / 255.0});
        cairo_rectangle(cr_, x, box, kWidth, kWidth);
        cairo_fill(cr_);
        text(x + kWidth + 5, box + kWidth - 2, "none", Align::Left);
    }

    cairo_t* cr_;
    const LevelMap& map_;
    const Section& section_;
    int right_;
    bool logarithmic_ = false;
    double low_ = 1;
    double high_ = 1;
};

}  // namespace

int level_columns(int width) {
    return width - kLeft - kRight;
}

int picture_height(const LevelMap& map) {
    int height = kTop + kGap / 2 + kIntervalHeight + kGap;
    for (const UniverseMap& universe : map.universes) {
        height += panel_height(universe, map.universes.size()) + kGap;
    }
    return std::max(height - kGap + kBottom, 330);
}

void paint(cairo_t* context, const LevelMap& map, const Section& section, const Caption& caption, int width,
           const std::function<void(std::uint64_t)>& on_universe) {
    Painter(context, map, section, width).draw(caption, picture_height(map), on_universe);
}

}  // namespace plot
