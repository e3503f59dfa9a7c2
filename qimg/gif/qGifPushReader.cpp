// qGifPushReader.cpp: the caller's pieces cut into the parser's steps. A step whose bytes lie
// whole in a piece takes them where they are; only a step split between pieces is copied.
#include "qimg/gif/qGifPushReader.h"

#include <cstring>

#include "qimg/core/qAllocPriv.h"
#include "qimg/core/qStatus.h"
#include "qimg/gif/qGifAnimation.h"
#include "qimg/gif/qGifStreamParserPriv.h"

qGifPushReader::~qGifPushReader() {
    release();
}

void qGifPushReader::release() {
    delete parser_;  // before the animation it fills
    parser_ = nullptr;
    if (owns_animation_) delete animation_;
    animation_ = nullptr;
    held_count_ = 0;
}

int qGifPushReader::begin(const qGifReadOptions& options, qIMonitor* monitor) {
    release();
    qGifAnimation* animation = q_new<qGifAnimation>();
    if (animation == nullptr) return ST_NO_MEMORY;
    const int rc = begin(animation, options, monitor);
    if (rc != ST_OK) {
        delete animation;
        return rc;
    }
    owns_animation_ = true;
    return ST_OK;
}

int qGifPushReader::begin(qGifAnimation* animation, const qGifReadOptions& options,
                          qIMonitor* monitor) {
    release();
    if (animation == nullptr) return ST_BAD_ARGUMENT;
    owns_animation_ = false;
    animation_ = animation;
    parser_ = q_new<qGifStreamParser>(animation_, options, monitor);
    if (parser_ == nullptr) {
        release();
        return ST_NO_MEMORY;
    }
    return ST_OK;
}

int qGifPushReader::push(const void* data, int length) {
    if (parser_ == nullptr || length < 0 || (data == nullptr && length > 0)) return ST_BAD_ARGUMENT;
    const auto* bytes = static_cast<const unsigned char*>(data);
    for (int wanted = parser_->wanted(); wanted > 0 && length > 0; wanted = parser_->wanted()) {
        if (held_count_ == 0 && length >= wanted) {
            parser_->take(bytes);
            bytes += wanted;
            length -= wanted;
            continue;
        }
        const int n = wanted - held_count_ < length ? wanted - held_count_ : length;
        std::memcpy(held_ + held_count_, bytes, static_cast<size_t>(n));
        held_count_ += n;
        bytes += n;
        length -= n;
        if (held_count_ == wanted) {
            held_count_ = 0;
            parser_->take(held_);
        }
    }
    return parser_->status();
}

qGifAnimation* qGifPushReader::take_animation() {
    qGifAnimation* animation = owns_animation_ ? animation_ : nullptr;
    animation_ = nullptr;
    release();
    return animation;
}

int qGifPushReader::end() {
    return parser_ != nullptr ? parser_->end() : ST_BAD_ARGUMENT;
}

bool qGifPushReader::finished() const {
    return parser_ != nullptr && parser_->finished();
}

int qGifPushReader::complete_frames() const {
    return animation_ != nullptr ? animation_->num_frames() : 0;
}
