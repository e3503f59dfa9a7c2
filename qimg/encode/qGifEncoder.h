// qGifEncoder.h: qGifEncoder, whole animations to GIF: from true-colour frames, or a GIF
// animation written again.
//
// True-colour frames are reduced to one palette for the whole animation by the median-cut
// quantizer (every frame votes), or each to its own (see qGifPaletteMode), mapped by nearest
// colour or with error diffusion, and written through the frame optimiser (qGifOptimizer).
// Pixels of alpha 0 stay transparent.
//
//   qGifEncodeOptions options;            // 256 colours, optimised, looping without end
//   options.dither = true;
//   const qIImageBuffer* frames[] = {&picture0, &picture1};
//   const int delays[] = {10, 10};        // hundredths of a second
//   int rc = qGifEncoder::encode_frames(frames, delays, 2, options, &sink, monitor);
//
// A GIF animation written again keeps its frames as they are (indexed frames are never
// re-quantized), or is re-cut from its composed screens when they fit one palette.
#pragma once

#include "qimg/core/qExport.h"

class qGifAnimation;
class qIFileW;
class qIImageBuffer;
class qIMonitor;

// Which colour tables encode_frames() gives true-colour frames.
enum qGifPaletteMode : int {
    PM_SHARED = 0,  // one palette for the whole animation (every frame votes)
    PM_LOCAL = 1,   // every frame reduced on its own, with its own table
    // Both are made for every frame, and the frame takes its own table when that cuts its
    // squared colour error against the shared palette by more than half: frames whose colours
    // the shared palette serves badly get their own, the others stay on the global table.
    PM_AUTO = 2,
};

struct QIMG_API qGifEncodeOptions {
    int colors = 256;          // palette entries 2..256, the transparent entry included
    bool dither = false;       // error diffusion instead of nearest colour
    bool optimize = true;      // changed rectangles and transparent unchanged pixels
    int loop_count = -1;       // passes as qGifAnimation::loop_count(): -1 endless, 1 once
    int palettes = PM_SHARED;  // a qGifPaletteMode
};

// How reencode() writes a GIF animation again.
enum qGifResaveMode : int {
    RS_AS_READ = 0,  // every frame as read: rectangle, tables, control record, interlacing
    RS_RECUT = 1,    // the composed screens through the frame optimiser, on one table
    RS_SMALLER = 2,  // both, and the smaller file is kept
};

class QIMG_API qGifEncoder {
public:
    // Writes `count` frames, each a valid PT_BGRA32 buffer of the same size (the screen), frame
    // i shown for delays[i] hundredths of a second (0..65535; null delays: all 0). The monitor
    // hears (frames done, count) after each frame.
    // 0; 1 stopped by the monitor (the sink holds a stream cut short); -5 a null or invalid
    // frame, sizes that differ, a bad option or delay; -6 a frame of another pixel type; -1 out
    // of memory; sink codes.
    static int encode_frames(const qIImageBuffer* const* frames, const int* delays, int count,
                             const qGifEncodeOptions& options, qIFileW* sink, qIMonitor* monitor);

    // Writes `animation` again as `mode` says. `delay` (hundredths, -1 keeps each frame's) and
    // `loop_count` (0 keeps the animation's) override what it holds. Re-cutting needs all colours
    // of the composed screens to fit one table of 256 entries, with one to spare when a screen
    // has transparent pixels: RS_RECUT fails with ST_UNSUPPORTED otherwise, RS_SMALLER then writes
    // the frames as read. `*recut` (when not null) says whether the file written is re-cut. The
    // monitor hears (frames done, frames) after each frame (of the re-cut pass, when there is one).
    // Codes as for encode_frames; ST_BAD_ARGUMENT also for an animation without frames or an
    // unknown mode; -6 see above.
    static int reencode(qGifAnimation* animation, qGifResaveMode mode, int delay, int loop_count,
                        qIFileW* sink, qIMonitor* monitor, bool* recut = nullptr);
};
