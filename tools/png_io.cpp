#include "png_io.h"

#include <png.h>

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

bool write_png_bgra(const std::string& path, const unsigned char* pixels, int width, int height,
                    int stride, std::string& error) {
    if (!pixels || width <= 0 || height <= 0) {
        error = "nothing to write";
        return false;
    }
    png_image image{};
    image.version = PNG_IMAGE_VERSION;
    image.width = static_cast<png_uint_32>(width);
    image.height = static_cast<png_uint_32>(height);
    image.format = PNG_FORMAT_BGRA;
    if (!png_image_write_to_file(&image, path.c_str(), 0, pixels, stride, nullptr)) {
        return fail(error, image, "cannot write the PNG");
    }
    return true;
}

bool write_png_indexed(const std::string& path, const unsigned char* indices, int width, int height,
                       int stride, const qIColormap& palette, std::string& error) {
    const int colors = palette.num_colors();
    if (!indices || width <= 0 || height <= 0 || colors < 1 || colors > 256) {
        error = "nothing to write";
        return false;
    }
    // The palette as RGBA; libpng writes PLTE, and tRNS when an entry is not opaque.
    unsigned char rgba[256 * 4];
    for (int i = 0; i < colors; ++i) {
        const qPixRA c = palette.get_color(i);
        rgba[i * 4 + 0] = c.red;
        rgba[i * 4 + 1] = c.green;
        rgba[i * 4 + 2] = c.blue;
        rgba[i * 4 + 3] = c.alpha;
    }
    png_image image{};
    image.version = PNG_IMAGE_VERSION;
    image.width = static_cast<png_uint_32>(width);
    image.height = static_cast<png_uint_32>(height);
    image.format = PNG_FORMAT_RGBA_COLORMAP;
    image.colormap_entries = static_cast<png_uint_32>(colors);
    if (!png_image_write_to_file(&image, path.c_str(), 0, indices, stride, rgba)) {
        return fail(error, image, "cannot write the PNG");
    }
    return true;
}
