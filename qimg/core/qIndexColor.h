// qIndexColor.h: qIIndexColor, the palette-editing side of an image.
//
// Indices are palette entries. Each implementation may refuse an edit (false). Where the
// transparency lives differs by class: a colour index image edits the alphas of its own colour
// map, a GIF frame the transparent index of its graphic control, a plain index image refuses
// every edit, and frame decorators and animations pass the call on.
#pragma once

#include "qimg/core/qExport.h"
#include "qimg/core/qPixel.h"

class QIMG_API qIIndexColor {
public:
    virtual ~qIIndexColor();
    // Removes all transparency: every palette entry is drawn opaque afterwards.
    virtual void set_opaque_all() = 0;
    // Entry `index` is drawn transparent afterwards; false when refused.
    virtual bool set_transparent(int index) = 0;
    // Entry `index` becomes the only transparent entry; false when refused.
    virtual bool set_ex_transparent(int index) = 0;
    // Entry `index` takes `color`, alpha included; false when refused.
    virtual bool set_color(int index, qPixRA color) = 0;
    // The transparent index: the image's own one where it has one, else the lowest colour-map
    // entry with alpha 0; -1 when there is none or the image is not valid.
    virtual int min_t_index() const = 0;
};
