// qImageBuffer.h: raw pixel access.
//
//   qIImageBuffer  a rectangle of pixels of one type, reached row by row
//   qIDirectImage  marks a true-colour buffer (what qImageProxy::Set takes)
//   qIIndexImage   an 8-bit index buffer with the colour map that gives the indices colours
//
// The views (qImageAlias, qImageEdit) and the quantizer read images through these.
#pragma once

#include "qimg/core/qExport.h"
#include "qimg/core/qGeometry.h"
#include "qimg/core/qIndexColor.h"
#include "qimg/core/qPixel.h"

class qIColormap;

class QIMG_API qIImageBuffer {
public:
    virtual ~qIImageBuffer();
    // Pixels present, sizes positive (and a colour map where one is needed).
    virtual bool valid() const = 0;
    // Address of the pixel: rows are one stride apart (row_bytes) and the column offset is
    // column * bits_per_pixel / 8. Null when row or column is negative or there are no pixels.
    // No upper bound is tested: callers stay inside size().
    virtual unsigned char* pixel_address(int row, int column) const = 0;
    virtual qSize size() const = 0;
    virtual qPixelType pixel_type() const = 0;
};

class QIMG_API qIDirectImage : public qIImageBuffer {
public:
    ~qIDirectImage() override;
};

class QIMG_API qIIndexImage : public qIImageBuffer, public qIIndexColor {
public:
    ~qIIndexImage() override;
    // The colour map that gives the indices their colours; borrowed, null when none.
    virtual const qIColormap* colormap() const = 0;
};
