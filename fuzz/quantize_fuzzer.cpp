// Fuzzes palette choice and colour mapping end to end: builds a small true-colour or indexed
// image from the input, makes a palette (median cut, cube or grey ramp, with or without the
// transparent entry, sizes past 256 included), wraps it in the nearest-colour cache and maps the
// image with and without diffusion into an exactly sized index buffer. Then the same reduction
// once more through the facade (qImageProxy::quantize_colors), which builds the palette from the
// same options (its transparent entry follows `opaque`) and replaces the image by an indexed one.
//
// Input: byte 0 options, byte 1 palette size, byte 2 width, byte 3 height, bytes 4..7 the two
// strengths, then pixels (4 bytes each, or 1 index byte each after a 256-entry source palette
// for indexed images). Missing bytes read as zero.
//
// Invariants: every status is one of the documented codes, every index written is below the
// palette size, and with transparency kept a pixel of alpha 0 gets the transparent entry.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "qimg/color/qColorQuantProxy.h"
#include "qimg/color/qGifColormap.h"
#include "qimg/core/qImageBuffer.h"
#include "qimg/facade/qImageProxy.h"
#include "qimg/palette/qSafeColormap.h"
#include "qimg/raster/qImageEdit.h"
#include "tests/common/ReadOnlyIndexImage.h"

namespace {

class Input {
public:
    Input(const uint8_t* data, size_t size) : data_(data), size_(size) {}
    uint8_t next() { return pos_ < size_ ? data_[pos_++] : 0; }

private:
    const uint8_t* data_;
    size_t size_;
    size_t pos_ = 0;
};

void check(bool ok, const char* what) {
    if (!ok) {
        std::fprintf(stderr, "invariant broken: %s\n", what);
        std::abort();
    }
}

// Pixels in one exactly sized block, rows not padded.
template <class Base>
class Image : public Base {
public:
    Image(int width, int height, int bytes_per_pixel)
        : width_(width),
          height_(height),
          bpp_(bytes_per_pixel),
          bytes_(static_cast<size_t>(width) * height * bytes_per_pixel) {}
    bool valid() const override { return true; }
    unsigned char* pixel_address(int row, int column) const override {
        if (row < 0 || column < 0) return nullptr;
        return const_cast<unsigned char*>(bytes_.data()) +
               (static_cast<size_t>(row) * width_ + column) * bpp_;
    }
    qSize size() const override { return qSize(width_, height_); }
    std::vector<unsigned char>& bytes() { return bytes_; }

private:
    int width_, height_, bpp_;
    std::vector<unsigned char> bytes_;
};

class DirectImage : public Image<qIDirectImage> {
public:
    DirectImage(int width, int height) : Image(width, height, 4) {}
    qPixelType pixel_type() const override { return PT_BGRA32; }
};

class IndexImage : public Image<qtest::ReadOnlyIndexImage> {
public:
    IndexImage(int width, int height, const qIColormap* map) : Image(width, height, 1), map_(map) {}
    qPixelType pixel_type() const override { return PT_INDEX8; }
    const qIColormap* colormap() const override { return map_; }
    int min_t_index() const override { return map_->min_t_index(); }

private:
    const qIColormap* map_;
};

bool one_of(int status, std::initializer_list<int> allowed) {
    for (int a : allowed)
        if (status == a) return true;
    return false;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    Input in(data, size);
    const uint8_t options = in.next();
    const bool indexed = options & 1;
    const bool transparent = options & 2;
    const int kind = (options >> 2) & 3;  // 0 cube, 1 adaptive, 2 grey, 3 unknown
    const bool opaque = options & 16;
    const uint8_t min_alpha = (options & 32) ? 128 : 1;
    const int n = in.next() + ((options & 64) ? 200 : 0);  // up to 455: past the palette
    const int width = 1 + in.next() % 48;
    const int height = 1 + in.next() % 48;
    const float color_strength = static_cast<float>(in.next()) / 128.0f;
    const float alpha_strength = static_cast<float>(static_cast<int8_t>(in.next())) / 64.0f;
    // With kind 1, the quality palette instead of the median cut.
    const bool quality = kind == 1 && (in.next() & 1);
    in.next();

    qSafeColormap source_palette;
    if (indexed) {
        for (int i = 0; i < 256; ++i)
            source_palette.set_color(i, qPixRA{in.next(), in.next(), in.next(), in.next()});
    }
    DirectImage direct(width, height);
    IndexImage index(width, height, &source_palette);
    qIImageBuffer& image = indexed ? static_cast<qIImageBuffer&>(index) : direct;
    std::vector<unsigned char>& bytes = indexed ? index.bytes() : direct.bytes();
    for (unsigned char& byte : bytes) byte = in.next();

    qColorQuantProxy proxy;
    const qIColormap* palette = nullptr;
    if (kind == 1) {
        check(proxy.create_quantizer(quality ? CM_QUALITY : CM_ADAPTIVE) == 0, "create_quantizer");
        check(proxy.prescan_quantize(&image, min_alpha) == 0, "prescan");
        check(proxy.select_colors(n, transparent) == 0, "select_colors");
        palette = proxy.colormap();
    } else {
        const int status =
            proxy.create_fixed_colormap(n, static_cast<qCmapType>(kind), transparent);
        check(kind == 3 ? status == -6 : status == 0, "create_fixed_colormap status");
        palette = proxy.fixed_colormap();
    }
    check(palette != nullptr, "palette");
    const int colours = palette->num_colors();
    check(colours >= 0 && colours <= 256, "palette size");
    if (transparent && colours > 0) {
        check(palette->get_color(colours - 1).alpha == 0, "transparent entry last");
    }

    qGifColormap cache;
    cache.attach(palette);
    qImageAlias source;
    check(source.Bind(&image) == 0, "bind source");

    for (int pass = 0; pass < 2; ++pass) {
        std::vector<unsigned char> indices(static_cast<size_t>(width) * height, 0xEE);
        qImageEdit destination;
        check(destination.Bind(indices.data(), qSize(width, height), width, PT_INDEX8) == 0,
              "bind destination");
        const qRect area(0, 0, width, height);
        const int status =
            pass == 0 ? destination.map_colors(area, &source, qPoint(), &cache, opaque, nullptr)
                      : destination.dither_colors(area, &source, qPoint(), &cache, opaque,
                                                  color_strength, alpha_strength, nullptr);
        check(one_of(status, {0, -10}), "mapping status");
        // Without a transparent entry a transparent pixel cannot be mapped; any other failure
        // is a fault.
        if (status == -10) {
            check(colours == 0 || (!opaque && palette->min_t_index() < 0), "unexpected -10");
        }
        if (colours == 0) check(status == -10, "empty palette mapped");
        if (status != 0) continue;
        const int t = palette->min_t_index();
        for (size_t i = 0; i < indices.size(); ++i) {
            check(indices[i] < colours, "index below palette size");
            qPixRA p;
            if (indexed) {
                p = source.colormap()->get_color(bytes[i]);
            } else {
                std::memcpy(&p, &bytes[i * 4], 4);
            }
            const bool two_level = pass == 0 || !(alpha_strength > 0);
            if (!opaque && two_level && p.alpha == 0) check(indices[i] == t, "alpha 0 gets t");
        }
    }

    qImageProxy facade;
    const int set = indexed ? facade.Set(static_cast<const qIIndexImage*>(&index))
                            : facade.Set(static_cast<const qIDirectImage*>(&direct));
    check(set == 0, "Set");
    const qQuantizer quantizer = (options & 128) ? QT_DIFFUSION : QT_NEAREST;
    const qCmapType facade_kind = quality ? CM_QUALITY : static_cast<qCmapType>(kind);
    const int status = facade.quantize_colors(n, facade_kind, quantizer, opaque, color_strength,
                                              alpha_strength, min_alpha, nullptr);
    // A generated palette always has room for what it must map: a transparent entry whenever
    // transparency is kept. Only a grey ramp of no levels without transparent entry is empty,
    // and an empty palette cannot be copied (-5).
    const int expected = kind == 3 ? -6 : (kind == 2 && opaque && n < 1) ? -5 : 0;
    check(status == expected, "quantize_colors status");
    if (status != 0) return 0;
    const qIColormap* reduced = facade.colormap();
    check(reduced != nullptr && reduced->num_colors() >= 1 && reduced->num_colors() <= 256,
          "reduced palette size");
    const auto* leaf = dynamic_cast<const qIImageBuffer*>(facade.current_leaf());
    check(
        leaf != nullptr && leaf->pixel_type() == PT_INDEX8 && leaf->size() == qSize(width, height),
        "reduced image");
    const int t = reduced->min_t_index();
    check(opaque ? t < 0 : t == reduced->num_colors() - 1, "transparent entry");
    // The quality kind keeps alpha two-level whatever alpha_strength says.
    const bool two_level = quantizer == QT_NEAREST || !(alpha_strength > 0) || quality;
    for (int y = 0; y < height; ++y) {
        const unsigned char* row = leaf->pixel_address(y, 0);
        for (int x = 0; x < width; ++x) {
            check(row[x] < reduced->num_colors(), "reduced index below palette size");
            const size_t i = static_cast<size_t>(y) * width + x;
            qPixRA p;
            if (indexed) {
                p = source.colormap()->get_color(bytes[i]);
            } else {
                std::memcpy(&p, &bytes[i * 4], 4);
            }
            // (A grey ramp of no levels leaves only the transparent entry: everything maps to
            // it.)
            if (!opaque && two_level && reduced->num_colors() > 1) {
                check((row[x] == t) == (p.alpha == 0), "reduced: exactly alpha 0 gets t");
            }
        }
    }
    return 0;
}
