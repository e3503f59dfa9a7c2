// arrays.h: numpy arrays to and from the library's pixel layouts.
//
// Python sees RGBA (or RGB) in the last axis; the library stores BGRA. Drawing needs no
// conversion (every transfer treats the colour bytes by position), but colour reduction and
// composed frames go through a BGRA buffer.
#pragma once

#include <pybind11/numpy.h>
#include <qimg/qimg.h>

namespace qimg_python {

// A uint8 array of shape (H, W, 3) or (H, W, 4), checked: TypeError for another type or dtype,
// ValueError for another shape or a size beyond 32 bits. Any strides.
struct PixelArray {
    pybind11::array array;
    int width = 0;
    int height = 0;
    int channels = 0;

    static PixelArray from(const pybind11::handle& object, const char* name);
    const unsigned char* pixel(int row, int column) const;
};

// Copies RGB or RGBA pixels into `image` (created here as PT_BGRA32; RGB gets alpha 255).
// Needs no GIL. Returns the status of creating the buffer.
int to_bgra_image(const PixelArray& pixels, qDirectImage* image);

// A new (height, width, 4) RGBA array from packed BGRA rows. The copy runs without the GIL.
pybind11::array_t<unsigned char> rgba_from_bgra(const unsigned char* bgra, qSize size);
// The same in place: takes `bgra` (from std::malloc), which the array frees.
pybind11::array_t<unsigned char> rgba_taking_bgra(unsigned char* bgra, qSize size);

// The entries of `colormap` as a new (n, 4) RGBA array.
pybind11::array_t<unsigned char> palette_array(const qIColormap* colormap);

}  // namespace qimg_python
