// ReadOnlyIndexImage.h: the base of the index images that tests, fuzz targets and benchmarks
// build over their own memory. The palette-editing calls are refused; pixels, size, type and
// palette are each user's own.
#pragma once

#include "qimg/core/qImageBuffer.h"

namespace qtest {

struct ReadOnlyIndexImage : qIIndexImage {
    void set_opaque_all() override {}
    bool set_transparent(int) override { return false; }
    bool set_ex_transparent(int) override { return false; }
    bool set_color(int, qPixRA) override { return false; }
};

}  // namespace qtest
