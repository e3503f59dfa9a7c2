#include "qimg/facade/qImageProxy.h"

#include "qimg/core/qAllocPriv.h"
#include "qimg/core/qImageBuffer.h"
#include "qimg/core/qIndexColor.h"
#include "qimg/core/qNoValuePriv.h"
#include "qimg/core/qStatus.h"
#include "qimg/image/qColorIndexImage.h"
#include "qimg/image/qDirectImage.h"
#include "qimg/image/qFrameDecorator.h"

namespace {

// A new leaf of type Leaf filled by its copy_from(source); the code of the step that failed.
template <class Leaf, class Source>
int copy_leaf(const Source* source, Leaf** out) {
    *out = nullptr;
    Leaf* leaf = q_new<Leaf>();
    if (!leaf) return ST_NO_MEMORY;
    const int rc = leaf->copy_from(source);
    if (rc != 0) {
        delete leaf;
        return rc;
    }
    *out = leaf;
    return 0;
}

}  // namespace

qImageProxy::~qImageProxy() {
    clear();
}

void qImageProxy::clear() {
    delete component_;
    component_ = nullptr;
}

qIFrame* qImageProxy::frame() const {
    return dynamic_cast<qIFrame*>(component_);
}
qIAnimation* qImageProxy::animation() const {
    return dynamic_cast<qIAnimation*>(component_);
}
qIIndexColor* qImageProxy::palette_side() const {
    return dynamic_cast<qIIndexColor*>(component_);
}

int qImageProxy::hold_in_frame(qIComponent* leaf) {
    qFrameDecorator* decorator = q_new<qFrameDecorator>();
    if (!decorator) {
        delete leaf;
        return ST_NO_MEMORY;
    }
    const int rc = decorator->attach(leaf, qPoint(0, 0));  // takes the leaf
    if (rc != 0) {
        delete decorator;
        return rc;
    }
    component_ = decorator;
    return 0;
}

// The image is copied before the old component goes, so that a caller may hand back the
// proxy's own leaf (current_leaf()) without it being destroyed under the copy. Whatever
// happens, the old component is gone afterwards.
int qImageProxy::Set(const qIDirectImage* image) {
    qDirectImage* leaf = nullptr;
    const int rc = image ? copy_leaf(image, &leaf) : ST_BAD_ARGUMENT;
    clear();
    return rc == 0 ? hold_in_frame(leaf) : rc;
}

int qImageProxy::Set(const qIIndexImage* image) {
    qColorIndexImage* leaf = nullptr;
    const int rc = image ? copy_leaf(image, &leaf) : ST_BAD_ARGUMENT;
    clear();
    return rc == 0 ? hold_in_frame(leaf) : rc;
}

int qImageProxy::Set(const qImageProxy* other) {
    // Emptied first: a proxy handed to its own Set is then invalid and ends empty.
    clear();
    if (!other || !other->valid()) return ST_BAD_ARGUMENT;
    component_ = other->component_->clone();
    return component_ ? 0 : ST_NO_MEMORY;
}

bool qImageProxy::valid() const {
    return component_ && component_->valid();
}

qSize qImageProxy::size() const {
    return component_ ? component_->size() : qSize();
}

qAlphaType qImageProxy::alpha_hint() const {
    return component_ ? component_->alpha_hint() : AT_NONE;
}

qPoint qImageProxy::offset() const {
    const qIFrame* f = frame();
    return f ? f->offset() : qPoint();
}

const qIColormap* qImageProxy::colormap() const {
    return component_ ? component_->colormap() : nullptr;
}

int qImageProxy::pixel_index(qPoint point) const {
    return component_ ? component_->pixel_index(point) : kNoValue;
}

const qILeaf* qImageProxy::current_leaf() const {
    const qIFrame* f = frame();
    return f ? dynamic_cast<const qILeaf*>(f->current_leaf()) : nullptr;
}

qComponentType qImageProxy::current_leaf_type() const {
    const qILeaf* leaf = current_leaf();
    return leaf ? leaf->leaf_type() : CT_NONE;
}

bool qImageProxy::is_animation() const {
    qIAnimation* a = animation();
    return a && a->num_frames() > 1;
}

int qImageProxy::num_frames() const {
    qIAnimation* a = animation();
    return a ? a->num_frames() : 0;
}

int qImageProxy::min_t_index() const {
    const qIIndexColor* side = palette_side();
    return side ? side->min_t_index() : kNoValue;
}

qPixRA qImageProxy::get_rep_color() const {
    const qIFrame* f = frame();
    return f ? f->get_rep_color() : qPixRA{0, 0, 0, 0};
}

int qImageProxy::Draw(qImageEdit* target, qRect rect, qPoint point, float scale_x, float scale_y,
                      bool opaque) const {
    if (!valid()) return ST_BAD_ARGUMENT;
    return component_->Draw(target, rect, point, scale_x, scale_y, opaque);
}

int qImageProxy::set_screen_size(qSize size) {
    qIFrame* f = frame();
    return f ? f->set_screen_size(size) : ST_BAD_ARGUMENT;
}

int qImageProxy::set_offset(qPoint offset) {
    qIFrame* f = frame();
    return f ? f->set_offset(offset) : ST_BAD_ARGUMENT;
}

void qImageProxy::set_opaque_all() {
    if (qIIndexColor* side = palette_side()) side->set_opaque_all();
}

bool qImageProxy::set_transparent(int index) {
    qIIndexColor* side = palette_side();
    return side && side->set_transparent(index);
}

bool qImageProxy::set_ex_transparent(int index) {
    qIIndexColor* side = palette_side();
    return side && side->set_ex_transparent(index);
}

bool qImageProxy::set_color(int index, qPixRA color) {
    qIIndexColor* side = palette_side();
    return side && side->set_color(index, color);
}

int qImageProxy::quantize_colors(const qIColormap* colormap, qQuantizer quantizer, bool opaque,
                                 float color_strength, float alpha_strength, qIMonitor* monitor) {
    qIFrame* f = frame();
    return f ? f->quantize_colors(colormap, quantizer, opaque, color_strength, alpha_strength,
                                  monitor)
             : ST_BAD_ARGUMENT;
}

int qImageProxy::quantize_colors(int num_colors, qCmapType cmap_type, qQuantizer quantizer,
                                 bool opaque, float color_strength, float alpha_strength,
                                 unsigned char min_alpha, qIMonitor* monitor) {
    qIFrame* f = frame();
    return f ? f->quantize_colors(num_colors, cmap_type, quantizer, opaque, color_strength,
                                  alpha_strength, min_alpha, monitor)
             : ST_BAD_ARGUMENT;
}
