// qimg.draw: one array drawn into another in place.
#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>
#include <pybind11/stl.h>
#include <qimg/qimg.h>

#include <algorithm>
#include <array>
#include <climits>
#include <cmath>
#include <optional>
#include <string>
#include <variant>

#include "arrays.h"
#include "errors.h"
#include "monitor.h"

namespace py = pybind11;

namespace qimg_python {
namespace {

qBltMode blt_mode(const std::string& name) {
    if (name == "copy") return BLT_COPY;
    if (name == "over") return BLT_OVER;
    if (name == "blend") return BLT_BLEND;
    throw py::value_error("mode must be 'copy', 'over' or 'blend', not '" + name + "'");
}

// The views read the arrays in place, which needs pixels and channels packed (rows may lie
// anywhere). The colour bytes are taken by position, so RGBA arrays pass as BGRA.
void bind(qImageAlias& view, unsigned char* data, const PixelArray& p, const char* name) {
    const py::array& a = p.array;
    if (a.strides(2) != 1 || a.strides(1) != p.channels || a.strides(0) > INT_MAX ||
        a.strides(0) < -INT_MAX) {
        throw py::value_error(std::string(name) + " needs packed pixels (as np.ascontiguousarray)");
    }
    const int stride = static_cast<int>(a.strides(0));
    const qPixelType type = p.channels == 4 ? PT_BGRA32 : PT_BGR24;
    check_status(view.Bind(data, qSize(p.width, p.height), stride, type), name);
}

// Pixels that `length` source pixels cover at `factor`; the transfer refuses bad factors.
int magnified(int length, float factor) {
    const double pixels = std::floor(length * static_cast<double>(factor));
    return std::isfinite(factor) && factor > 0 ? static_cast<int>(std::min(pixels, 1e9)) : 1;
}

void draw(const py::object& target, const py::object& source, std::array<int, 2> position,
          std::optional<std::array<int, 4>> clip, const std::string& mode, int opacity,
          std::variant<float, std::array<float, 2>> scale, py::object progress) {
    PixelArray dst = PixelArray::from(target, "target");
    const PixelArray src = PixelArray::from(source, "source");
    if (!dst.array.writeable()) throw py::value_error("target is read-only");
    if (opacity < 0 || opacity > 255) throw py::value_error("opacity must be 0..255");
    const qBltMode blt = blt_mode(mode);
    std::array<float, 2> factors;
    if (const float* both = std::get_if<float>(&scale)) {
        factors = {*both, *both};
    } else {
        factors = std::get<std::array<float, 2>>(scale);
    }

    qImageEdit dst_view;
    qImageAlias src_view;
    bind(dst_view, static_cast<unsigned char*>(dst.array.mutable_data()), dst, "target");
    bind(src_view, const_cast<unsigned char*>(static_cast<const unsigned char*>(src.array.data())),
         src, "source");
    // The area written: the clip, the target and the magnified source where it lands, cut
    // here so that the transfer starts inside the source and ends at its edge.
    const qRect clip_rect = clip ? qRect((*clip)[0], (*clip)[1], (*clip)[2], (*clip)[3])
                                 : qRect(0, 0, dst.width, dst.height);
    const qRect placed(position[0], position[1], magnified(src.width, factors[0]),
                       magnified(src.height, factors[1]));
    const qRect area = clip_rect.intersect(qRect(0, 0, dst.width, dst.height)).intersect(placed);
    // Inside the placed source the difference fits; an empty area draws nothing anyway.
    const qPoint from =
        !area.empty() ? qPoint(area.x - position[0], area.y - position[1]) : qPoint(0, 0);
    PythonMonitor monitor(std::move(progress));
    int status;
    {
        py::gil_scoped_release unlocked;
        status = dst_view.ScaledBlt(area, &src_view, from, factors[0], factors[1], 1, blt,
                                    static_cast<unsigned char>(opacity), &monitor);
    }
    monitor.finish(status, "drawing");
}

}  // namespace

void add_draw(py::module_& m) {
    m.def("draw", &draw, py::arg("target"), py::arg("source"),
          py::arg("position") = std::array{0, 0}, py::kw_only(), py::arg("clip") = py::none(),
          py::arg("mode") = "over", py::arg("opacity") = 255, py::arg("scale") = 1.0f,
          py::arg("progress") = py::none(),
          "Draws `source` into `target` in place. Both are uint8 arrays (height, width, 3 or 4)\n"
          "of RGB or RGBA with packed pixels; rows may have any stride.\n\n"
          "position: (x, y) in target where the source's top-left corner lands.\n"
          "clip: (x, y, width, height), the only part of target written (default: all).\n"
          "mode: 'copy' (the source's values, alpha included), 'over' (composite by the\n"
          "source's alpha, then opacity) or 'blend' (mix by source alpha times opacity; an RGBA\n"
          "target takes that alpha). opacity: 0..255, 255 for none.\n"
          "scale: a factor or (sx, sy); nearest-neighbour magnification of the source.\n"
          "progress(done, total) hears the rows done and may answer False to stop\n"
          "(qimg.Cancelled); rows drawn until then stay.");
}

}  // namespace qimg_python
