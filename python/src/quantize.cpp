// qimg.quantize: colour reduction of an RGB or RGBA array.
#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>
#include <qimg/qimg.h>

#include <cstring>
#include <string>

#include "arrays.h"
#include "errors.h"
#include "monitor.h"

namespace py = pybind11;

namespace qimg_python {
namespace {

qCmapType palette_kind(const std::string& name) {
    if (name == "quality") return CM_QUALITY;
    if (name == "adaptive") return CM_ADAPTIVE;
    if (name == "cube") return CM_CUBE;
    if (name == "grey" || name == "gray") return CM_GRAY;
    throw py::value_error("palette must be 'quality', 'adaptive', 'cube' or 'grey', not '" + name +
                          "'");
}

// The palette kinds chosen from the picture's own pixels.
bool reads_pixels(qCmapType kind) {
    return kind == CM_QUALITY || kind == CM_ADAPTIVE;
}

// At most `colors` entries, the last one transparent white unless `opaque`.
int make_palette(qColorQuantProxy* quant, const qDirectImage* source, int colors, qCmapType kind,
                 bool opaque, int min_alpha) {
    if (!reads_pixels(kind)) return quant->create_fixed_colormap(colors, kind, !opaque);
    int status = quant->create_quantizer(kind);
    if (status == 0)
        status = quant->prescan_quantize(source, static_cast<unsigned char>(min_alpha));
    if (status == 0) status = quant->select_colors(colors, !opaque);
    return status;
}

py::tuple quantize(const py::object& image, int colors, const std::string& palette, bool dither,
                   float color_strength, float alpha_strength, py::object opaque_arg, int min_alpha,
                   py::object progress) {
    const PixelArray pixels = PixelArray::from(image, "image");
    const qCmapType kind = palette_kind(palette);
    if (colors < 1 || colors > 256) throw py::value_error("colors must be 1..256");
    if (min_alpha < 0 || min_alpha > 255) throw py::value_error("min_alpha must be 0..255");
    const bool opaque = opaque_arg.is_none() ? pixels.channels == 3 : opaque_arg.cast<bool>();

    // The facade's steps without its copy of the picture: the palette, then a new index image
    // mapped from the caller's pixels.
    qDirectImage source;
    qColorQuantProxy quant;
    qIndexImage result;
    PythonMonitor monitor(std::move(progress));
    int status;
    {
        py::gil_scoped_release unlocked;
        status = to_bgra_image(pixels, &source);
        if (status == 0) status = make_palette(&quant, &source, colors, kind, opaque, min_alpha);
        const qIColormap* palette = reads_pixels(kind) ? quant.colormap() : quant.fixed_colormap();
        if (status == 0) status = result.Create_buffer(source.size(), PT_INDEX8);
        if (status == 0) status = result.set_colormap(palette, -1);
        if (status == 0) {
            status = result.map_from_image(&source, dither ? QT_DIFFUSION : QT_NEAREST, opaque,
                                           color_strength, alpha_strength, &monitor, kind);
        }
    }
    monitor.finish(status, "quantizing");

    py::array_t<unsigned char> indices({pixels.height, pixels.width});
    unsigned char* out = indices.mutable_data();
    for (int y = 0; y < pixels.height; ++y) {
        std::memcpy(out + static_cast<std::ptrdiff_t>(y) * pixels.width, result.pixel_address(y, 0),
                    static_cast<size_t>(pixels.width));
    }
    return py::make_tuple(indices, palette_array(result.colormap()));
}

}  // namespace

void add_quantize(py::module_& m) {
    m.def("quantize", &quantize, py::arg("image"), py::kw_only(), py::arg("colors") = 256,
          py::arg("palette") = "quality", py::arg("dither") = false,
          py::arg("color_strength") = 1.0f, py::arg("alpha_strength") = 1.0f,
          py::arg("opaque") = py::none(), py::arg("min_alpha") = 1,
          py::arg("progress") = py::none(),
          "Reduces an RGB or RGBA uint8 array (height, width, 3 or 4) to at most `colors`\n"
          "palette entries (1..256) and returns (indices, palette): indices a new uint8 array\n"
          "(height, width), palette a new uint8 array (n, 4) of RGBA.\n\n"
          "palette: 'quality' (the default: the least-error palette of the image's pixels whose\n"
          "alpha is at least min_alpha; a picture of no more colours comes back exact),\n"
          "'adaptive' (the faster median cut of those pixels), 'cube' (a fixed colour cube) or\n"
          "'grey' (a grey ramp).\n"
          "dither: False maps each pixel to the nearest entry; True diffuses the colour error\n"
          "scaled by color_strength, and the alpha error scaled by alpha_strength (0 keeps\n"
          "alpha two-level). With 'quality' the diffusion spares flat areas and edges, and\n"
          "alpha stays two-level (alpha_strength is not used).\n"
          "opaque: True drops transparency; False (the default for RGBA) keeps it: one entry,\n"
          "transparent white, goes last in the palette and alpha-0 pixels take it.\n"
          "progress(done, total) hears the rows done and may answer False to stop\n"
          "(qimg.Cancelled). The work runs without the GIL.");
}

}  // namespace qimg_python
