#include "demo/column_picture.h"

#include <png.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <memory>

bool WriteColumnPicture(const std::string& path, const std::vector<MinMaxData<double>>& columns, unsigned height,
                        std::string& error) {
    const auto width = static_cast<unsigned>(columns.size());
    if (width == 0 || height < 2) {
        error = "nothing to draw";
        return false;
    }
    double lo = INFINITY, hi = -INFINITY;
    for (const auto& c : columns) {
        if (std::isnan(c.min) || std::isnan(c.max)) continue;
        lo = std::min(lo, c.min);
        hi = std::max(hi, c.max);
    }
    if (!(hi >= lo)) lo = hi = 0;
    const double range = hi > lo ? hi - lo : 1.0;
    // Greyscale: white background, a margin of 5 % above and below the data.
    std::vector<png_byte> pixels(static_cast<std::size_t>(width) * height, 255);
    auto row_of = [&](double v) {
        const double y = 0.05 + 0.9 * (v - lo) / range;
        return std::clamp(static_cast<int>(std::lround((1.0 - y) * (height - 1))), 0, static_cast<int>(height) - 1);
    };
    for (unsigned x = 0; x < width; ++x) {
        const auto& c = columns[x];
        if (std::isnan(c.min) || std::isnan(c.max)) continue;
        for (int y = row_of(c.max); y <= row_of(c.min); ++y) pixels[static_cast<std::size_t>(y) * width + x] = 40;
    }

    std::unique_ptr<FILE, int (*)(FILE*)> file(std::fopen(path.c_str(), "wb"), &std::fclose);
    if (!file) {
        error = "cannot create " + path;
        return false;
    }
    png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
    png_infop info = png ? png_create_info_struct(png) : nullptr;
    if (!png || !info) {
        png_destroy_write_struct(&png, &info);
        error = "libpng could not start";
        return false;
    }
    if (setjmp(png_jmpbuf(png))) {
        png_destroy_write_struct(&png, &info);
        error = "libpng failed writing " + path;
        return false;
    }
    png_init_io(png, file.get());
    png_set_IHDR(png, info, width, height, 8, PNG_COLOR_TYPE_GRAY, PNG_INTERLACE_NONE, PNG_COMPRESSION_TYPE_DEFAULT,
                 PNG_FILTER_TYPE_DEFAULT);
    png_write_info(png, info);
    for (unsigned y = 0; y < height; ++y) png_write_row(png, pixels.data() + static_cast<std::size_t>(y) * width);
    png_write_end(png, nullptr);
    png_destroy_write_struct(&png, &info);
    return true;
}
