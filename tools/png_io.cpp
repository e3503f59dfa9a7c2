#include "png_io.h"

#include <png.h>

#include <csetjmp>
#include <cstring>

// libpng's simplified interface reads and writes whole pictures in qimg's own byte orders:
// PNG_FORMAT_BGRA is PT_BGRA32, and a colour-mapped image is PT_INDEX8 plus an RGBA palette.

namespace {

// Large enough for any real picture, small enough that a hostile header cannot make us
// allocate gigabytes.
constexpr png_uint_32 kMaxSide = 32768;
constexpr size_t kMaxBytes = size_t{1} << 30;

bool fail(std::string& error, png_image& image, const char* fallback) {
    error = image.message[0] ? image.message : fallback;
    png_image_free(&image);
    return false;
}

}  // namespace

bool read_png(const std::string& path, PngPicture& picture, std::string& error) {
    png_image image{};
    image.version = PNG_IMAGE_VERSION;
    if (!png_image_begin_read_from_file(&image, path.c_str())) {
        return fail(error, image, "not a readable PNG");
    }
    if (image.width == 0 || image.height == 0 || image.width > kMaxSide ||
        image.height > kMaxSide || size_t{image.width} * image.height * 4 > kMaxBytes) {
        png_image_free(&image);
        error = "picture too large";
        return false;
    }
    image.format = PNG_FORMAT_BGRA;
    picture.width = static_cast<int>(image.width);
    picture.height = static_cast<int>(image.height);
    picture.pixels.resize(PNG_IMAGE_SIZE(image));
    if (!png_image_finish_read(&image, nullptr, picture.pixels.data(), picture.stride(), nullptr)) {
        return fail(error, image, "corrupt PNG");
    }
    return true;
}

namespace {

// libpng reports errors through a jump; this one keeps them off the terminal (the caller says
// what failed) and warnings too.
[[noreturn]] void on_png_error(png_structp png, png_const_charp) {
    png_longjmp(png, 1);
}
void on_png_warning(png_structp, png_const_charp) {}

// Writes 8-bit rows one at a time, so that the monitor can follow and stop the writing.
// `palette` (with `colors` entries, and `alphas` for the first `transparent` of them) makes an
// indexed PNG; without it the rows are BGRA. 0; 1 when stopped; -3 when the bytes cannot be
// written; -1 without memory.
int write_png_rows(std::FILE* file, const unsigned char* rows, int width, int height, int stride,
                   const png_color* palette, int colors, const png_byte* alphas, int transparent,
                   qIMonitor* monitor) {
    png_structp png =
        png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, on_png_error, on_png_warning);
    if (png == nullptr) return -1;
    png_infop info = png_create_info_struct(png);
    if (info == nullptr || setjmp(png_jmpbuf(png))) {
        png_destroy_write_struct(&png, &info);
        return -3;
    }
    png_init_io(png, file);
    png_set_IHDR(png, info, static_cast<png_uint_32>(width), static_cast<png_uint_32>(height), 8,
                 palette ? PNG_COLOR_TYPE_PALETTE : PNG_COLOR_TYPE_RGBA, PNG_INTERLACE_NONE,
                 PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
    if (palette) png_set_PLTE(png, info, palette, colors);
    if (palette && transparent > 0) png_set_tRNS(png, info, alphas, transparent, nullptr);
    png_write_info(png, info);
    if (!palette) png_set_bgr(png);
    int status = 0;
    for (int y = 0; y < height && status == 0; ++y) {
        png_write_row(png, rows + static_cast<size_t>(y) * static_cast<size_t>(stride));
        if (monitor && !monitor->progress(y + 1, height, 0, 1)) status = 1;
    }
    if (status == 0) png_write_end(png, nullptr);
    png_destroy_write_struct(&png, &info);
    return status;
}

}  // namespace

int write_png_bgra(std::FILE* file, const unsigned char* pixels, int width, int height, int stride,
                   qIMonitor* monitor) {
    if (!file || !pixels || width <= 0 || height <= 0) return -5;
    return write_png_rows(file, pixels, width, height, stride, nullptr, 0, nullptr, 0, monitor);
}

int write_png_indexed(std::FILE* file, const unsigned char* indices, int width, int height,
                      int stride, const qIColormap& palette, qIMonitor* monitor) {
    const int colors = palette.num_colors();
    if (!file || !indices || width <= 0 || height <= 0 || colors < 1 || colors > 256) return -5;
    png_color rgb[256];
    png_byte alphas[256];
    int transparent = 0;  // tRNS holds the alphas up to the last entry that is not opaque
    for (int i = 0; i < colors; ++i) {
        const qPixRA c = palette.get_color(i);
        rgb[i] = png_color{c.red, c.green, c.blue};
        alphas[i] = c.alpha;
        if (c.alpha != 255) transparent = i + 1;
    }
    return write_png_rows(file, indices, width, height, stride, rgb, colors, alphas, transparent,
                          monitor);
}
