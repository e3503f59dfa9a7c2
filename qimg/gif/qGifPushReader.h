// qGifPushReader.h: qGifPushReader, a GIF stream read from bytes handed over as they arrive.
//
// For a GIF that comes over a socket, a pipe or a slow disk: the caller pushes the bytes in
// pieces of any size, and after each piece the frames complete so far are in the animation,
// ready to draw or compose while more bytes come. end() says whether the stream was complete.
// The frames and the status are those qGifAnimation::read gives for the same bytes: both readers
// share one parser. No byte is read twice, and the reader holds back at most one colour table or
// data sub-block of the caller's bytes (768 bytes) besides what the frames need.
//
//   qGifPushReader reader;
//   reader.begin(qGifReadOptions(), nullptr);
//   while (int n = receive(buffer, sizeof buffer)) {
//       reader.push(buffer, n);
//       show(reader.animation(), reader.complete_frames());   // frames 0 .. complete - 1
//       if (reader.finished()) break;                          // trailer seen, or an error
//   }
//   int rc = reader.end();   // 0 complete; ST_READ_ERROR cut short; the reader's other codes
#pragma once

#include "qimg/core/qExport.h"
#include "qimg/gif/qGifReadOptions.h"

class qGifAnimation;
class qGifStreamParser;
class qIMonitor;

class QIMG_API qGifPushReader {
public:
    // A reader that waits for begin().
    qGifPushReader() = default;
    ~qGifPushReader();
    qGifPushReader(const qGifPushReader&) = delete;
    qGifPushReader& operator=(const qGifPushReader&) = delete;

    // Starts a new stream into a new, empty animation (the previous one is destroyed). `monitor`
    // (may be null) hears (bytes read so far, the same) after each image data sub-block and
    // stops the reading by answering false. ST_OK, or ST_NO_MEMORY (no reading started).
    int begin(const qGifReadOptions& options, qIMonitor* monitor);
    // The same, reading into the caller's `animation` (borrowed, emptied first; it must outlive
    // the reading), which take_animation() then does not hand over. ST_BAD_ARGUMENT for null.
    int begin(qGifAnimation* animation, const qGifReadOptions& options, qIMonitor* monitor);
    // Hands over the next `length` bytes of the stream (copied where a block is not complete).
    // ST_OK while the stream goes on; once it is over, the status qGifAnimation::read would give
    // (ST_OK at the trailer, ST_LIMIT_EXCEEDED, ST_UNDECODABLE, ...), and bytes after that are
    // ignored. ST_BAD_ARGUMENT without begin() or for a null `data` with `length` > 0, or a
    // negative `length`.
    int push(const void* data, int length);
    // The data have ended: ST_READ_ERROR when the stream was not over (cut short), else its
    // status. Frames complete before the end stay in the animation. ST_BAD_ARGUMENT without
    // begin().
    int end();

    // The trailer was reached or the reading stopped with an error (see push()).
    bool finished() const;
    // Frames whose pixels are complete: animation()->frame(0 .. complete_frames() - 1). They
    // never change afterwards.
    int complete_frames() const;
    // The animation being read (borrowed; lives until the next begin() or the reader's end);
    // null before begin().
    qGifAnimation* animation() const { return animation_; }
    // Hands the animation over to the caller, who deletes it, and stops the reading: the reader
    // waits for begin() again. Null before begin() and for the caller's own animation.
    qGifAnimation* take_animation();

private:
    void release();

    qGifAnimation* animation_ = nullptr;
    bool owns_animation_ = false;
    qGifStreamParser* parser_ = nullptr;
    // Bytes of the step under way, held until the step has all it wants: at most a colour table.
    static constexpr int kMaxHeldBytes = 256 * 3;
    unsigned char held_[kMaxHeldBytes] = {};
    int held_count_ = 0;
};
