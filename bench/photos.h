// photos.h: the photographs the colour-reduction benchmarks share, and a qimg buffer over them.
//
// Debian's lomiri-wallpapers-20.04 installs them (`make bench` installs the package); each is
// box-reduced by a whole factor so a benchmark runs in seconds. A missing file loads as an empty
// photo, which the benchmarks skip.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "qimg/core/qImageBuffer.h"

// Private copy of the decoder: static functions only, so another benchmark file may include its
// own without clashing symbols.
#define STB_IMAGE_STATIC
#define STB_IMAGE_IMPLEMENTATION
#define STBI_ONLY_JPEG
#if defined(__GNUC__)
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wunused-function"
#pragma GCC diagnostic ignored "-Wmissing-field-initializers"
#pragma GCC diagnostic ignored "-Wsign-compare"
#pragma GCC diagnostic ignored "-Wunused-parameter"
#pragma GCC diagnostic ignored "-Wpedantic"
#endif
#include <stb_image.h>
#if defined(__GNUC__)
#pragma GCC diagnostic pop
#endif

namespace bench {

struct Photo {
    std::string name;
    int width = 0, height = 0;
    std::vector<qPixRA> bgra;         // qimg's pixel order
    std::vector<unsigned char> rgba;  // libimagequant's
};

// A true-colour buffer over the photo's pixels.
class PhotoBuffer : public qIDirectImage {
public:
    explicit PhotoBuffer(const Photo& p) : p_(p) {}
    bool valid() const override { return p_.width > 0; }
    unsigned char* pixel_address(int row, int column) const override {
        if (row < 0 || column < 0 || p_.bgra.empty()) return nullptr;
        return const_cast<unsigned char*>(reinterpret_cast<const unsigned char*>(
            p_.bgra.data() + static_cast<size_t>(row) * p_.width + column));
    }
    qSize size() const override { return qSize(p_.width, p_.height); }
    qPixelType pixel_type() const override { return PT_BGRA32; }

private:
    const Photo& p_;
};

// Loads `path` and averages each factor x factor block into one pixel (rounded).
inline Photo load(const char* name, const char* path, int factor) {
    Photo photo;
    photo.name = name;
    int w = 0, h = 0, channels = 0;
    unsigned char* rgb = stbi_load(path, &w, &h, &channels, 3);
    if (!rgb) return photo;
    photo.width = w / factor;
    photo.height = h / factor;
    const size_t count = static_cast<size_t>(photo.width) * photo.height;
    photo.bgra.resize(count);
    photo.rgba.resize(count * 4);
    for (int y = 0; y < photo.height; ++y) {
        for (int x = 0; x < photo.width; ++x) {
            int sum[3] = {0, 0, 0};
            for (int dy = 0; dy < factor; ++dy)
                for (int dx = 0; dx < factor; ++dx)
                    for (int c = 0; c < 3; ++c)
                        sum[c] +=
                            rgb[(static_cast<size_t>(y * factor + dy) * w + x * factor + dx) * 3 +
                                c];
            unsigned char v[3];
            const int n = factor * factor;
            for (int c = 0; c < 3; ++c) v[c] = static_cast<unsigned char>((sum[c] + n / 2) / n);
            const size_t i = static_cast<size_t>(y) * photo.width + x;
            photo.bgra[i] = qPixRA{v[2], v[1], v[0], 255};
            photo.rgba[i * 4 + 0] = v[0];
            photo.rgba[i * 4 + 1] = v[1];
            photo.rgba[i * 4 + 2] = v[2];
            photo.rgba[i * 4 + 3] = 255;
        }
    }
    stbi_image_free(rgb);
    return photo;
}

}  // namespace bench
