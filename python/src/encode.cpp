// qimg.save_gif: frames given as numpy arrays written as a GIF, to a file or to bytes.
#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>
#include <qimg/qimg.h>

#include <memory>
#include <string>
#include <vector>

#include "arrays.h"
#include "errors.h"
#include "monitor.h"

namespace py = pybind11;

namespace qimg_python {
namespace {

// A (height, width) uint8 array with C-ordered rows (copied when it has other strides).
py::array_t<unsigned char, py::array::c_style> index_frame(const py::handle& object) {
    if (!py::isinstance<py::array_t<unsigned char>>(object)) {
        throw py::type_error("indexed frames must be numpy arrays of dtype uint8");
    }
    const auto array = py::reinterpret_borrow<py::array>(object);
    if (array.ndim() != 2 || array.shape(0) < 1 || array.shape(1) < 1 || array.shape(0) > 65535 ||
        array.shape(1) > 65535) {
        throw py::value_error("indexed frames must have shape (height, width), at most 65535 each");
    }
    return py::array_t<unsigned char, py::array::c_style>(array);
}

// The palette as a colour map; `transparent` gets its first entry of alpha 0 (-1: none).
void make_colormap(const py::handle& object, qColormap& map, int& transparent) {
    if (!py::isinstance<py::array_t<unsigned char>>(object)) {
        throw py::type_error("palette must be a numpy array of dtype uint8");
    }
    const auto array = py::reinterpret_borrow<py::array>(object);
    if (array.ndim() != 2 || array.shape(0) < 1 || array.shape(0) > 256 ||
        (array.shape(1) != 3 && array.shape(1) != 4)) {
        throw py::value_error("palette must have shape (n, 3 or 4), n from 1 to 256");
    }
    const auto entries = static_cast<int>(array.shape(0));
    check_status(map.create(entries), "palette");
    transparent = -1;
    for (int i = 0; i < entries; ++i) {
        const auto channel = [&](int c) {
            return *static_cast<const unsigned char*>(array.data(i, c));
        };
        const unsigned char alpha = array.shape(1) == 4 ? channel(3) : 255;
        map.set_color(i, qPixRA{channel(2), channel(1), channel(0), alpha});
        if (alpha == 0 && transparent < 0) transparent = i;
    }
}

int palette_mode(const std::string& name) {
    if (name == "shared") return PM_SHARED;
    if (name == "local") return PM_LOCAL;
    if (name == "auto") return PM_AUTO;
    throw py::value_error("palettes must be 'shared', 'local' or 'auto', not '" + name + "'");
}

py::object save_gif(const py::object& target, const py::sequence& frames, const py::object& palette,
                    const py::object& delay_ms, int loop, int colors, bool dither, bool optimize,
                    const std::string& palettes, const py::object& progress) {
    const int count = static_cast<int>(py::len(frames));
    if (count < 1) throw py::value_error("frames must hold at least one frame");
    const bool per_frame = py::isinstance<py::sequence>(delay_ms);
    if (per_frame && py::len(delay_ms) != static_cast<size_t>(count)) {
        throw py::value_error("delay_ms must be one value or one per frame");
    }
    std::vector<int> delays(static_cast<size_t>(count));
    for (int f = 0; f < count; ++f) {
        const int ms = per_frame ? py::reinterpret_borrow<py::sequence>(delay_ms)[f].cast<int>()
                                 : delay_ms.cast<int>();
        if (ms < 0 || ms > 655350) throw py::value_error("delay_ms must be 0..655350");
        delays[f] = (ms + 5) / 10;  // the format stores hundredths of a second
    }
    if (loop < 0 || loop > 65536) throw py::value_error("loop must be 0 (endless)..65536");
    const int loop_count = loop == 0 ? -1 : loop;

    qMemoryW sink;
    PythonMonitor monitor(progress);
    int status = 0;
    if (!palette.is_none()) {
        // Indexed frames go to the frame optimiser as they are.
        qColormap map;
        int transparent = -1;
        make_colormap(palette, map, transparent);
        std::vector<py::array_t<unsigned char, py::array::c_style>> indices;
        for (const py::handle frame : frames) indices.push_back(index_frame(frame));
        const qSize screen(static_cast<int>(indices[0].shape(1)),
                           static_cast<int>(indices[0].shape(0)));
        for (const auto& frame : indices) {
            if (frame.shape(0) != screen.height || frame.shape(1) != screen.width) {
                throw py::value_error("all frames must have the same size");
            }
        }
        py::gil_scoped_release unlocked;
        qGifOptimizer optimizer;
        status = optimizer.begin(&sink, screen, &map, transparent, loop_count, optimize);
        for (int f = 0; status == 0 && f < count; ++f) {
            status = optimizer.add_frame(indices[f].data(), screen.width, delays[f]);
            if (status == 0 && !monitor.progress(f + 1, count, 0, 1)) status = ST_CANCELLED;
        }
        if (status == 0) status = optimizer.finish();
    } else {
        // True-colour frames are reduced to palettes by the encoder.
        std::vector<PixelArray> pixels;
        for (const py::handle frame : frames) pixels.push_back(PixelArray::from(frame, "frame"));
        qGifEncodeOptions options;
        options.colors = colors;
        options.dither = dither;
        options.optimize = optimize;
        options.loop_count = loop_count;
        options.palettes = palette_mode(palettes);
        py::gil_scoped_release unlocked;
        std::vector<std::unique_ptr<qDirectImage>> images;
        std::vector<const qIImageBuffer*> buffers;
        for (const PixelArray& p : pixels) {
            images.push_back(std::make_unique<qDirectImage>());
            if (status == 0) status = to_bgra_image(p, images.back().get());
            buffers.push_back(images.back().get());
        }
        if (status == 0) {
            status = qGifEncoder::encode_frames(buffers.data(), delays.data(), count, options,
                                                &sink, &monitor);
        }
    }
    monitor.finish(status, "encoding the GIF");
    const auto* bytes = reinterpret_cast<const char*>(sink.data());
    if (target.is_none()) return py::bytes(bytes, static_cast<size_t>(sink.size()));
    const auto path = py::module_::import("os").attr("fspath")(target).cast<std::string>();
    qFileW file;
    status = file.open(path.c_str()) ? file.write(sink.data(), sink.size()) : ST_READ_ERROR;
    if (status == 0) status = file.close();
    if (status != 0) raise_status(status, path.c_str());
    return py::none();
}

}  // namespace

void add_encode(py::module_& m) {
    m.def("save_gif", &save_gif, py::arg("target"), py::arg("frames"), py::kw_only(),
          py::arg("palette") = py::none(), py::arg("delay_ms") = 100, py::arg("loop") = 0,
          py::arg("colors") = 256, py::arg("dither") = false, py::arg("optimize") = true,
          py::arg("palettes") = "shared", py::arg("progress") = py::none(),
          "Writes frames as an animated GIF to `target` (a path, str or os.PathLike), or returns\n"
          "its bytes when target is None.\n\n"
          "frames: (height, width, 3 or 4) RGB(A) uint8 arrays of one size, reduced to `colors`\n"
          "entries (error diffusion with dither=True; palettes='shared' one palette for all,\n"
          "'local' one per frame, 'auto' a frame's own where it halves the colour error); or,\n"
          "with `palette` ((n, 3) or (n, 4) uint8; its first entry of alpha 0 is transparent),\n"
          "(height, width) index arrays written as they are. delay_ms: one value or one per\n"
          "frame; loop: how many times it plays, 0 for endlessly. optimize=True stores only what\n"
          "changes from frame to frame. progress(done, total) hears the frames done and may\n"
          "answer False to stop (qimg.Cancelled).");
}

}  // namespace qimg_python
