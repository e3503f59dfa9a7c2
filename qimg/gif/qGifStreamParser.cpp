// qGifStreamParser.cpp: the GIF stream layout, one step per block part.
//
// Each step names the bytes it needs, takes them whole and chooses the next step. The only state
// kept between blocks is the last graphic control record and whether it still waits for its
// image: by the strict rules a graphic control extension applies to the image descriptor that
// follows it directly and any other block in between cancels it; by the browser rules only an
// image takes it.
#include <climits>
#include <cstring>

#include "qimg/core/qAllocPriv.h"
#include "qimg/core/qCheckedMathPriv.h"
#include "qimg/core/qMonitor.h"
#include "qimg/core/qStatus.h"
#include "qimg/gif/qGifAnimation.h"
#include "qimg/gif/qGifBlocksPriv.h"
#include "qimg/gif/qGifFrame.h"
#include "qimg/gif/qGifStreamParserPriv.h"
#include "qimg/gif/qIFileR.h"
#include "qimg/gif/qMemoryR.h"
#include "qimg/image/qIndexImage.h"
#include "qimg/palette/qColormap.h"

namespace {

constexpr int kCommentGrowBy = 16;

int table_entries(unsigned char packed) {
    return (packed & kGifColorTableFlag) != 0 ? 2 << (packed & kGifColorTableSizeMask) : 0;
}

bool beyond(int64_t value, int64_t limit) {
    return limit > 0 && value > limit;
}

}  // namespace

qGifStreamParser::qGifStreamParser(qGifAnimation* animation, const qGifReadOptions& options,
                                   qIMonitor* monitor)
    : animation_(animation), options_(options), monitor_(monitor) {
    animation_->reset();
    expect(kHeader, kGifHeaderBytes);
}

qGifStreamParser::~qGifStreamParser() {
    stop(status_);
}

void qGifStreamParser::report_positions_of(qIFileR* source) {
    position_source_ = source;
    total_ = monitor_ != nullptr && source != nullptr ? source->size() : 0;
}

int qGifStreamParser::take(const unsigned char* bytes) {
    if (finished_) return status_;
    consumed_ += wanted_;
    const int rc = step(bytes);
    return rc != ST_OK ? stop(rc) : ST_OK;
}

void qGifStreamParser::skipped() {
    consumed_ += wanted_;
    expect(kBlockSize, 1);
}

int qGifStreamParser::end() {
    return finished_ ? status_ : stop(ST_READ_ERROR);
}

int64_t qGifStreamParser::take_in_place(const unsigned char* bytes, int available,
                                        int64_t seek_room) {
    int64_t used = 0;
    for (int n = wanted(); n > 0; n = wanted()) {
        if (skipping() && used + n <= seek_room) {
            skipped();
        } else if (used + n <= available) {
            take(bytes + used);
        } else {
            end();
            return used < available ? available : used;  // a short read takes what is there
        }
        used += n;
    }
    return used;
}

void qGifStreamParser::expect(Step next, int bytes) {
    step_ = next;
    wanted_ = bytes;
}

// The reading is over; a frame or comment not yet complete is not kept.
int qGifStreamParser::stop(int status) {
    finished_ = true;
    status_ = status;
    delete image_;
    image_ = nullptr;
    delete frame_;
    frame_ = nullptr;
    delete comment_;
    comment_ = nullptr;
    return status;
}

int qGifStreamParser::step(const unsigned char* bytes) {
    switch (step_) {
        case kHeader:
            return on_header(bytes);
        case kScreen:
            return on_screen(bytes);
        case kGlobalTable:
        case kLocalTable:
            return on_table(bytes);
        case kIntroducer:
            return on_introducer(bytes[0]);
        case kLabel:
            return on_label(bytes[0]);
        case kControl:
            return on_control(bytes);
        case kAppIdSize:
            // An identifier block of another size is refused once its bytes are there.
            if (bytes[0] == 0) return ST_BAD_FORMAT;
            expect(kAppId, bytes[0]);
            return ST_OK;
        case kAppId:
            return on_app_id(bytes);
        case kAppDataSize:
            if (bytes[0] == 0) {
                end_block();
            } else {
                expect(kAppData, bytes[0]);
            }
            return ST_OK;
        case kAppData:
            return on_app_data(bytes);
        case kBlockSize:
            return on_block_size(bytes[0]);
        case kSkipData:
            expect(kBlockSize, 1);
            return ST_OK;
        case kCommentData:
            if (!comment_->append(reinterpret_cast<const char*>(bytes), wanted_))
                return ST_NO_MEMORY;
            expect(kBlockSize, 1);
            return ST_OK;
        case kImageData:
            return on_image_data(bytes);
        case kDescriptor:
            return on_descriptor(bytes);
        case kCodeSize: {
            // No code size but a block introducer (a code size no decoder takes): by the browser
            // rules, an image without data, and the next block.
            if (options_.browser_rules && bytes[0] > qLzwDecoder::kMaxMinCodeSize) {
                const int rc = finish_image();
                return rc != ST_OK ? rc : on_introducer(bytes[0]);
            }
            decoding_ = 1;
            const qSize size = qGifFrame::descriptor_size(descriptor_);
            const int rc = frame_->start_data(size, bytes[0], &decoder_, &image_);
            if (rc == ST_OK) expect_sub_blocks(kImageData);
            return rc;
        }
    }
    return ST_BAD_ARGUMENT;
}

int qGifStreamParser::on_header(const unsigned char* bytes) {
    animation_->version_ = q_gif_version(bytes);
    if (animation_->version_ == 0) return ST_BAD_FORMAT;
    expect(kScreen, kGifScreenBytes);
    return ST_OK;
}

int qGifStreamParser::on_screen(const unsigned char* bytes) {
    animation_->screen_size_ = qSize(q_gif_u16(bytes), q_gif_u16(bytes + 2));
    animation_->background_ = bytes[5];
    animation_->pixel_aspect_ = bytes[6];
    const qSize screen = animation_->screen_size_;
    if (beyond(int64_t{screen.width} * screen.height, options_.max_screen_pixels))
        return ST_LIMIT_EXCEEDED;
    table_entries_ = table_entries(bytes[4]);
    if (table_entries_ > 0) {
        expect(kGlobalTable, 3 * table_entries_);
    } else {
        expect(kIntroducer, 1);
    }
    return ST_OK;
}

int qGifStreamParser::on_table(const unsigned char* bytes) {
    qGifColorTable table;
    table.entries = table_entries_;
    std::memcpy(table.rgb, bytes, static_cast<size_t>(3 * table_entries_));
    if (step_ == kLocalTable) return start_image(table);
    qColormap* map = &animation_->global_colormap_record_;
    animation_->global_colormap_ = map;
    if (const int rc = q_gif_fill_colormap(table, map); rc != ST_OK) {
        animation_->reset();
        return rc;
    }
    expect(kIntroducer, 1);
    return ST_OK;
}

int qGifStreamParser::on_introducer(unsigned char byte) {
    if (byte == kGifTrailer) {
        finished_ = true;
    } else if (byte == kGifImageIntroducer) {
        expect(kDescriptor, kGifImageDescriptorBytes);
    } else if (byte == kGifExtensionIntroducer) {
        expect(kLabel, 1);
    } else {
        // Any other byte between blocks is skipped, as many decoders do, so a stray padding
        // byte does not lose the images after it.
        end_block();
    }
    return ST_OK;
}

int qGifStreamParser::on_label(unsigned char label) {
    if (label == kGifLabelGraphicControl) {
        expect(kControl, kGifControlBytes);
    } else if (label == kGifLabelComment) {
        comment_ = q_new<qObjArray<char>>(kCommentGrowBy);
        if (comment_ == nullptr) return ST_NO_MEMORY;
        expect_sub_blocks(kCommentData);
    } else if (label == kGifLabelApplication) {
        expect(kAppIdSize, 1);
    } else {
        // Plain text is not drawn; unknown labels are skipped by their sub-blocks.
        expect_sub_blocks(kSkipData);
    }
    return ST_OK;
}

int qGifStreamParser::on_control(const unsigned char* bytes) {
    qMemoryR block(bytes, kGifControlBytes);
    const int rc = control_.read(&block);
    if (rc != ST_OK) return rc;
    control_pending_ = true;  // a later one before the image replaces it
    expect(kIntroducer, 1);
    return ST_OK;
}

int qGifStreamParser::on_app_id(const unsigned char* bytes) {
    if (wanted_ != kGifApplicationIdBytes) return ST_BAD_FORMAT;
    looping_id_ = std::memcmp(bytes, kGifLoopingApplicationId, kGifApplicationIdBytes) == 0;
    expect(kAppDataSize, 1);
    return ST_OK;
}

int qGifStreamParser::on_app_data(const unsigned char* bytes) {
    if (const int plays = looping_id_ ? q_gif_loop_count(bytes, wanted_) : 0; plays != 0)
        animation_->loop_count_ = plays;
    expect_sub_blocks(kSkipData);
    return ST_OK;
}

void qGifStreamParser::expect_sub_blocks(Step data_step) {
    data_step_ = data_step;
    expect(kBlockSize, 1);
}

int qGifStreamParser::on_block_size(unsigned char size) {
    if (size != 0) {
        expect(data_step_, size);
        return ST_OK;
    }
    int rc = ST_OK;
    if (data_step_ == kImageData) rc = finish_image();
    if (data_step_ == kCommentData) rc = finish_comment();
    end_block();
    return rc;
}

void qGifStreamParser::end_block() {
    if (!options_.browser_rules) control_pending_ = false;
    expect(kIntroducer, 1);
}

int qGifStreamParser::finish_comment() {
    if (!animation_->comments_.append(comment_)) return ST_NO_MEMORY;  // stop() deletes it
    comment_ = nullptr;
    return ST_OK;
}

int qGifStreamParser::on_descriptor(const unsigned char* bytes) {
    std::memcpy(descriptor_, bytes, kGifImageDescriptorBytes);
    if (const int rc = check_frame_limits(qGifFrame::descriptor_size(bytes)); rc != ST_OK)
        return rc;
    table_entries_ = table_entries(bytes[8]);
    if (table_entries_ > 0) {
        expect(kLocalTable, 3 * table_entries_);
        return ST_OK;
    }
    return start_image(qGifColorTable());
}

// Before anything is allocated for the image.
int qGifStreamParser::check_frame_limits(qSize size) const {
    const int64_t pixels = int64_t{size.width} * size.height;
    if (beyond(pixels, options_.max_frame_pixels)) return ST_LIMIT_EXCEEDED;
    const int bytes = pixels > 0 ? q_buffer_bytes(size.width, size.height, PT_INDEX8) : 0;
    // A buffer too large for the index image is its own error, found when the data start.
    if (bytes > 0 && beyond(frame_bytes_ + bytes, options_.max_total_bytes))
        return ST_LIMIT_EXCEEDED;
    return ST_OK;
}

int qGifStreamParser::start_image(const qGifColorTable& table) {
    frame_ = q_new<qGifFrame>();
    if (frame_ == nullptr) return ST_NO_MEMORY;
    const qGifControl* control = control_pending_ ? &control_ : nullptr;
    control_pending_ = false;  // an image always takes the record waiting for it
    transparent_ = control != nullptr ? control->transparent : -1;
    if (const int rc = frame_->start(descriptor_, table, control); rc != ST_OK) return rc;
    colormap_ = frame_->image_colormap(animation_->global_colormap_);
    expect(kCodeSize, 1);
    return ST_OK;
}

int qGifStreamParser::on_image_data(const unsigned char* bytes) {
    const int n = wanted_;
    expect(kBlockSize, 1);
    if (decoding_ != 1) return ST_OK;  // after the end code: read past, no progress
    decoding_ = decoder_.feed(bytes, n);
    if (decoding_ < 0) return ST_UNDECODABLE;
    return report_progress();
}

// Progress is the position in the stream after each sub-block out of the stream's size. The
// monitor never hears a total of 0 or below, nor a position below 0: a position that does not
// fit an int is INT_MAX (a size that does not is INT_MAX already), and when the size is unknown
// (a pipe, bytes pushed) the total is the position itself, so the total grows with the reading.
int qGifStreamParser::report_progress() {
    if (monitor_ == nullptr) return ST_OK;
    int done = 0;
    if (position_source_ != nullptr) {
        done = position_source_->seek(0, 1);
        if (done <= 0) done = INT_MAX;  // past what an int counts (a sub-block was just read)
    } else {
        done = static_cast<int>(q_min(consumed_, int64_t{INT_MAX}));
    }
    const int total = total_ > 0 ? q_max(total_, done) : done;
    return monitor_->progress(done, total, 0, 1) ? ST_OK : ST_CANCELLED;
}

int qGifStreamParser::finish_image() {
    if (step_ == kCodeSize) decoder_.init_into(0, nullptr, 0);  // no data: no output
    const qSize size = qGifFrame::descriptor_size(descriptor_);
    qIndexImage* image = image_;
    image_ = nullptr;  // finish_data takes it over
    const int rc = frame_->finish_data(&decoder_, image, size, colormap_, transparent_,
                                       options_.browser_rules);
    if (rc != ST_OK) return rc;
    if (!animation_->frames_.append(frame_)) return ST_NO_MEMORY;
    frame_ = nullptr;
    if (const qIndexImage* made = animation_->frames_[animation_->frames_.count() - 1]->image())
        frame_bytes_ += q_buffer_bytes(made->size().width, made->size().height, PT_INDEX8);
    return ST_OK;
}
