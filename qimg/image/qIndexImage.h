// qIndexImage.h: qIndexImage, an 8-bit index buffer drawn through a colour map it does not own.
//
// The image owns its pixels (rows padded to 4 bytes) and refers to a colour map that somebody
// else owns and keeps alive at least as long as the image refers to it: a GIF frame or
// animation, or the qColorIndexImage that wraps the image. It may also store a transparent
// index, the one palette entry drawn transparent whatever the map's alphas say.
//
//   qColormap palette;                               // owned by the caller
//   palette.create(16);
//   qIndexImage image;
//   image.Create_buffer(qSize(32, 32), PT_INDEX8);   // forgets any previous map
//   image.set_colormap(&palette, 0);                 // entry 0 is drawn transparent
//
// The plain index image refuses every palette edit: it cannot edit a map it does not own. Wrap
// it in a qColorIndexImage (or hand it to qImageProxy::Set) to edit colours and transparency.
#pragma once

#include "qimg/core/qComponent.h"
#include "qimg/core/qExport.h"
#include "qimg/core/qImageBuffer.h"

class qIMonitor;

class QIMG_API qIndexImage : public qILeaf, public qIIndexImage {
public:
    qIndexImage() = default;
    ~qIndexImage() override;
    qIndexImage(const qIndexImage&) = delete;
    qIndexImage& operator=(const qIndexImage&) = delete;

    // Empties the image (pixels, type, size, colour map, transparent index), then makes a
    // zeroed buffer of `size` pixels of `type` (PT_INDEX8 for everything the library makes);
    // pages of a large buffer cost no memory until they are written. ST_OK; ST_UNSUPPORTED for a
    // type without storage size, a width or height <= 0 or a buffer above 2^31 - 1 bytes;
    // ST_NO_MEMORY when memory runs out. Empty after a failure. Call set_colormap next. The
    // block has kSpareBytes writable bytes behind the last row, outside the image.
    int Create_buffer(qSize size, qPixelType type);
    // Room behind the pixels for writers that move 16 bytes at a time (the GIF decoder).
    static constexpr int kSpareBytes = 16;
    // Refers to `colormap` (borrowed) from now on. When 0 <= transparent_index < the map's
    // num_colors() that entry becomes the transparent index; any other value (-1 included)
    // keeps the stored one. ST_OK; ST_BAD_ARGUMENT for a null map or one without entries (nothing
    // changes).
    int set_colormap(const qIColormap* colormap, int transparent_index);
    // The same, but a transparent index at or past the map's end (up to 255) is kept too: the
    // map lacks that entry, and pixels of that index draw transparent (as browsers show GIFs).
    int set_colormap_keeping(const qIColormap* colormap, int transparent_index);
    // Empties the image, then copies the indices of `source` and refers to `colormap`, or to
    // the source's own map when `colormap` is null; the transparent index becomes the source's
    // min_t_index(). `colormap` must hold the same entries as the source's map: indices are
    // copied unchanged. A PT_INDEX16 source gives the first byte of each pixel.
    // ST_OK; ST_BAD_ARGUMENT for a null source, no map at all, or a `colormap` whose entries differ
    // from the source's; ST_UNSUPPORTED for a source of another pixel type; ST_NO_MEMORY when
    // memory runs out or a map has no usable entries. Empty after a failure.
    int copy_from(const qIIndexImage* source, const qIColormap* colormap = nullptr);
    // Fills every index by mapping `source` (PT_BGRA32, or PT_INDEX8 read through its colour map
    // with its min_t_index() as alpha 0) through this image's colour map, using the
    // nearest-colour cache. QT_NEAREST maps each pixel on its own; any other quantizer diffuses
    // the colour error (scaled by color_strength) and, with alpha_strength > 0 and `opaque`
    // false, the alpha error, serpentine. With `opaque` false a pixel of alpha 0 (or of
    // diffused alpha below 128 when alpha is diffused) takes the map's transparent entry and
    // every other pixel an opaque colour; with `opaque` true every pixel gets an opaque colour.
    // The source must be at least this image's size; its top-left part is read.
    // ST_OK; ST_CANCELLED when the monitor stopped it after a row (the rows done so far keep their
    // indices, the rest are as they were); ST_BAD_ARGUMENT this image not valid, a null or too
    // small source, an indexed source without colour map; ST_UNSUPPORTED a source of another pixel
    // type; ST_UNMAPPABLE a pixel that has no index (an alpha-0 pixel and a map without transparent
    // entry); ST_NO_MEMORY.
    // `palette_kind` CM_QUALITY maps to the exact nearest colour and dithers the quality kind's
    // way (qQualityMappingPriv.h; alpha two-level, alpha_strength unused); others as above.
    int map_from_image(const qIImageBuffer* source, qQuantizer quantizer, bool opaque,
                       float color_strength, float alpha_strength, qIMonitor* monitor,
                       qCmapType palette_kind = CM_ADAPTIVE);
    // The stored transparent index, -1 for none. Unlike min_t_index() it does not fall back to
    // the colour map's first transparent entry.
    int transparent_index() const { return transparent_; }
    // Stops referring to the colour map (the transparent index stays); the image is not valid
    // until the next set_colormap. For an owner about to destroy the map the image refers to.
    void clear_colormap() { colormap_ = nullptr; }

    // ---- qIComponent / qILeaf --------------------------------------------------------------
    // A new qIndexImage with a copy of the indices that refers to the same colour map object;
    // its transparent index is this image's min_t_index(). Null when this image is not valid
    // or memory runs out.
    qIComponent* clone() const override;
    // Draws like qDirectImage::Draw, through a private copy of the palette in which the stored
    // transparent index (when there is one) is the only transparent entry. Copies (BLT_COPY)
    // when `opaque` is true or alpha_hint() is AT_OPAQUE; otherwise composites over the target
    // (BLT_OVER). ST_NO_MEMORY also when the image has no usable colour map.
    int Draw(qImageEdit* target, qRect rect, qPoint point, float scale_x, float scale_y,
             bool opaque) const override;
    // Pixel type set, width and height > 0, pixels, and a colour map with at least one entry.
    bool valid() const override;
    qSize size() const override { return qSize(width_, height_); }
    // AT_BILEVEL when a transparent index is stored; else the colour map's kind; AT_NONE
    // without a map.
    qAlphaType alpha_hint() const override;
    // The map referred to (borrowed); null when none is set.
    const qIColormap* colormap() const override { return colormap_; }
    // The index stored at column point.x of row point.y; -1 outside the image or without pixels.
    int pixel_index(qPoint point) const override;
    qComponentType component_type() const override { return CT_INDEX_IMAGE; }
    qIComponent* current_leaf() const override;
    qComponentType leaf_type() const override { return CT_INDEX_IMAGE; }

    // ---- qIImageBuffer ---------------------------------------------------------------------
    // The rule of qDirectImage::pixel_address.
    unsigned char* pixel_address(int row, int column) const override;
    qPixelType pixel_type() const override { return type_; }

    // ---- qIIndexColor: the palette belongs to someone else, so every edit is refused -------
    void set_opaque_all() override {}
    bool set_transparent(int) override { return false; }
    bool set_ex_transparent(int) override { return false; }
    bool set_color(int, qPixRA) override { return false; }
    // -1 when not valid; the stored transparent index when there is one; else the colour
    // map's lowest entry with alpha 0 (-1 for none).
    int min_t_index() const override;

private:
    // Frees the pixels, zeroes type and size, forgets the map and the transparent index.
    void clear();
    int fail(int code);

    qPixelType type_ = static_cast<qPixelType>(0);
    int width_ = 0;
    int height_ = 0;
    unsigned char* pixels_ = nullptr;
    const qIColormap* colormap_ = nullptr;
    int transparent_ = -1;
};
