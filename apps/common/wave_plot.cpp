#include "common/wave_plot.h"

#include "common/ticks.h"

#include <cairo-svg.h>
#include <cairo.h>
#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <memory>

namespace {

struct SurfaceCloser {
    void operator()(cairo_surface_t* surface) const { cairo_surface_destroy(surface); }
};
struct ContextCloser {
    void operator()(cairo_t* context) const { cairo_destroy(context); }
};
using Surface = std::unique_ptr<cairo_surface_t, SurfaceCloser>;
using Context = std::unique_ptr<cairo_t, ContextCloser>;

// Display colours: a dark screen, a grey grid, a yellow trace.
constexpr double kBackground[] = {0.07, 0.08, 0.10};
constexpr double kGrid[] = {0.25, 0.27, 0.30};
constexpr double kText[] = {0.85, 0.87, 0.90};
constexpr double kTrace[] = {0.98, 0.82, 0.20};

void SetColour(cairo_t* cr, const double (&rgb)[3]) { cairo_set_source_rgb(cr, rgb[0], rgb[1], rgb[2]); }

void Text(cairo_t* cr, double x, double y, const std::string& text, double align_x, double align_y) {
    cairo_text_extents_t extents;
    cairo_text_extents(cr, text.c_str(), &extents);
    cairo_move_to(cr, x - extents.width * align_x - extents.x_bearing, y - extents.height * align_y - extents.y_bearing);
    cairo_show_text(cr, text.c_str());
}

// The value range of the columns with data, widened by 5 % on both sides; a flat or
// empty picture gets a range of one around its value.
std::pair<double, double> ValueRange(const std::vector<MinMaxData<double>>& columns) {
    double lo = INFINITY, hi = -INFINITY;
    for (const auto& c : columns) {
        if (std::isnan(c.min) || std::isnan(c.max)) continue;
        lo = std::min(lo, c.min);
        hi = std::max(hi, c.max);
    }
    if (!(hi >= lo)) return {-1, 1};
    if (hi == lo) return {lo - 0.5, hi + 0.5};
    const double margin = (hi - lo) * 0.05;
    return {lo - margin, hi + margin};
}

void Draw(cairo_t* cr, const WavePlot& plot, unsigned width, unsigned height) {
    const PlotArea area = PlotAreaOf(width, height);
    SetColour(cr, kBackground);
    cairo_paint(cr);
    cairo_select_font_face(cr, "sans-serif", CAIRO_FONT_SLANT_NORMAL, CAIRO_FONT_WEIGHT_NORMAL);

    // Title and subtitle.
    SetColour(cr, kText);
    cairo_set_font_size(cr, 14);
    Text(cr, area.left, 8, plot.title, 0, 0);
    cairo_set_font_size(cr, 11);
    Text(cr, area.left + area.width, 10, plot.subtitle, 1, 0);

    const auto [value_lo, value_hi] = ValueRange(plot.columns);
    const auto x_of = [&](double t) { return area.left + (t - plot.begin) / (plot.end - plot.begin) * area.width; };
    const auto y_of = [&](double v) { return area.top + (value_hi - v) / (value_hi - value_lo) * area.height; };

    // Grid and labels: the time axis below, the value axis on the left.
    cairo_set_line_width(cr, 1);
    // Far from zero the labels count from the view's start, which the caption tells.
    const int time_ticks = std::max(2, static_cast<int>(area.width / 110));
    const double time_step = NiceStep(0, plot.end - plot.begin, time_ticks);
    const bool relative = std::fabs(plot.begin) > 100 * time_step;
    const double origin = relative ? plot.begin : 0.0;
    for (const double t : NiceTicks(plot.begin - origin, plot.end - origin, time_ticks)) {
        const double x = std::round(x_of(t + origin)) + 0.5;
        SetColour(cr, kGrid);
        cairo_move_to(cr, x, area.top);
        cairo_line_to(cr, x, area.top + area.height + 4);
        cairo_stroke(cr);
        SetColour(cr, kText);
        const std::string label = FormatTime(t, time_step);
        Text(cr, x, area.top + area.height + 8, relative ? fmt::format("+{}", label) : label, 0.5, 0);
    }
    const int value_ticks = std::max(2, static_cast<int>(area.height / 40));
    const double value_step = NiceStep(value_lo, value_hi, value_ticks);
    for (const double v : NiceTicks(value_lo, value_hi, value_ticks)) {
        const double y = std::round(y_of(v)) + 0.5;
        SetColour(cr, kGrid);
        cairo_move_to(cr, area.left - 4, y);
        cairo_line_to(cr, area.left + area.width, y);
        cairo_stroke(cr);
        SetColour(cr, kText);
        Text(cr, area.left - 8, y, FormatValue(v, value_step), 1, 0.5);
    }
    SetColour(cr, kGrid);
    cairo_rectangle(cr, area.left + 0.5, area.top + 0.5, area.width - 1, area.height - 1);
    cairo_stroke(cr);
    SetColour(cr, kText);
    const std::string caption = relative ? fmt::format("time from {:.9g} s", origin) : std::string("time");
    Text(cr, area.left + area.width / 2, height - 4.0, caption, 0.5, 1);

    // The envelope: each column a bar from its minimum to its maximum, at least one
    // pixel high, stretched to meet its left neighbour's range so that the trace is
    // unbroken; a NaN column is a gap and stays empty.
    cairo_save(cr);
    cairo_rectangle(cr, area.left, area.top, area.width, area.height);
    cairo_clip(cr);
    SetColour(cr, kTrace);
    const double column_width = area.width / static_cast<double>(plot.columns.size());
    const MinMaxData<double>* previous = nullptr;
    for (std::size_t i = 0; i < plot.columns.size(); ++i) {
        const MinMaxData<double>& c = plot.columns[i];
        if (std::isnan(c.min) || std::isnan(c.max)) {
            previous = nullptr;
            continue;
        }
        double high = c.max, low = c.min;
        if (previous != nullptr) {
            high = std::max(high, previous->min);
            low = std::min(low, previous->max);
        }
        previous = &c;
        const double top = y_of(high), bottom = y_of(low);
        const double x = area.left + static_cast<double>(i) * column_width;
        cairo_rectangle(cr, x, top - 0.5, std::max(column_width, 1.0), std::max(bottom - top, 0.0) + 1.0);
    }
    cairo_fill(cr);
    cairo_restore(cr);
}

}  // namespace

PlotArea PlotAreaOf(unsigned width, unsigned height) {
    const double left = 72, right = 16, top = 30, bottom = 44;
    return {left, top, std::max(1.0, width - left - right), std::max(1.0, height - top - bottom)};
}

bool WriteWavePlot(const std::string& path, const WavePlot& plot, PlotFormat format, unsigned width, unsigned height,
                   std::string& error) {
    if (plot.columns.empty() || !(plot.end > plot.begin)) {
        error = "nothing to draw";
        return false;
    }
    if (width < 200 || height < 120) {
        error = "a picture needs at least 200 x 120 pixels";
        return false;
    }
    Surface surface(format == PlotFormat::Svg
                        ? cairo_svg_surface_create(path.c_str(), width, height)
                        : cairo_image_surface_create(CAIRO_FORMAT_RGB24, static_cast<int>(width), static_cast<int>(height)));
    if (cairo_surface_status(surface.get()) != CAIRO_STATUS_SUCCESS) {
        error = path + ": " + cairo_status_to_string(cairo_surface_status(surface.get()));
        return false;
    }
    {
        Context context(cairo_create(surface.get()));
        Draw(context.get(), plot, width, height);
    }
    cairo_status_t status = CAIRO_STATUS_SUCCESS;
    if (format == PlotFormat::Png) {
        status = cairo_surface_write_to_png(surface.get(), path.c_str());
    } else {
        cairo_surface_finish(surface.get());
        status = cairo_surface_status(surface.get());
    }
    if (status != CAIRO_STATUS_SUCCESS) {
        error = path + ": " + cairo_status_to_string(status);
        return false;
    }
    return true;
}
