// qGifReadOptions.h: qGifReadOptions, how the GIF readers read: reading rules and limits.
//
// The defaults read every stream by the format's strict rules and allocate whatever the stream
// declares (within 32-bit sizes). A viewer that should show real files as web browsers do turns
// on browser_rules; a server that reads untrusted files sets limits, so that a small file that
// declares a huge screen or frames stops with ST_LIMIT_EXCEEDED before the memory is taken.
//
//   qGifReadOptions options;
//   options.browser_rules = true;
//   options.max_frame_pixels = 4096 * 4096;
//   options.max_total_bytes = int64_t{256} << 20;
//   int rc = animation.read(&source, monitor, options);
#pragma once

#include <cstdint>

#include "qimg/core/qExport.h"

struct QIMG_API qGifReadOptions {
    // Off: a graphic control extension applies only to an image that follows it directly, a
    // transparent index outside the colour map is dropped, and an image of width or height 0
    // or without any decoded index fails the reading. On, as browsers read GIF:
    // - a graphic control extension applies to the next image whatever extensions (comments,
    //   application or unknown ones) stand between them; the last one before the image wins;
    // - a transparent index at or past the end of the colour map is kept by the index image,
    //   so pixels of that index draw (and compose) as transparent;
    // - an image of width or height 0, or whose data hold no index, becomes a frame without
    //   pixels: it has its turn in the animation and draws nothing.
    bool browser_rules = false;
    // Limits, 0 for none. A stream beyond one stops with ST_LIMIT_EXCEEDED before allocating
    // for it, keeping the frames complete before it.
    int64_t max_screen_pixels = 0;  // logical screen width x height
    int64_t max_frame_pixels = 0;   // one image's width x height
    int64_t max_total_bytes = 0;  // the index buffers of all frames together, row padding included
};
