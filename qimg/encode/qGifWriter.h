// qGifWriter.h: qGifWriter, writes a GIF89a stream to a byte sink.
//
// The writing side of the stream reader: the header and logical screen with the global colour
// table, the looping application extension, comments, and images with their graphic control
// extension, local colour table and LZW data, then the trailer. Images are palette indices
// (PT_INDEX8 buffers); the writer stores them as they are, in the order of the calls.
//
//   qFileW file;
//   file.open("out.gif");
//   qGifWriter writer;
//   writer.begin(&file, qSize(100, 80), &palette, 0, -1);   // loops without end
//   qGifControl control;  control.delay = 10;  control.disposal = 1;
//   writer.add_image(&frame0, qPoint(0, 0), nullptr, &control, false, nullptr);
//   writer.add_image(&frame1, qPoint(5, 5), nullptr, &control, false, nullptr);
//   writer.finish();
//   file.close();
//
// Or a whole animation as read: qGifWriter().write(&animation, &file, monitor).
//
// Colour tables hold 2, 4, ... 256 entries: a map of another size is padded with black. Their
// alphas are not stored; transparency is the graphic control's transparent index. After any
// failure the writer refuses everything until the next begin(), and the sink holds a stream
// cut short.
#pragma once

#include "qimg/core/qExport.h"
#include "qimg/core/qGeometry.h"
#include "qimg/encode/qLzwEncoder.h"

class qGifAnimation;
class qGifControl;
class qGifFrame;
class qIColormap;
class qIFileW;
class qIImageBuffer;
class qIMonitor;

class QIMG_API qGifWriter {
public:
    qGifWriter() = default;
    ~qGifWriter() = default;
    qGifWriter(const qGifWriter&) = delete;
    qGifWriter& operator=(const qGifWriter&) = delete;

    // The clear policy of the LZW encoder for the images written from now on (see
    // qLzwEncoder::begin); off by default.
    void set_deferred_clear(bool deferred) { deferred_clear_ = deferred; }
    // Without the deferred clear: keep a table that fills up near an image's end (see
    // qLzwEncoder::keep_near_end); off by default.
    void set_keep_near_end(bool keep) { keep_near_end_ = keep; }

    // Starts a stream on `sink` (borrowed until finish()): "GIF89a", the logical screen of
    // `screen` (1..65535 each way), the global colour table from `global_colormap` (null for
    // none; else 1..256 entries) and the background index (0..255, or -1 for 0). `loop_count`
    // counts passes as qGifAnimation::loop_count() does: 1 writes no looping block, -1 loops
    // without end, 2..65536 repeat n - 1 times.
    // 0; -5 a null sink or a value outside those ranges; -3 / -1 the sink's failure.
    int begin(qIFileW* sink, qSize screen, const qIColormap* global_colormap, int background,
              int loop_count);
    // A comment extension holding `length` bytes of `text` (any bytes; no terminator is
    // added). 0; -5 before begin(), a null text with length > 0 or a negative length; sink codes.
    int add_comment(const char* text, int length);
    // One image: the indices of `image` (PT_INDEX8, all of it) placed at `offset` on the screen,
    // coloured by `local_colormap` (written as a local table) or, when that is null, by the
    // global one. `control` (may be null) writes a graphic control extension first: disposal,
    // delay and transparent index (-1 for none). `interlaced` stores the rows in the four
    // interlace passes. The monitor hears (rows written, rows of the image) after each row.
    // 0; 1 stopped by the monitor (the image is cut short: discard the stream); -5 before
    // begin(), an invalid image, not PT_INDEX8, larger than 65535 either way, an offset outside
    // 0..65535, no colour table at all, an index that the table's size does not reach, or a
    // control value outside the format's fields; -1 out of memory; sink codes.
    int add_image(const qIImageBuffer* image, qPoint offset, const qIColormap* local_colormap,
                  const qGifControl* control, bool interlaced, qIMonitor* monitor);
    // One frame as read: its image, offset, local map and interlace flag, with `control` (null:
    // the frame's own, if any). A frame without pixels (the browser rules keep images of width
    // or height 0, or without data) is written as one transparent pixel at the screen's corner that
    // disposes of nothing: it shows nothing, as the original, and keeps the frame's delay. Codes of
    // add_image(); the monitor hears the frame's rows.
    int add_frame(const qGifFrame* frame, const qGifControl* control, qIMonitor* monitor);
    // The trailer; the writer then lets go of the sink. 0; -5 before begin(); sink codes.
    int finish();

    // The whole of `animation`: its screen, global map, background, loop count and comments,
    // then every frame with its offset, local map, control record and interlace flag, then the
    // trailer. The monitor hears (rows written, rows of all frames) after each row.
    // 0; 1 stopped; -5 a null or empty animation or sink, or a frame that cannot be written
    // as described for add_image(); -1; sink codes.
    int write(const qGifAnimation* animation, qIFileW* sink, qIMonitor* monitor);

private:
    int fail(int code);
    int put(const void* data, int count);
    int put_byte(int value) {
        const unsigned char byte = static_cast<unsigned char>(value);
        return put(&byte, 1);
    }
    int put_u16(int value);
    int put_color_table(const qIColormap* colormap, int size_code);
    int put_sub_blocks(const unsigned char* data, int count);
    // Sends the staged bytes to the sink.
    int flush();
    int write_image(const qIImageBuffer* image, qPoint offset, const qIColormap* local_colormap,
                    const qGifControl* control, bool interlaced, qIMonitor* monitor,
                    int rows_before, int rows_total);
    int write_frame(const qGifFrame* frame, const qGifControl* control, qIMonitor* monitor,
                    int rows_before, int rows_total);

    static constexpr int kStageBytes = 16384;

    qIFileW* sink_ = nullptr;
    const qIColormap* global_colormap_ = nullptr;
    int status_ = -5;  // 0 while a stream is open; else the code that ended it (or -5: none)
    bool deferred_clear_ = false;
    bool keep_near_end_ = false;
    qLzwEncoder lzw_;
    int staged_ = 0;
    unsigned char stage_[kStageBytes];
};
