// The bindings of the views onto the library's own image classes. They live apart from the
// generic bindings because they know the concrete classes: an image's pixels are one contiguous
// top-down block of padded rows, so no row needs to be asked for.
#include "qimg/core/qStatus.h"
#include "qimg/image/qDirectImage.h"
#include "qimg/image/qIndexImage.h"
#include "qimg/raster/qImageAlias.h"
#include "qimg/raster/qImageEdit.h"

int qImageAlias::Bind(const qDirectImage* image) {
    if (!image) {
        release();
        return ST_BAD_ARGUMENT;
    }
    const qSize size = image->size();
    const qPixelType type = image->pixel_type();
    return Bind(image->pixel_address(0, 0), size, row_bytes(size.width, type), type);
}

int qImageAlias::Bind(const qIndexImage* image) {
    if (!image) {
        release();
        return ST_BAD_ARGUMENT;
    }
    const qSize size = image->size();
    const qPixelType type = image->pixel_type();
    const int rc = Bind(image->pixel_address(0, 0), size, row_bytes(size.width, type), type);
    if (rc != 0) return rc;
    // The stored transparent index as it is: -1 keeps every entry's own alpha, where the
    // buffer binding would mark the palette's first transparent entry instead.
    return attach_palette(image->colormap(), image->transparent_index());
}

int qImageEdit::Bind(qIndexImage* image) {
    return qImageAlias::Bind(static_cast<const qIndexImage*>(image));
}
