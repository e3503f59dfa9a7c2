// The wuffs side of the GIF decoding benchmark; see wuffs_gif_peer.h. Only the GIF decoder and
// what it needs are compiled from the single-file release.
#define WUFFS_IMPLEMENTATION
#define WUFFS_CONFIG__MODULES
#define WUFFS_CONFIG__MODULE__BASE
#define WUFFS_CONFIG__MODULE__GIF
#define WUFFS_CONFIG__MODULE__LZW
#include "wuffs_gif_peer.h"

#include <stdlib.h>

#include "wuffs-v0.3.c"

int64_t wuffs_gif_peer_decode(const uint8_t* data, size_t length, wuffs_gif_peer_frame_fn on_frame,
                              void* context) {
    int64_t pixels = -1;
    uint8_t* canvas = NULL;
    uint8_t* workbuf = NULL;
    // wuffs's fastest set-up: its tables are not cleared, as their authors recommend.
    wuffs_gif__decoder* decoder = malloc(sizeof__wuffs_gif__decoder());
    if (decoder == NULL) return -1;
    if (wuffs_gif__decoder__initialize(decoder, sizeof__wuffs_gif__decoder(), WUFFS_VERSION,
                                       WUFFS_INITIALIZE__LEAVE_INTERNAL_BUFFERS_UNINITIALIZED)
            .repr != NULL) {
        goto done;
    }

    wuffs_base__io_buffer source = wuffs_base__ptr_u8__reader((uint8_t*)data, length, true);
    wuffs_base__image_config image_config;
    if (wuffs_gif__decoder__decode_image_config(decoder, &image_config, &source).repr != NULL) {
        goto done;
    }
    const uint32_t width = wuffs_base__pixel_config__width(&image_config.pixcfg);
    const uint32_t height = wuffs_base__pixel_config__height(&image_config.pixcfg);
    wuffs_base__pixel_config__set(&image_config.pixcfg,
                                  WUFFS_BASE__PIXEL_FORMAT__INDEXED__BGRA_BINARY,
                                  WUFFS_BASE__PIXEL_SUBSAMPLING__NONE, width, height);
    // The palette (1024 bytes) first, then the canvas's indices.
    const size_t canvas_bytes =
        WUFFS_BASE__PIXEL_FORMAT__INDEXED__PALETTE_BYTE_LENGTH + (size_t)width * height;
    const size_t workbuf_bytes = (size_t)wuffs_gif__decoder__workbuf_len(decoder).max_incl;
    canvas = malloc(canvas_bytes);
    workbuf = malloc(workbuf_bytes ? workbuf_bytes : 1);
    if (canvas == NULL || workbuf == NULL) goto done;
    wuffs_base__pixel_buffer buffer;
    if (wuffs_base__pixel_buffer__set_from_slice(&buffer, &image_config.pixcfg,
                                                 wuffs_base__make_slice_u8(canvas, canvas_bytes))
            .repr != NULL) {
        goto done;
    }

    int64_t sum = 0;
    for (;;) {
        wuffs_base__frame_config frame_config;
        wuffs_base__status status =
            wuffs_gif__decoder__decode_frame_config(decoder, &frame_config, &source);
        if (status.repr == wuffs_base__note__end_of_data) break;
        if (status.repr != NULL) goto done;
        status = wuffs_gif__decoder__decode_frame(
            decoder, &buffer, &source, WUFFS_BASE__PIXEL_BLEND__SRC,
            wuffs_base__make_slice_u8(workbuf, workbuf_bytes), NULL);
        if (status.repr != NULL) goto done;
        const wuffs_base__rect_ie_u32 r = wuffs_base__frame_config__bounds(&frame_config);
        sum += (int64_t)(r.max_excl_x - r.min_incl_x) * (r.max_excl_y - r.min_incl_y);
        if (on_frame != NULL) {
            on_frame(context, canvas + WUFFS_BASE__PIXEL_FORMAT__INDEXED__PALETTE_BYTE_LENGTH,
                     width, height, r.min_incl_x, r.min_incl_y, r.max_excl_x, r.max_excl_y);
        }
    }
    pixels = sum;
done:
    free(workbuf);
    free(canvas);
    free(decoder);
    return pixels;
}
