#include "qimg/gif/qGifAnimation.h"

#include "qimg/core/qAllocPriv.h"
#include "qimg/core/qNoValuePriv.h"
#include "qimg/core/qStatus.h"
#include "qimg/gif/qGifFrame.h"
#include "qimg/palette/qColormap.h"

namespace {
// Growth steps of the frame and comment lists (their blocks grow geometrically beyond), and of
// the bytes of one comment. Small first blocks: most files have a frame or two.
constexpr int kListGrowBy = 4;
constexpr int kCommentGrowBy = 16;
}  // namespace

qGifAnimation::qGifAnimation() : frames_(kListGrowBy), comments_(kListGrowBy) {}

qGifAnimation::~qGifAnimation() {
    reset();
}

void qGifAnimation::reset() {
    for (int i = frames_.count() - 1; i >= 0; --i) delete frames_[i];
    frames_.clear();
    for (int i = comments_.count() - 1; i >= 0; --i) delete comments_[i];
    comments_.clear();
    global_colormap_ = nullptr;
    global_colormap_record_.clear();
    screen_size_ = qSize();
    background_ = -1;
    version_ = 0;
    pixel_aspect_ = 0;
    current_ = 0;
    loop_count_ = 1;
}

int qGifAnimation::copy_from(const qGifAnimation* source) {
    if (source == this) return valid() ? 0 : ST_BAD_ARGUMENT;
    reset();
    if (source == nullptr || !source->valid()) return ST_BAD_ARGUMENT;
    int rc = 0;
    if (source->global_colormap_ != nullptr) {
        global_colormap_ = &global_colormap_record_;
        rc = global_colormap_->copy_from(source->global_colormap_);
    }
    for (int i = 0; rc == 0 && i < source->frames_.count(); ++i) {
        qGifFrame* frame = q_new<qGifFrame>();
        if (frame == nullptr) {
            rc = ST_NO_MEMORY;
            break;
        }
        rc = frame->copy_from(source->frames_[i], global_colormap_);
        if (rc == 0 && !frames_.append(frame)) rc = ST_NO_MEMORY;
        if (rc != 0) delete frame;
    }
    for (int i = 0; rc == 0 && i < source->comments_.count(); ++i) {
        const qObjArray<char>* from = source->comments_[i];
        qObjArray<char>* comment = q_new<qObjArray<char>>(kCommentGrowBy);
        if (comment == nullptr) {
            rc = ST_NO_MEMORY;
            break;
        }
        // An empty comment stays an empty array (assign refuses n = 0 but leaves it empty).
        const bool copied = from->count() == 0 || comment->assign(from->data(), from->count());
        if (!copied || !comments_.append(comment)) {
            delete comment;
            rc = ST_NO_MEMORY;
        }
    }
    screen_size_ = source->screen_size_;
    background_ = source->background_;
    version_ = source->version_;
    pixel_aspect_ = source->pixel_aspect_;
    current_ = source->current_;
    loop_count_ = source->loop_count_;
    passes_ = source->passes_;
    if (rc != 0) reset();
    return rc;
}

const char* qGifAnimation::version() const {
    return version_ == 89 ? "89a" : version_ == 87 ? "87a" : "";
}

qGifFrame* qGifAnimation::frame(int index) const {
    return index >= 0 && index < frames_.count() ? frames_[index] : nullptr;
}

const qObjArray<char>* qGifAnimation::comment(int index) const {
    return index >= 0 && index < comments_.count() ? comments_[index] : nullptr;
}

qGifFrame* qGifAnimation::current() const {
    return frame(current_);
}

// ---- forwarding to the current frame -----------------------------------------------------------

qIComponent* qGifAnimation::clone() const {
    return q_new_copy<qGifAnimation>(this);
}

int qGifAnimation::Draw(qImageEdit* target, qRect rect, qPoint point, float scale_x, float scale_y,
                        bool opaque) const {
    const qGifFrame* f = current();
    return f != nullptr ? f->Draw(target, rect, point, scale_x, scale_y, opaque) : ST_BAD_ARGUMENT;
}

bool qGifAnimation::valid() const {
    const qGifFrame* f = current();
    return !screen_size_.empty() && f != nullptr && f->valid();
}

qAlphaType qGifAnimation::alpha_hint() const {
    const qGifFrame* f = current();
    return f != nullptr ? f->alpha_hint() : AT_BILEVEL;
}

const qIColormap* qGifAnimation::colormap() const {
    const qGifFrame* f = current();
    return f != nullptr ? f->colormap() : nullptr;
}

int qGifAnimation::pixel_index(qPoint point) const {
    const qGifFrame* f = current();
    return f != nullptr ? f->pixel_index(point) : kNoValue;
}

qIComponent* qGifAnimation::current_leaf() const {
    const qGifFrame* f = current();
    return f != nullptr ? f->current_leaf() : nullptr;
}

int qGifAnimation::quantize_colors(int num_colors, qCmapType cmap_type, qQuantizer quantizer,
                                   bool opaque, float color_strength, float alpha_strength,
                                   unsigned char min_alpha, qIMonitor* monitor) {
    qGifFrame* f = current();
    return f != nullptr ? f->quantize_colors(num_colors, cmap_type, quantizer, opaque,
                                             color_strength, alpha_strength, min_alpha, monitor)
                        : ST_BAD_ARGUMENT;
}

int qGifAnimation::quantize_colors(const qIColormap* colormap, qQuantizer quantizer, bool opaque,
                                   float color_strength, float alpha_strength, qIMonitor* monitor) {
    qGifFrame* f = current();
    return f != nullptr ? f->quantize_colors(colormap, quantizer, opaque, color_strength,
                                             alpha_strength, monitor)
                        : ST_BAD_ARGUMENT;
}

int qGifAnimation::set_screen_size(qSize size) {
    screen_size_ = size;
    return 0;
}

int qGifAnimation::set_offset(qPoint offset) {
    qGifFrame* f = current();
    return f != nullptr ? f->set_offset(offset) : ST_BAD_ARGUMENT;
}

qPoint qGifAnimation::offset() const {
    const qGifFrame* f = current();
    return f != nullptr ? f->offset() : qPoint();
}

qPixRA qGifAnimation::get_rep_color() const {
    const qGifFrame* f = current();
    return f != nullptr ? f->get_rep_color() : qPixRA{0, 0, 0, 0};
}

// ---- the cursor --------------------------------------------------------------------------------

int qGifAnimation::frame_delay() {
    const qGifFrame* f = current();
    return f != nullptr ? f->frame_delay() : kNoValue;
}

int qGifAnimation::frame_disposal() {
    const qGifFrame* f = current();
    return f != nullptr ? f->frame_disposal() : 0;
}

qRect qGifAnimation::frame_rect() {
    const qGifFrame* f = current();
    return f != nullptr ? f->frame_rect() : qRect();
}

void qGifAnimation::rewind() {
    current_ = 0;
    passes_ = 0;
}

int qGifAnimation::seek_frame(int position, int origin) {
    int64_t target = position;
    if (origin == 1) {
        target += current_;
    } else if (origin == 2) {
        target += frames_.count();
    }
    if (target < 0 || target >= frames_.count()) return ST_BAD_ARGUMENT;
    current_ = static_cast<int>(target);
    return 0;
}

int qGifAnimation::next_frame(bool endless) {
    // A cursor moved past the end by hand still advances; int arithmetic stays in range.
    if (current_ < INT32_MAX) ++current_;
    if (current_ != frames_.count()) return 0;
    if (passes_ < INT32_MAX) ++passes_;
    if (!endless && loop_count_ > 0 && passes_ >= loop_count_) {
        current_ = frames_.count() - 1;
        return ST_PASSES_DONE;
    }
    current_ = 0;
    return 0;
}

// ---- palette edits of the current frame --------------------------------------------------------

void qGifAnimation::set_opaque_all() {
    qGifFrame* f = current();
    if (f != nullptr) f->set_opaque_all();
}

bool qGifAnimation::set_transparent(int index) {
    qGifFrame* f = current();
    return f != nullptr && f->set_transparent(index);
}

bool qGifAnimation::set_ex_transparent(int index) {
    qGifFrame* f = current();
    return f != nullptr && f->set_ex_transparent(index);
}

bool qGifAnimation::set_color(int index, qPixRA color) {
    qGifFrame* f = current();
    return f != nullptr && f->set_color(index, color);
}

int qGifAnimation::min_t_index() const {
    const qGifFrame* f = current();
    return f != nullptr ? f->min_t_index() : kNoValue;
}
