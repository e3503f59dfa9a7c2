#include "arrays.h"

#include <climits>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

namespace py = pybind11;

namespace qimg_python {
namespace {

// BGRA <-> RGBA: the same swap both ways.
void swap_red_blue(const unsigned char* source, unsigned char* target, int pixels) {
    for (int i = 0; i < pixels; ++i) {
        std::uint32_t v;
        std::memcpy(&v, source + 4 * i, 4);
        v = (v & 0xFF00FF00u) | ((v >> 16) & 0xFFu) | ((v & 0xFFu) << 16);
        std::memcpy(target + 4 * i, &v, 4);
    }
}

}  // namespace

PixelArray PixelArray::from(const py::handle& object, const char* name) {
    if (!py::isinstance<py::array_t<unsigned char>>(object)) {
        throw py::type_error(std::string(name) + " must be a numpy array of dtype uint8");
    }
    PixelArray result;
    result.array = py::reinterpret_borrow<py::array>(object);
    const py::array& a = result.array;
    if (a.ndim() != 3 || (a.shape(2) != 3 && a.shape(2) != 4) || a.shape(0) < 1 || a.shape(1) < 1) {
        throw py::value_error(std::string(name) + " must have shape (height, width, 3 or 4)");
    }
    if (a.shape(0) > INT_MAX / 4 || a.shape(1) > INT_MAX / 4) {
        throw py::value_error(std::string(name) + " is too large");
    }
    result.height = static_cast<int>(a.shape(0));
    result.width = static_cast<int>(a.shape(1));
    result.channels = static_cast<int>(a.shape(2));
    return result;
}

const unsigned char* PixelArray::pixel(int row, int column) const {
    return static_cast<const unsigned char*>(array.data()) + row * array.strides(0) +
           column * array.strides(1);
}

int to_bgra_image(const PixelArray& pixels, qDirectImage* image) {
    const int status = image->Create_buffer(qSize(pixels.width, pixels.height), PT_BGRA32, nullptr);
    if (status != 0) return status;
    const py::ssize_t step = pixels.array.strides(1);
    const py::ssize_t channel = pixels.array.strides(2);
    for (int y = 0; y < pixels.height; ++y) {
        const unsigned char* in = pixels.pixel(y, 0);
        unsigned char* out = image->pixel_address(y, 0);
        if (pixels.channels == 4 && step == 4 && channel == 1) {
            swap_red_blue(in, out, pixels.width);
            continue;
        }
        for (int x = 0; x < pixels.width; ++x, in += step, out += 4) {
            out[0] = in[2 * channel];
            out[1] = in[channel];
            out[2] = in[0];
            out[3] = pixels.channels == 4 ? in[3 * channel] : 255;
        }
    }
    return 0;
}

py::array_t<unsigned char> rgba_from_bgra(const unsigned char* bgra, qSize size) {
    py::array_t<unsigned char> rgba({size.height, size.width, 4});
    unsigned char* out = rgba.mutable_data();
    {
        py::gil_scoped_release unlocked;
        swap_red_blue(bgra, out, size.width * size.height);
    }
    return rgba;
}

py::array_t<unsigned char> rgba_taking_bgra(unsigned char* bgra, qSize size) {
    py::capsule owner(bgra, [](void* p) { std::free(p); });
    {
        py::gil_scoped_release unlocked;
        swap_red_blue(bgra, bgra, size.width * size.height);
    }
    return py::array_t<unsigned char>({size.height, size.width, 4}, bgra, owner);
}

py::array_t<unsigned char> palette_array(const qIColormap* colormap) {
    const int n = colormap ? colormap->num_colors() : 0;
    py::array_t<unsigned char> palette({n, 4});
    if (n > 0) swap_red_blue(&colormap->colors()->blue, palette.mutable_data(), n);
    return palette;
}

}  // namespace qimg_python
