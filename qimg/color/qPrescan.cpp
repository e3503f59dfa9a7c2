#include <cstdint>

#include "qimg/color/qPrescanPriv.h"
#include "qimg/core/qStatus.h"
#include "qimg/palette/qIColormap.h"

int q_check_prescan(const qIImageBuffer* image, qRect& area, const qIColormap*& source_map) {
    source_map = nullptr;
    if (!image) return ST_BAD_ARGUMENT;
    const qPixelType type = image->pixel_type();
    if (type == PT_INDEX8) {
        const auto* indexed = dynamic_cast<const qIIndexImage*>(image);
        if (!indexed || !(source_map = indexed->colormap())) return ST_BAD_ARGUMENT;
    } else if (type != PT_BGRA32) {
        return ST_UNSUPPORTED;
    }
    const qSize size = image->size();
    if (area.empty()) {
        area = qRect();
        return ST_OK;
    }
    if (area.x < 0 || area.y < 0 || int64_t{area.x} + area.width > size.width ||
        int64_t{area.y} + area.height > size.height) {
        return ST_BAD_ARGUMENT;
    }
    for (int y = area.y; y < area.y + area.height; ++y) {
        if (!image->pixel_address(y, 0)) return ST_BAD_ARGUMENT;
    }
    return ST_OK;
}
