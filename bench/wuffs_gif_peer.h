// wuffs 0.3 as a GIF decoding peer: every frame of a file decoded to 8-bit indices into one
// canvas-sized buffer (pixel format INDEXED__BGRA_BINARY, blend SRC), the job closest to
// qimg's. Compiled only when the wuffs release is found (QIMG_HAVE_WUFFS).
#pragma once

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

// Called after each frame: the canvas (canvas_width x canvas_height indices, rows packed) and
// the rectangle [x0, x1) x [y0, y1) the frame covers on it.
typedef void (*wuffs_gif_peer_frame_fn)(void* context, const uint8_t* canvas, uint32_t canvas_width,
                                        uint32_t canvas_height, uint32_t x0, uint32_t y0,
                                        uint32_t x1, uint32_t y1);

// Decodes every frame of the GIF in `data`; `on_frame` (may be null) sees each one. Returns the
// sum of the frames' pixel counts, or -1 when wuffs reports an error or memory runs out.
int64_t wuffs_gif_peer_decode(const uint8_t* data, size_t length, wuffs_gif_peer_frame_fn on_frame,
                              void* context);

#ifdef __cplusplus
}
#endif
