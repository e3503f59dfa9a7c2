#include "qimg/image/qFrameComposer.h"

#include "qimg/core/qAllocPriv.h"
#include "qimg/core/qCheckedMathPriv.h"
#include "qimg/core/qComponent.h"
#include "qimg/core/qMonitor.h"
#include "qimg/core/qStatus.h"
#include "qimg/raster/qImageEdit.h"

namespace {
constexpr int kDisposeToBackground = 2;
constexpr int kDisposeToPrevious = 3;
constexpr unsigned char kTransparent[4] = {0, 0, 0, 0};
}  // namespace

qFrameComposer::~qFrameComposer() {
    q_free(saved_);
}

int qFrameComposer::begin(qIAnimation* animation, qImageEdit* canvas) {
    animation_ = nullptr;
    canvas_ = nullptr;
    composed_ = -1;
    if (!animation || !canvas || !canvas->valid()) return ST_BAD_ARGUMENT;
    if (canvas->pixel_type() != PT_BGRA32) return ST_UNSUPPORTED;
    animation_ = animation;
    canvas_ = canvas;
    return restart();
}

int qFrameComposer::restart() {
    composed_ = -1;
    pending_disposal_ = 0;
    q_free(saved_);
    saved_ = nullptr;
    return canvas_->FillRect(qRect(canvas_->size()), PT_BGRA32, kTransparent, nullptr);
}

int qFrameComposer::compose_to(int index, qIMonitor* monitor) {
    if (!animation_ || index < 0 || index >= animation_->num_frames()) return ST_BAD_ARGUMENT;
    // Going back, or picking up after a failed step (composed_ is -1 then), starts from a clear
    // canvas: a step that failed may have disposed of the shown frame already.
    if (index < composed_ || composed_ < 0) {
        const int status = restart();
        if (status != 0) return status;
    }
    const int first = composed_ + 1;
    const int total = index - composed_;
    while (composed_ < index) {
        const int status = draw_next_frame();
        if (status != 0) {
            composed_ = -1;
            return status;
        }
        if (monitor && !monitor->progress(composed_ - first + 1, total, 0, 1)) return ST_CANCELLED;
    }
    // Also when nothing had to be drawn: the caller expects the cursor on `index`.
    return animation_->seek_frame(index, 0);
}

// Shows frame composed_ + 1: first undoes the frame on show as its disposal asks, then draws.
int qFrameComposer::draw_next_frame() {
    int status = dispose_shown_frame();
    if (status != 0) return status;
    const int next = composed_ + 1;
    status = animation_->seek_frame(next, 0);
    if (status != 0) return status;

    const qRect area = animation_->frame_rect().intersect(qRect(canvas_->size()));
    pending_disposal_ = animation_->frame_disposal();
    pending_area_ = area;
    if (pending_disposal_ == kDisposeToPrevious && !area.empty()) {
        status = save_area(area);
        if (status != 0) return status;
    }
    // A frame without pixels (a zero-size image) shows nothing but still takes its turn.
    if (!animation_->current_leaf()) {
        composed_ = next;
        return 0;
    }
    // The animation draws its current frame, shifted by the frame's own offset.
    status = animation_->Draw(canvas_, qRect(canvas_->size()), qPoint(0, 0), 1.0f, 1.0f, false);
    if (status != 0) return status;
    composed_ = next;
    return 0;
}

int qFrameComposer::dispose_shown_frame() {
    if (composed_ < 0 || pending_area_.empty()) return 0;
    if (pending_disposal_ == kDisposeToBackground) {
        return canvas_->FillRect(pending_area_, PT_BGRA32, kTransparent, nullptr);
    }
    if (pending_disposal_ == kDisposeToPrevious) return restore_saved_area();
    return 0;
}

int qFrameComposer::save_area(qRect area) {
    q_free(saved_);
    saved_ = nullptr;
    const int bytes = q_buffer_bytes(area.width, area.height, PT_BGRA32);
    if (bytes < 0) return ST_BAD_ARGUMENT;
    saved_ = static_cast<unsigned char*>(q_malloc(static_cast<size_t>(bytes)));
    if (!saved_) return ST_NO_MEMORY;
    saved_area_ = area;
    qImageEdit saved;
    int status = saved.Bind(saved_, area.size(), row_bytes(area.width, PT_BGRA32), PT_BGRA32);
    if (status == 0) {
        status = saved.BitBlt(qRect(area.size()), canvas_, area.pos(), BLT_COPY, 255, nullptr);
    }
    return status;
}

int qFrameComposer::restore_saved_area() {
    if (!saved_) return 0;
    qImageAlias saved;
    const int stride = row_bytes(saved_area_.width, PT_BGRA32);
    int status = saved.Bind(saved_, saved_area_.size(), stride, PT_BGRA32);
    if (status == 0) {
        status = canvas_->BitBlt(saved_area_, &saved, qPoint(0, 0), BLT_COPY, 255, nullptr);
    }
    q_free(saved_);
    saved_ = nullptr;
    return status;
}
