// qimg.open, qimg.Animation, qimg.Frame and the composed-frame iterator.
#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>
#include <qimg/qimg.h>

#include <cerrno>
#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <mutex>
#include <vector>

#include "arrays.h"
#include "errors.h"
#include "monitor.h"

namespace py = pybind11;

namespace qimg_python {
namespace {

// What qimg.open returns. The frames never change after reading; only the animation's cursor
// moves while frames are composed, under `cursor`.
struct GifFile {
    qGifAnimation animation;
    std::mutex cursor;

    int num_frames() const { return const_cast<qGifAnimation&>(animation).num_frames(); }
};

// read_stream's answer for a stream without screen and without image.
constexpr int kNothingUsable = -1000;

// The facade's reading rules, kept here because the facade answers -1 for every stream that
// yields no screen, and Python callers should hear what was wrong with the data: complete
// frames before a break or a cancel stay, and an empty screen takes the first image's size.
int read_stream(qIFileR* source, PythonMonitor* monitor, const qGifReadOptions& options,
                qGifAnimation* animation) {
    int status = animation->read(source, monitor, options);
    if (animation->valid()) status = 0;
    if (status == 0 && animation->size().empty()) {
        const qIComponent* leaf = animation->current_leaf();
        status = leaf ? animation->set_screen_size(leaf->size()) : kNothingUsable;
    }
    return status;
}

// One frame, holding its animation alive.
struct FrameView {
    py::object owner;
    const qGifFrame* frame;
};

// The whole file at `path`; false (errno set) when it cannot be opened or read.
bool read_file(const char* path, std::vector<unsigned char>* bytes) {
    std::FILE* file = std::fopen(path, "rb");
    if (!file) return false;
    bool ok = std::fseek(file, 0, SEEK_END) == 0;
    const long size = ok ? std::ftell(file) : -1;
    ok = size >= 0 && std::fseek(file, 0, SEEK_SET) == 0;
    if (ok) {
        bytes->resize(static_cast<size_t>(size));
        ok = std::fread(bytes->data(), 1, bytes->size(), file) == bytes->size();
    }
    const int error = errno;
    std::fclose(file);
    errno = error;
    return ok;
}

// Reads `source` (a path, a bytes-like object, or a binary file object) into a new GifFile.
std::unique_ptr<GifFile> open_gif(const py::object& source, const py::object& progress,
                                  bool browser_rules) {
    auto gif = std::make_unique<GifFile>();
    qGifReadOptions options;
    options.browser_rules = browser_rules;
    PythonMonitor monitor(progress);
    int status;
    const py::module_ os = py::module_::import("os");
    if (py::isinstance<py::str>(source) || py::isinstance(source, os.attr("PathLike"))) {
        const py::bytes path = os.attr("fsencode")(source);
        const std::string name = path;
        // Read whole: one read is cheaper than the stream's many small reads and seeks. A file
        // that cannot be read is an OSError with the system's reason.
        std::vector<unsigned char> bytes;
        bool read;
        {
            py::gil_scoped_release unlocked;
            read = read_file(name.c_str(), &bytes);
        }
        if (!read) {
            PyErr_SetFromErrnoWithFilenameObject(PyExc_OSError, source.ptr());
            py::error_already_set error;
            error.value().attr("status") = static_cast<int>(ST_READ_ERROR);
            error.value().attr("status_text") = status_text(ST_READ_ERROR);
            throw error;
        }
        qMemoryR memory(bytes.data(), bytes.size());
        py::gil_scoped_release unlocked;
        status = read_stream(&memory, &monitor, options, &gif->animation);
    } else {
        py::object bytes = source;
        if (py::hasattr(source, "read")) bytes = source.attr("read")();
        if (!PyObject_CheckBuffer(bytes.ptr())) {
            throw py::type_error("open() takes a path, a bytes-like object or a binary file");
        }
        const py::buffer_info data = py::reinterpret_borrow<py::buffer>(bytes).request();
        if (data.ndim != 1 || data.strides[0] != data.itemsize) {
            throw py::value_error("open() needs contiguous bytes");
        }
        qMemoryR memory(data.ptr, static_cast<size_t>(data.size * data.itemsize));
        py::gil_scoped_release unlocked;
        status = read_stream(&memory, &monitor, options, &gif->animation);
    }
    monitor.finish(ST_OK, "reading GIF");
    // Once the source is open, every failure but a lack of memory is a fault of the data: data
    // that end early (-3), an image without colour map (-5) or of width 0 (-6) included.
    if (status == kNothingUsable) raise_status_as(format_error(), ST_NO_MEMORY, "reading GIF");
    if (status < 0 && status != ST_NO_MEMORY)
        raise_status_as(format_error(), status, "reading GIF");
    check_status(status, "reading GIF");
    return gif;
}

py::tuple rect_tuple(qRect r) {
    return py::make_tuple(r.x, r.y, r.width, r.height);
}

// The frame's indices in place: read-only, rows as the library pads them.
py::array frame_indices(const FrameView& view) {
    const qIndexImage* image = view.frame->image();
    if (image == nullptr) return py::array(py::dtype::of<unsigned char>(), {0, 0});  // no pixels
    const qSize size = image->size();
    py::array indices(py::dtype::of<unsigned char>(), {size.height, size.width},
                      {row_bytes(size.width, PT_INDEX8), 1}, image->pixel_address(0, 0),
                      view.owner);
    indices.attr("setflags")(py::arg("write") = false);
    return indices;
}

// composed(): a canvas of the screen's size on which the frames are played in order. Each frame
// goes out as a new array; the last one takes the canvas itself, so a still GIF costs one buffer.
class ComposedFrames {
public:
    ComposedFrames(py::object owner, py::object progress)
        : owner_(std::move(owner)), gif_(owner_.cast<GifFile*>()), progress_(std::move(progress)) {
        size_ = gif_->animation.size();
        const int stride = row_bytes(size_.width, PT_BGRA32);
        if (stride < 0 || size_.height <= 0 || int64_t{stride} * size_.height > INT_MAX) {
            raise_status(ST_UNSUPPORTED, "making the canvas");
        }
        pixels_.reset(
            static_cast<unsigned char*>(std::malloc(size_t{4} * size_.width * size_.height)));
        if (!pixels_) raise_status(ST_NO_MEMORY, "making the canvas");
        check_status(view_.Bind(pixels_.get(), size_, stride, PT_BGRA32), "making the canvas");
        if (gif_->num_frames() == 0) return;  // a screen without images: nothing to compose
        std::lock_guard lock(gif_->cursor);
        check_status(composer_.begin(&gif_->animation, &view_), "composing");
    }

    py::tuple next() {
        const int total = gif_->num_frames();
        if (next_ >= total) throw py::stop_iteration();
        PythonMonitor interrupt{py::none()};
        int status;
        {
            py::gil_scoped_release unlocked;
            std::lock_guard lock(gif_->cursor);
            status = composer_.compose_to(next_, &interrupt);
        }
        interrupt.finish(status, "composing");
        const int delay = gif_->animation.frame(next_)->frame_delay();
        ++next_;
        if (!progress_.is_none()) {
            PythonMonitor reporter(progress_);
            reporter.progress(next_, total, 0, 1);
            reporter.finish(ST_OK, "composing");
        }
        if (next_ < total) return py::make_tuple(rgba_from_bgra(pixels_.get(), size_), delay);
        return py::make_tuple(rgba_taking_bgra(pixels_.release(), size_), delay);
    }

    int remaining() const { return gif_->num_frames() - next_; }

private:
    struct Free {
        void operator()(unsigned char* p) const { std::free(p); }
    };

    py::object owner_;
    GifFile* gif_;
    py::object progress_;
    qSize size_;
    std::unique_ptr<unsigned char, Free> pixels_;
    qImageEdit view_;
    qFrameComposer composer_;
    int next_ = 0;
};

}  // namespace

void add_gif(py::module_& m) {
    py::class_<FrameView>(m, "Frame",
                          "One image of a GIF as stored in the file: palette indices, palette,\n"
                          "place on the screen, delay, disposal and transparent index.")
        .def_property_readonly("indices", &frame_indices,
                               "Palette indices, a read-only uint8 array (height, width) that\n"
                               "shares memory with the animation and keeps it alive.")
        .def_property_readonly(
            "palette", [](const FrameView& v) { return palette_array(v.frame->colormap()); },
            "The colours the indices refer to (local table, else the global one): a new\n"
            "uint8 array (n, 4) of RGBA.")
        .def_property_readonly(
            "rect", [](const FrameView& v) { return rect_tuple(v.frame->frame_rect()); },
            "(x, y, width, height) of the image on the screen.")
        .def_property_readonly(
            "delay_ms", [](const FrameView& v) { return v.frame->frame_delay(); },
            "Display time in milliseconds (0 when the file gives none).")
        .def_property_readonly(
            "disposal", [](const FrameView& v) { return v.frame->frame_disposal(); },
            "Disposal method 0..7: 0 or 1 keep the frame, 2 clears its rectangle to\n"
            "transparent, 3 restores what was there before; 4..7 act as 1.")
        .def_property_readonly(
            "transparent",
            [](const FrameView& v) -> py::object {
                const qIndexImage* image = v.frame->image();
                const int index = image ? image->transparent_index() : -1;
                return index < 0 ? py::object(py::none()) : py::int_(index);
            },
            "The palette index drawn transparent, or None.")
        .def_property_readonly(
            "interlaced", [](const FrameView& v) { return v.frame->interlaced(); },
            "True when the file stores the rows interlaced (indices are in display order).")
        .def("__repr__", [](const FrameView& v) {
            const qRect r = v.frame->frame_rect();
            return "<qimg.Frame " + std::to_string(r.width) + "x" + std::to_string(r.height) +
                   " at (" + std::to_string(r.x) + ", " + std::to_string(r.y) + "), " +
                   std::to_string(v.frame->frame_delay()) + " ms>";
        });

    py::class_<ComposedFrames>(m, "ComposedFrames",
                               "Iterator over (rgba, delay_ms): each frame composed on the\n"
                               "screen as a viewer shows it, a new uint8 array (height, width, 4).")
        .def("__iter__", [](py::object self) { return self; })
        .def("__next__", &ComposedFrames::next)
        .def("__len__", &ComposedFrames::remaining, "Frames still to come.");

    py::class_<GifFile>(m, "Animation",
                        "A GIF read by qimg.open(): the logical screen, the loop count, the\n"
                        "comments and the frames. len() is the frame count, a[i] the Frame i.")
        .def_property_readonly(
            "size",
            [](const GifFile& g) {
                const qSize s = g.animation.size();
                return py::make_tuple(s.width, s.height);
            },
            "(width, height) of the logical screen.")
        .def_property_readonly(
            "width", [](const GifFile& g) { return g.animation.size().width; }, "Screen width.")
        .def_property_readonly(
            "height", [](const GifFile& g) { return g.animation.size().height; }, "Screen height.")
        .def_property_readonly(
            "loop_count",
            [](const GifFile& g) {
                const int passes = g.animation.loop_count();
                return passes < 0 ? 0 : passes;
            },
            "How many times the animation plays: 0 for endlessly, 1 when the file says\n"
            "nothing, n + 1 for a file that asks for n repetitions.")
        .def_property_readonly(
            "comments",
            [](const GifFile& g) {
                py::list comments;
                for (int i = 0; i < g.animation.num_comments(); ++i) {
                    const qObjArray<char>* text = g.animation.comment(i);
                    comments.append(py::bytes(text->count() ? &(*text)[0] : "",
                                              static_cast<size_t>(text->count())));
                }
                return comments;
            },
            "The comment extensions, as a list of bytes.")
        .def("__len__", &GifFile::num_frames)
        .def(
            "__getitem__",
            [](py::object self, int index) {
                GifFile& g = self.cast<GifFile&>();
                if (index < 0) index += g.num_frames();
                if (index < 0 || index >= g.num_frames()) throw py::index_error("no such frame");
                return FrameView{self, g.animation.frame(index)};
            },
            "Frame i (negative counts from the end).")
        .def(
            "composed",
            [](py::object self, py::object progress) {
                return std::make_unique<ComposedFrames>(self, progress);
            },
            py::arg("progress") = py::none(),
            "Iterates over (rgba, delay_ms) for every frame composed with the frames before it\n"
            "and their disposal methods, as a browser shows them; rgba is a new uint8 array\n"
            "(height, width, 4). progress(done, total) hears the frames done and may answer\n"
            "False to stop (qimg.Cancelled).")
        .def("__repr__", [](const GifFile& g) {
            const qSize s = g.animation.size();
            return "<qimg.Animation " + std::to_string(s.width) + "x" + std::to_string(s.height) +
                   ", " + std::to_string(g.num_frames()) + " frames>";
        });

    m.def("open", &open_gif, py::arg("source"), py::arg("progress") = py::none(),
          py::arg("browser_rules") = true,
          "Reads a GIF, still or animated, from a path (str or os.PathLike), a bytes-like\n"
          "object or a binary file object, and returns an Animation.\n\n"
          "progress(done, total) hears the bytes read from time to time and may answer False\n"
          "to stop (qimg.Cancelled). Raises OSError when the file cannot be opened,\n"
          "qimg.FormatError for broken GIF data, MemoryError. A file that breaks off after\n"
          "complete frames opens with those frames.\n\n"
          "browser_rules (default True) reads as web browsers show GIFs: a graphic control\n"
          "block applies to the next image even across comments and other extensions, a\n"
          "transparent index past the palette's end stays transparent, and an image of\n"
          "width or height 0, or without data, is a frame without pixels (indices of shape\n"
          "(0, 0)). False reads by the format's strict rules.");
}

}  // namespace qimg_python
