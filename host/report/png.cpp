// SPDX-License-Identifier: Apache-2.0
#include <png.h>

#include <array>
#include <cmath>

#include "host/error.h"
#include "host/report/encoders.h"

namespace krel::host {
namespace {

struct Ink {
    double red, green, blue;
};

// From the faintest to the loudest. A page with a dark ground inverts the lightness.
constexpr Ink kInks[] = {{190, 225, 215}, {100, 178, 192}, {45, 100, 165}, {22, 18, 58}};
constexpr double kFullInk =
        0.25;  // the share of the levels in which the ink goes from clear to opaque

struct Palette {
    std::array<png_color, Picture::kLevels> colours;
    std::array<png_byte, Picture::kLevels> alpha;
};

png_byte mix(double a, double b, double share) {
    return static_cast<png_byte>(std::lround(std::lerp(a, b, share)));
}

Palette make_palette() {
    Palette palette = {};
    for (size_t i = 0; i < palette.colours.size(); ++i) {
        const double share = static_cast<double>(i) / (Picture::kLevels - 1);
        const double place = share * (std::size(kInks) - 1);
        const size_t below = std::min(static_cast<size_t>(place), std::size(kInks) - 2);
        const double rest = place - static_cast<double>(below);
        const Ink& a = kInks[below];
        const Ink& b = kInks[below + 1];
        palette.colours[i] = {mix(a.red, b.red, rest), mix(a.green, b.green, rest),
                              mix(a.blue, b.blue, rest)};
        palette.alpha[i] = mix(0.0, 255.0, std::min(1.0, share / kFullInk));
    }
    return palette;
}

[[noreturn]] void on_error(png_structp /*png*/, png_const_charp why) {
    throw Error(std::string("cannot draw a picture for the report: ") + why);
}

void on_warning(png_structp /*png*/, png_const_charp /*why*/) {}

void append(png_structp png, png_bytep data, size_t size) {
    static_cast<std::string*>(png_get_io_ptr(png))->append(reinterpret_cast<char*>(data), size);
}

/// libpng's two records, freed together.
struct PngWriter {
    png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, on_error, on_warning);
    png_infop info = png_create_info_struct(png);

    PngWriter() = default;
    PngWriter(const PngWriter&) = delete;
    PngWriter& operator=(const PngWriter&) = delete;
    ~PngWriter() { png_destroy_write_struct(&png, &info); }
};

}  // namespace

std::string encode_png(const Picture& picture) {
    std::string bytes;
    const Palette palette = make_palette();
    PngWriter writer;
    png_set_write_fn(writer.png, &bytes, append, nullptr);
    png_set_IHDR(writer.png, writer.info, static_cast<png_uint_32>(picture.width),
                 static_cast<png_uint_32>(picture.height), 8, PNG_COLOR_TYPE_PALETTE,
                 PNG_INTERLACE_NONE, PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
    png_set_PLTE(writer.png, writer.info, palette.colours.data(), Picture::kLevels);
    png_set_tRNS(writer.png, writer.info, palette.alpha.data(), Picture::kLevels, nullptr);
    png_set_compression_level(writer.png, 9);
    png_write_info(writer.png, writer.info);
    for (size_t row = 0; row < picture.height; ++row) {
        png_write_row(writer.png, &picture.pixels[row * picture.width]);
    }
    png_write_end(writer.png, nullptr);
    return bytes;
}

}  // namespace krel::host
