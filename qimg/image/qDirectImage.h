// qDirectImage.h: qDirectImage, the true-colour leaf.
//
// One rectangular buffer of one pixel type, owned by the object; rows are padded to 4 bytes
// (row_bytes). Callers create one, write its pixels through pixel_address() and hand it to
// qImageProxy::Set, which keeps a copy.
//
//   qDirectImage image;
//   const unsigned char white[4] = {255, 255, 255, 255};
//   image.Create_buffer(qSize(64, 48), PT_BGRA32, white);   // 0
//   image.pixel_address(0, 3)[2] = 0;                       // pixel (3, 0) loses its red
//   image.Get_alpha_hint();                                 // AT_OPAQUE: draws as a plain copy
//
// The object is either empty (no pixels, type 0, size (0, 0)) or holds a complete buffer; every
// failing operation that rebuilds the buffer leaves it empty.
#pragma once

#include "qimg/core/qComponent.h"
#include "qimg/core/qExport.h"
#include "qimg/core/qImageBuffer.h"

class QIMG_API qDirectImage : public qILeaf, public qIDirectImage {
public:
    qDirectImage() = default;
    ~qDirectImage() override;
    // An image owns its buffer; copies are made with copy_from() or clone(), which report
    // failure.
    qDirectImage(const qDirectImage&) = delete;
    qDirectImage& operator=(const qDirectImage&) = delete;

    // Empties the image, then makes a buffer of `size` pixels of `type`. The bytes are left
    // uninitialised unless `fill` points to one PT_BGRA32 colour (four bytes), which is then
    // painted over the whole buffer; only PT_BGRA32 images can be filled that way.
    // ST_OK; ST_UNSUPPORTED for a type without storage size, a width or height <= 0, a buffer above
    // 2^31 - 1 bytes, or a non-null `fill` on an image of another type; ST_NO_MEMORY when memory
    // runs out. The image is empty after any failure; the alpha hint is AT_NONE in every case.
    int Create_buffer(qSize size, qPixelType type, const unsigned char* fill);
    // Empties the image, then makes it an independent copy of `source`: same size, pixel type
    // and pixels. Only the pixel bytes of each source row are read, so unpadded rows are fine.
    // ST_OK; ST_BAD_ARGUMENT for a null or invalid source; the codes of Create_buffer. Empty after
    // a failure. The copy's alpha hint is AT_NONE whatever the source's was.
    int copy_from(const qIDirectImage* source);
    // Scans every pixel's alpha and stores the answer, which alpha_hint() and Draw then use:
    // AT_OPAQUE when every alpha is 255 (at once for PT_BGR24 and PT_GRAY8), AT_BILEVEL when
    // there are only 0 and 255 with at least one 0, AT_TRANSLUCENT as soon as one alpha lies in
    // between; AT_NONE for an empty image and for the indexed types. Later writes through
    // pixel_address() do not update it: call again after changing pixels.
    qAlphaType Get_alpha_hint();

    // ---- qIComponent / qILeaf --------------------------------------------------------------
    // A new qDirectImage copied from this one (alpha hint AT_NONE); null when this image is
    // empty or memory runs out.
    qIComponent* clone() const override;
    // Copies (BLT_COPY) when `opaque` is true or the stored alpha hint is AT_OPAQUE; otherwise
    // blends by the pixels' alpha (BLT_BLEND), which also sets a PT_BGRA32 target's alpha.
    // ST_BAD_ARGUMENT also for an empty image; ST_NO_MEMORY when memory runs out.
    int Draw(qImageEdit* target, qRect rect, qPoint point, float scale_x, float scale_y,
             bool opaque) const override;
    // Pixel type set, width and height > 0 and a buffer.
    bool valid() const override;
    qSize size() const override { return qSize(width_, height_); }
    // The value stored by the last Get_alpha_hint(); AT_NONE until then. Never scans.
    qAlphaType alpha_hint() const override { return alpha_hint_; }
    // True colour has no palette: null.
    const qIColormap* colormap() const override { return nullptr; }
    qComponentType component_type() const override { return CT_DIRECT_IMAGE; }
    // A leaf is its own current leaf.
    qIComponent* current_leaf() const override;
    qComponentType leaf_type() const override { return CT_DIRECT_IMAGE; }

    // ---- qIImageBuffer ---------------------------------------------------------------------
    // pixels + stride * row + bits_per_pixel * column / 8; null for a negative row or column or
    // when the image is empty. No upper bound is tested: stay inside size().
    unsigned char* pixel_address(int row, int column) const override;
    qPixelType pixel_type() const override { return type_; }

private:
    // Frees the buffer and zeroes every field.
    void clear();
    // clear() and `code`: the one way out of a failed rebuild.
    int fail(int code);

    qPixelType type_ = static_cast<qPixelType>(0);
    int width_ = 0;
    int height_ = 0;
    unsigned char* pixels_ = nullptr;
    qAlphaType alpha_hint_ = AT_NONE;
};
