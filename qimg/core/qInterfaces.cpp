// Out-of-line destructors: they anchor each interface's vtable and type information in the
// library, which the capability queries (dynamic_cast) need across the library boundary.
#include "qimg/core/qComponent.h"
#include "qimg/core/qImageBuffer.h"
#include "qimg/core/qIndexColor.h"
#include "qimg/core/qNoValuePriv.h"

qIComponent::~qIComponent() = default;
int qIComponent::pixel_index(qPoint) const {
    return kNoValue;
}
qILeaf::~qILeaf() = default;
qIFrame::~qIFrame() = default;
qIAnimation::~qIAnimation() = default;

qIImageBuffer::~qIImageBuffer() = default;
qIDirectImage::~qIDirectImage() = default;
qIIndexImage::~qIIndexImage() = default;
qIIndexColor::~qIIndexColor() = default;
