// qGifStreamParserPriv.h: qGifStreamParser, the GIF stream layout as steps that each take a
// known number of bytes.
//
// Both readers share it, so they give the same frames and statuses by construction: the pull
// reader (qGifAnimation::read) reads exactly wanted() bytes from its source and hands them over;
// the push reader (qGifPushReader) collects the caller's pieces until wanted() bytes are there.
// A step takes at most one colour table, one sub-block or one fixed-size block, so nothing is
// read twice and nothing is buffered beyond that.
//
//   qGifStreamParser parser(&animation, options, monitor);
//   while (parser.wanted() > 0) {
//       if (!read_exactly(buffer, parser.wanted())) break;   // the data ended: ST_READ_ERROR
//       parser.take(buffer);
//   }
//   int rc = parser.status();
#pragma once

#include <cstdint>

#include "qimg/core/qGeometry.h"
#include "qimg/gif/qGifControl.h"
#include "qimg/gif/qGifFormatPriv.h"
#include "qimg/gif/qGifReadOptions.h"
#include "qimg/gif/qLzwDecoder.h"
#include "qimg/gif/qObjArray.h"

class qGifAnimation;
class qGifFrame;
class qIColormap;
class qIFileR;
class qIMonitor;
class qIndexImage;
struct qGifColorTable;

class qGifStreamParser {
public:
    // Empties `animation` (borrowed) and expects the stream's header next.
    qGifStreamParser(qGifAnimation* animation, const qGifReadOptions& options, qIMonitor* monitor);
    ~qGifStreamParser();
    qGifStreamParser(const qGifStreamParser&) = delete;
    qGifStreamParser& operator=(const qGifStreamParser&) = delete;

    // The number of bytes the next step takes (1..768); 0 once the reading is over.
    int wanted() const { return finished_ ? 0 : wanted_; }
    // The wanted bytes are passed over unread (a sub-block nobody uses): a source that can seek
    // may skip them and call skipped() instead of take().
    bool skipping() const { return step_ == kSkipData; }
    // Takes exactly wanted() bytes. ST_OK to go on (or over: the trailer was reached), else the
    // status the reading stopped with.
    int take(const unsigned char* bytes);
    void skipped();
    // The data ended here: ST_READ_ERROR unless the reading was over.
    int end();
    // The steps taken from `available` bytes in memory (skips passing over bytes, up to
    // `seek_room` past the start, as a seek would), end() when they run out. The bytes a reader
    // of the same bytes moves over: to the trailer's end, or (data cut short) to the end of the
    // data or past it after a skip.
    int64_t take_in_place(const unsigned char* bytes, int available, int64_t seek_room);
    bool finished() const { return finished_; }
    // ST_OK while going on and after the trailer; else the status the reading stopped with.
    int status() const { return status_; }
    // Bytes taken (or skipped) so far.
    int64_t consumed() const { return consumed_; }
    // Progress positions: from `source` (its position and size, as the pull reader reports);
    // without one, the bytes taken so far out of the same (the total is unknown).
    void report_positions_of(qIFileR* source);

private:
    enum Step {
        kHeader,       // signature and version
        kScreen,       // logical screen descriptor
        kGlobalTable,  // global colour table
        kIntroducer,   // the byte that starts the next block
        kLabel,        // the byte after an extension introducer
        kControl,      // graphic control block
        kAppIdSize,    // size byte of an application identifier block
        kAppId,        // application identifier and authentication code
        kAppDataSize,  // size byte of an application's first data sub-block
        kAppData,      // an application's first data sub-block
        kBlockSize,    // size byte of a data sub-block whose bytes `sink_` takes
        kSkipData,     // a sub-block nobody uses
        kCommentData,  // a sub-block of a comment
        kImageData,    // a sub-block of image data
        kDescriptor,   // image descriptor
        kLocalTable,   // local colour table
        kCodeSize,     // minimum code size before the image data
    };

    int step(const unsigned char* bytes);
    void expect(Step next, int bytes);
    int stop(int status);
    int on_header(const unsigned char* bytes);
    int on_screen(const unsigned char* bytes);
    int on_table(const unsigned char* bytes);
    int on_introducer(unsigned char byte);
    int on_label(unsigned char label);
    int on_control(const unsigned char* bytes);
    int on_app_id(const unsigned char* bytes);
    int on_app_data(const unsigned char* bytes);
    int on_block_size(unsigned char size);
    int on_image_data(const unsigned char* bytes);
    int on_descriptor(const unsigned char* bytes);
    int start_image(const qGifColorTable& table);
    int finish_image();
    int finish_comment();
    // Sub-blocks whose bytes `data_step` takes, up to their terminator.
    void expect_sub_blocks(Step data_step);
    // The next block introducer; a graphic control record stays pending only under the browser
    // rules.
    void end_block();
    int report_progress();
    int check_frame_limits(qSize size) const;

    qGifAnimation* animation_;
    qGifReadOptions options_;
    qIMonitor* monitor_;
    qIFileR* position_source_ = nullptr;
    int total_ = 0;  // the source's size for progress; 0 when unknown

    Step step_ = kHeader;
    int wanted_ = 0;
    Step data_step_ = kSkipData;  // what the sub-blocks of the current extension go to
    bool finished_ = false;
    int status_ = 0;
    int64_t consumed_ = 0;
    int64_t frame_bytes_ = 0;  // the index buffers of the frames read so far

    qGifControl control_;
    bool control_pending_ = false;
    bool looping_id_ = false;  // the application identifier is the looping one
    unsigned char descriptor_[kGifImageDescriptorBytes] = {};
    int table_entries_ = 0;  // of the colour table being read

    // The image being read.
    qGifFrame* frame_ = nullptr;
    qIndexImage* image_ = nullptr;
    const qIColormap* colormap_ = nullptr;
    int transparent_ = -1;
    int decoding_ = 1;  // the decoder's last answer: 1 wants data, 0 saw the end code
    qLzwDecoder decoder_;
    // The comment being read.
    qObjArray<char>* comment_ = nullptr;
};
