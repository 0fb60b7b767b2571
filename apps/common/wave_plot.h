#pragma once
// Pictures of min/max columns that read like an instrument's display: the envelope of
// each column from its minimum to its maximum, gaps (NaN columns) left empty, a time axis
// with ticks in engineering units, a value axis, and a title with what is shown. Drawn
// with cairo, written as PNG or SVG.

#include "dataset/records.h"

#include <string>
#include <vector>

enum class PlotFormat { Png, Svg };

struct WavePlot {
    std::string title;     // the first line, e.g. "capture: whole capture"
    std::string subtitle;  // the second line, e.g. "1000 columns, 537 k samples per column, served by the index"
    double begin = 0;      // the time of the first column's start, seconds
    double end = 0;        // the time of the last column's end, seconds
    std::vector<MinMaxData<double>> columns;
};

// The plot area of a picture of this size: the columns are drawn inside it, the axes
// and labels around it.
struct PlotArea {
    double left, top, width, height;
};
PlotArea PlotAreaOf(unsigned width, unsigned height);

// Writes the picture; false with a reason in error when nothing could be drawn or the
// file could not be written.
bool WriteWavePlot(const std::string& path, const WavePlot& plot, PlotFormat format, unsigned width, unsigned height,
                   std::string& error);
