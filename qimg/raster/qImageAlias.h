// qImageAlias.h: qImageAlias, the read-only view onto pixel memory.
//
// A view presents any pixel memory (a true-colour image, an indexed image, or memory the caller
// owns) in one shape: a pixel type, a width and a height, a table with the start address of every
// row, and for indexed pixels a private copy of the palette. Every pixel operation of the library
// works on views. A view never owns pixels: it owns only its row table and palette copy, and it
// must not outlive (or be used after a change of) the memory it is bound to.
//
//   unsigned char pixels[3 * 40];
//   qImageAlias view;
//   view.Bind(pixels, qSize(10, 3), 40, PT_BGRA32);   // 0
//   view.pixel_address(2, 1);                          // pixels + 80 + 4
#pragma once

#include "qimg/core/qExport.h"
#include "qimg/core/qGeometry.h"
#include "qimg/core/qPixel.h"
#include "qimg/palette/qSafeColormap.h"

class qIColormap;
class qIImageBuffer;
class qDirectImage;
class qIndexImage;

class QIMG_API qImageAlias {
public:
    qImageAlias() = default;
    virtual ~qImageAlias();
    // A view owns its row table and palette copy; it is bound, never copied.
    qImageAlias(const qImageAlias&) = delete;
    qImageAlias& operator=(const qImageAlias&) = delete;

    // ---- binding ---------------------------------------------------------------------------
    // Every binding first releases the previous one, so a failed binding leaves the view
    // unbound. Results: ST_OK, ST_BAD_ARGUMENT null argument, ST_NO_MEMORY allocation failure or
    // unusable palette.

    // Caller memory: row r starts at pixels + r * stride. A negative stride walks a bottom-up
    // buffer top-down (`pixels` is then the top row, last in memory). Width, stride and type are
    // taken as given; the stride's magnitude must be at least row_bytes(width, type). No palette
    // copy is made. ST_BAD_ARGUMENT for null pixels; ST_NO_MEMORY for a negative height or when the
    // row table cannot be allocated. A height of 0 binds (0) but leaves the view invalid.
    int Bind(unsigned char* pixels, qSize size, int stride, qPixelType type);
    // Any image buffer, through its interface: size(), pixel_address(r, 0) once per row,
    // pixel_type(). An indexed buffer (qIIndexImage) also gets a palette copy made from its
    // colormap() with its min_t_index() as the transparent entry (ST_NO_MEMORY when that copy
    // cannot be made or is empty; the pixels stay bound). ST_BAD_ARGUMENT for a null buffer, and
    // also for a buffer that reports a positive size but no address for some row (the view stays
    // unbound).
    int Bind(const qIImageBuffer* buffer);
    // A true-colour image's pixel block, as one contiguous top-down block. ST_BAD_ARGUMENT for
    // null.
    int Bind(const qDirectImage* image);
    // An index image's pixel block with a palette copy whose transparent entry is the image's
    // own stored transparent index (-1 keeps every entry's alpha). Unlike the buffer binding,
    // it does not fall back to the palette's first transparent entry. ST_BAD_ARGUMENT for null.
    int Bind(const qIndexImage* image);

    // Unbinds: frees the row table and the palette copy, zeroes type and size.
    void release();

    // ---- accessors -------------------------------------------------------------------------
    // A non-zero type (any, also one without storage size), width > 0, height > 0 and rows.
    bool valid() const { return type_ != 0 && width_ > 0 && height_ > 0 && rows_ != nullptr; }
    qSize size() const { return qSize(width_, height_); }
    int width() const { return width_; }
    int height() const { return height_; }
    qPixelType pixel_type() const { return type_; }
    // bits_per_pixel() of the view's type: 32, 24, 16, 8, or 0 for a type without size.
    int bits_per_pixel() const { return ::bits_per_pixel(type_); }
    // The palette copy; null for views of non-indexed pixels or of raw memory.
    const qSafeColormap* colormap() const { return cmap_; }
    // Start of row `row` plus bits_per_pixel() * column / 8 bytes. Null when the view is not
    // valid or `row` lies outside 0 .. height - 1. The column is not checked: callers clip first.
    unsigned char* pixel_address(int row, int column) const;
    // The row table itself (entry r is the start of row r; null while unbound), for the drawing
    // operations, which clip first and then walk rows without a call per row.
    unsigned char* const* row_table() const { return rows_; }

protected:
    // Replaces the palette copy with one made from `palette`, `transparent_index` marking the
    // only transparent entry (-1 keeps the alphas). ST_OK when the copy has at least one entry;
    // else ST_NO_MEMORY, with the pixel binding kept and the (empty or missing) copy owned until
    // the next binding.
    int attach_palette(const qIColormap* palette, int transparent_index);

private:
    qPixelType type_ = static_cast<qPixelType>(0);
    int width_ = 0;
    int height_ = 0;
    unsigned char** rows_ = nullptr;
    qSafeColormap* cmap_ = nullptr;
};
