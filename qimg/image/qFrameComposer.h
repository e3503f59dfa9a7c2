// qFrameComposer.h: plays an animation onto a canvas the way a viewer shows it.
//
// An animation draws only its current frame; what a viewer shows at frame N is frames 0..N drawn
// in turn onto one surface, each frame's disposal method applied after it was shown:
//
//   0, 1 (and undefined values 4..7)  keep: the next frame is drawn over this one
//   2                                 restore the frame's rectangle to transparent, as browsers do
//   3                                 restore the rectangle to what it was before the frame
//
// The composer keeps that state between calls, so stepping through the frames in order costs one
// frame's drawing per step. It draws every frame through the animation's own Draw into a
// PT_BGRA32 canvas that the caller owns; frames reaching outside the canvas are clipped.
//
//   qImageEdit canvas;  canvas.Bind(pixels, screen, row_bytes(screen.width, PT_BGRA32), PT_BGRA32);
//   qFrameComposer composer;
//   composer.begin(animation, &canvas);
//   for (int i = 0; i < animation->num_frames(); ++i) composer.compose_to(i, nullptr);
#pragma once

#include "qimg/core/qExport.h"
#include "qimg/core/qGeometry.h"

class qIAnimation;
class qImageEdit;
class qIMonitor;

class QIMG_API qFrameComposer {
public:
    qFrameComposer() = default;
    ~qFrameComposer();
    qFrameComposer(const qFrameComposer&) = delete;
    qFrameComposer& operator=(const qFrameComposer&) = delete;

    // Starts playing `animation` onto `canvas`, a bound PT_BGRA32 view (normally the size of the
    // animation's logical screen), and clears the canvas to transparent black. Both are borrowed
    // and must outlive the composer's use of them. ST_OK; ST_BAD_ARGUMENT for a null or invalid
    // argument; ST_UNSUPPORTED for a canvas of another pixel type.
    int begin(qIAnimation* animation, qImageEdit* canvas);

    // Leaves the canvas showing frame `index` fully composed, and the animation's cursor on it.
    // Continues from the frame composed last when `index` lies ahead of it, else starts again
    // from frame 0. The monitor hears (frames drawn, frames to draw) after each frame.
    // ST_OK; ST_CANCELLED (the canvas then shows the last frame completed); ST_NO_MEMORY;
    // ST_BAD_ARGUMENT no begin(), an index outside the frames, or a frame that cannot be drawn;
    // other codes from drawing. After a failure (a negative code) the canvas holds an unfinished
    // picture and composed_frame() is -1: the next call starts again from frame 0.
    int compose_to(int index, qIMonitor* monitor);

    // The frame the canvas shows now; -1 before the first compose_to().
    int composed_frame() const { return composed_; }

private:
    int restart();
    int draw_next_frame();
    int dispose_shown_frame();
    int save_area(qRect area);
    int restore_saved_area();

    qIAnimation* animation_ = nullptr;
    qImageEdit* canvas_ = nullptr;
    int composed_ = -1;
    // What the frame on show asked for once the next one comes.
    int pending_disposal_ = 0;
    qRect pending_area_;
    // Pixels under the frame on show, kept when its disposal is "restore previous".
    unsigned char* saved_ = nullptr;
    qRect saved_area_;
};
