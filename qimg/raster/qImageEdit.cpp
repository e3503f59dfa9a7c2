#include "qimg/raster/qImageEdit.h"

#include "qimg/core/qImageBuffer.h"

qImageEdit::~qImageEdit() = default;

int qImageEdit::Bind(unsigned char* pixels, qSize size, int stride, qPixelType type) {
    return qImageAlias::Bind(pixels, size, stride, type);
}

int qImageEdit::Bind(qIImageBuffer* buffer) {
    return qImageAlias::Bind(static_cast<const qIImageBuffer*>(buffer));
}
