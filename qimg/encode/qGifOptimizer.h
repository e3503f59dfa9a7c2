// qGifOptimizer.h: qGifOptimizer, writes an animation given as whole screens so that each frame
// stores only what changed.
//
// The caller hands in every frame as the full screen it should show (indices into one palette,
// with the palette's transparent entry for "shows nothing"). The optimiser then writes, for each
// frame, only the smallest rectangle that differs from what the screen already shows. Inside it
// the unchanged pixels may be written as they are or as transparent; three variants are encoded
// and the shortest kept: all as they are, all transparent, and a pixel-by-pixel choice made
// while encoding (whichever index continues the current LZW string). The disposal of each frame is
// chosen so that the next frame can be drawn on top: "keep", or "restore to transparent" when the
// next frame turns some of this frame's pixels transparent (the rectangle then also covers those
// pixels). Played back, the file shows exactly the screens given.
//
//   qGifOptimizer optimizer;
//   optimizer.begin(&sink, screen, &palette, transparent_index, -1, true);
//   for (...) optimizer.add_frame(screen_indices, screen.width, delay);
//   optimizer.finish();
#pragma once

#include <cstdint>

#include "qimg/core/qExport.h"
#include "qimg/core/qGeometry.h"
#include "qimg/encode/qGifWriter.h"
#include "qimg/encode/qLzwEncoder.h"
#include "qimg/image/qIndexImage.h"
#include "qimg/palette/qColormap.h"

class qIColormap;
class qIFileW;

class QIMG_API qGifOptimizer {
public:
    qGifOptimizer() = default;
    ~qGifOptimizer();
    qGifOptimizer(const qGifOptimizer&) = delete;
    qGifOptimizer& operator=(const qGifOptimizer&) = delete;

    // Starts the stream (see qGifWriter::begin) with `palette` (borrowed until finish(), 1..256
    // entries) as the global table. `transparent` is the palette entry that shows nothing, or -1
    // when the palette has none (the screens then must not need transparency, and unchanged
    // pixels cannot be skipped). `optimize` false writes every frame whole (still with the
    // disposal that the next frame needs).
    // 0; -5 bad arguments; -1 out of memory; sink codes.
    int begin(qIFileW* sink, qSize screen, const qIColormap* palette, int transparent,
              int loop_count, bool optimize);
    // A comment before the first frame. Codes of qGifWriter::add_comment.
    int add_comment(const char* text, int length);
    // The next screen: screen.height rows of screen.width indices, `stride` bytes apart, shown
    // for `delay` hundredths of a second. The indices are into the global palette, or into
    // `local_palette` (copied; 1..256 entries, written as the frame's local table) whose entry
    // `local_transparent` (-1: none) shows nothing. Screens are compared by colour, so frames
    // on different tables still store only what changed. The frame is written once the next one
    // (or finish()) shows which disposal it needs. 0; -5 bad arguments or an index outside the
    // table; -1; sink codes. After a failure only begin() helps.
    int add_frame(const unsigned char* indices, int stride, int delay,
                  const qIColormap* local_palette = nullptr, int local_transparent = -1);
    // Writes the last frame and the trailer. 0; -5 without any frame; -1; sink codes.
    int finish();

private:
    int fail(int code);
    // Writes the pending frame; `next` is the screen after it (colour keys), null for the last.
    int write_pending(const uint32_t* next);
    // The rectangle of the pending frame: pixels that differ from what is shown, and those that
    // the next screen turns transparent (which need a restore). Sets `restore`.
    qRect changed_area(const uint32_t* next, bool& restore) const;
    enum class Fill { kAsTheyAre, kTransparent, kChosen };
    // The pending frame's pixels in `area` into crop_, unchanged pixels as `fill` says; with
    // kChosen the LZW size of the result (ST_NO_MEMORY when out of memory), else 0.
    int64_t cut(qRect area, Fill fill);
    // LZW bytes of crop_ with the given clear policy (ST_NO_MEMORY when out of memory).
    int64_t encoded_size(bool deferred_clear, bool keep_near_end);
    void release();

    qGifWriter writer_;
    qLzwEncoder trial_;
    qIndexImage crop_;
    const qIColormap* palette_ = nullptr;
    qSize screen_;
    int transparent_ = -1;
    bool optimize_ = true;
    bool open_ = false;
    bool has_pending_ = false;
    // The pending frame: its table (the global one or pending_local_), transparent entry, code
    // size and delay.
    qColormap pending_local_;
    bool pending_is_local_ = false;
    int pending_transparent_ = -1;
    int code_size_ = 2;
    int pending_delay_ = 0;
    // Screens as colour keys: 0xFFRRGGBB for a colour, 0 for "shows nothing".
    uint32_t* shown_ = nullptr;           // what the screen shows before the pending frame
    uint32_t* pending_keys_ = nullptr;    // the pending frame's screen
    uint32_t* next_keys_ = nullptr;       // the screen being added
    unsigned char* pending_ = nullptr;    // the pending frame's indices
    unsigned char* unchanged_ = nullptr;  // one row: which pixels are already shown
};
