#include "lateness_plot.h"

#include <algorithm>
#include <cmath>
#include <iomanip>
#include <memory>
#include <sstream>

#include <cairo-svg.h>
#include <cairo.h>

#include "cli/failure.h"
#include "lateness.h"

namespace monitor {

namespace {

constexpr double kWidth = 960;
constexpr double kHeight = 520;
constexpr double kLeft = 80;
constexpr double kRight = 930;
constexpr double kTop = 90;
constexpr double kBottom = 450;
constexpr std::size_t kSteps = 100;

using Surface = std::unique_ptr<cairo_surface_t, decltype(&cairo_surface_destroy)>;
using Context = std::unique_ptr<cairo_t, decltype(&cairo_destroy)>;

struct Colour {
    double red, green, blue;
};
constexpr Colour kInk{0.13, 0.13, 0.15};
constexpr Colour kGrid{0.88, 0.88, 0.9};
constexpr Colour kBar{0.16, 0.47, 0.71};
constexpr Colour kMark{0.77, 0.25, 0.13};

cairo_status_t append(void* bytes, const unsigned char* data, unsigned length) {
    static_cast<std::string*>(bytes)->append(reinterpret_cast<const char*>(data), length);
    return CAIRO_STATUS_SUCCESS;
}

std::string number(double value, int decimals) {
    std::ostringstream out;
    out << std::fixed << std::setprecision(decimals) << value;
    return out.str();
}

double milliseconds(std::chrono::nanoseconds time) {
    return std::chrono::duration<double, std::milli>(time).count();
}

/// One picture being drawn: lateness to the right, the logarithm of the count upwards.
class Drawing {
public:
    Drawing(cairo_t* context, const LatenessHistogram& histogram) : context_(context), histogram_(histogram) {
        const std::uint64_t most = std::ranges::max(histogram.counts);
        decades_ = std::max(1.0, std::ceil(std::log10(static_cast<double>(most) + 1)));
        cairo_select_font_face(context_, "sans-serif", CAIRO_FONT_SLANT_NORMAL, CAIRO_FONT_WEIGHT_NORMAL);
    }

    void draw(const ComparisonReport& report) {
        colour({1, 1, 1});
        cairo_paint(context_);
        title(report);
        grid();
        bars();
        mark("p50", report.lateness.p50, 0);
        mark("p99", report.lateness.p99, 1);
        mark("p99.9", report.lateness.p999, 2);
        outside();
    }

private:
    void colour(const Colour& colour) {
        cairo_set_source_rgb(context_, colour.red, colour.green, colour.blue);
    }

    /// @param align  0: begins at x, 0.5: centred, 1: ends there
    void text(const std::string& words, double x, double y, double size, double align) {
        cairo_set_font_size(context_, size);
        cairo_text_extents_t extents;
        cairo_text_extents(context_, words.c_str(), &extents);
        cairo_move_to(context_, x - align * extents.x_advance, y);
        cairo_show_text(context_, words.c_str());
    }

    void line(double x1, double y1, double x2, double y2) {
        cairo_set_line_width(context_, 1);
        cairo_move_to(context_, x1, y1);
        cairo_line_to(context_, x2, y2);
        cairo_stroke(context_);
    }

    [[nodiscard]] double x_of(std::chrono::nanoseconds time) const {
        const double share =
            milliseconds(time - histogram_.from) / milliseconds(histogram_.to - histogram_.from);
        return kLeft + std::clamp(share, 0.0, 1.0) * (kRight - kLeft);
    }

    /// One is above the bottom line, so that a single packet can be seen.
    [[nodiscard]] double y_of(double count) const {
        const double share = count <= 0 ? 0 : (std::log10(count) + 0.2) / (decades_ + 0.2);
        return kBottom - share * (kBottom - kTop);
    }

    void title(const ComparisonReport& report) {
        colour(kInk);
        const std::string name = report.recording.substr(report.recording.rfind('/') + 1);
        text("Lateness of " + std::to_string(report.counts.matched) + " packets against " + name, kLeft, 34,
             20, 0);
        text("p50 " + number(milliseconds(report.lateness.p50), 3) + "   p99 " +
                 number(milliseconds(report.lateness.p99), 3) + "   p99.9 " +
                 number(milliseconds(report.lateness.p999), 3) + "   max " +
                 number(milliseconds(report.lateness.max), 3) + " ms     missing " +
                 std::to_string(report.counts.missing) + "   extra " + std::to_string(report.counts.extra),
             kLeft, 60, 14, 0);
    }

    void grid() {
        for (int decade = 0; decade <= static_cast<int>(decades_); ++decade) {
            const double count = std::pow(10.0, decade);
            colour(kGrid);
            line(kLeft, y_of(count), kRight, y_of(count));
            colour(kInk);
            text(number(count, 0), kLeft - 8, y_of(count) + 5, 13, 1);
        }
        constexpr int kTicks = 10;
        const std::chrono::nanoseconds width = histogram_.to - histogram_.from;
        const int decimals = milliseconds(width) < 0.1 ? 4 : milliseconds(width) < 10 ? 3 : 1;
        for (int tick = 0; tick <= kTicks; ++tick) {
            const std::chrono::nanoseconds time = histogram_.from + width * tick / kTicks;
            colour(kGrid);
            line(x_of(time), kTop, x_of(time), kBottom);
            colour(kInk);
            text(number(milliseconds(time), decimals), x_of(time), kBottom + 20, 13, 0.5);
        }
        line(kLeft, kBottom, kRight, kBottom);
        text("lateness in ms", (kLeft + kRight) / 2, kBottom + 44, 14, 0.5);
        text("packets", kLeft - 8, kTop - 12, 13, 1);
    }

    void bars() {
        colour(kBar);
        const double step = (kRight - kLeft) / static_cast<double>(histogram_.counts.size());
        for (std::size_t i = 0; i < histogram_.counts.size(); ++i) {
            const double top = y_of(static_cast<double>(histogram_.counts[i]));
            cairo_rectangle(context_, kLeft + step * static_cast<double>(i), top, step, kBottom - top);
        }
        cairo_fill(context_);
    }

    /// @param row  the names stand below each other, since the marks may lie close together
    void mark(const char* name, std::chrono::nanoseconds time, int row) {
        colour(kMark);
        line(x_of(time), kTop, x_of(time), kBottom);
        text(name, x_of(time) + 4, kTop + 14 + 16 * row, 13, x_of(time) > kRight - 60 ? 1.2 : 0);
    }

    void outside() {
        if (histogram_.below + histogram_.beyond > 0) {
            colour(kInk);
            text(std::to_string(histogram_.below) + " earlier and " + std::to_string(histogram_.beyond) +
                     " later than shown",
                 kRight, kBottom + 62, 13, 1);
        }
    }

    cairo_t* context_;
    const LatenessHistogram& histogram_;
    /// Powers of ten that the axis of counts covers.
    double decades_ = 1;
};

void check(cairo_status_t status) {
    if (status != CAIRO_STATUS_SUCCESS) {
        throw cli::Failure(std::string("cannot draw the picture: ") + cairo_status_to_string(status));
    }
}

}  // namespace

PlotFormat plot_format_of(const std::string& path) {
    if (path.ends_with(".svg")) {
        return PlotFormat::Svg;
    }
    if (path.ends_with(".png")) {
        return PlotFormat::Png;
    }
    throw cli::UsageError("--plot: expected a file name that ends in .svg or .png, not \"" + path + "\"");
}

std::string draw_lateness(const ComparisonReport& report, std::span<const std::chrono::nanoseconds> lateness,
                          PlotFormat format) {
    const LatenessHistogram histogram = histogram_of(lateness, kSteps);
    std::string bytes;
    const Surface surface(format == PlotFormat::Svg
                              ? cairo_svg_surface_create_for_stream(append, &bytes, kWidth, kHeight)
                              : cairo_image_surface_create(CAIRO_FORMAT_RGB24, static_cast<int>(kWidth),
                                                           static_cast<int>(kHeight)),
                          cairo_surface_destroy);
    {
        const Context context(cairo_create(surface.get()), cairo_destroy);
        Drawing(context.get(), histogram).draw(report);
        check(cairo_status(context.get()));
    }
    if (format == PlotFormat::Png) {
        check(cairo_surface_write_to_png_stream(surface.get(), append, &bytes));
    }
    cairo_surface_finish(surface.get());
    check(cairo_surface_status(surface.get()));
    return bytes;
}

}  // namespace monitor
