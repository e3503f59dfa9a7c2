// qImageProxy::read_gif: a GIF stream into the facade, as a qGifAnimation.
#include "qimg/core/qAllocPriv.h"
#include "qimg/core/qStatus.h"
#include "qimg/facade/qImageProxy.h"
#include "qimg/gif/qFileR.h"
#include "qimg/gif/qGifAnimation.h"
#include "qimg/gif/qGifPushReader.h"

int qImageProxy::read_gif(const char* path, qIMonitor* monitor) {
    return read_gif(path, monitor, qGifReadOptions());
}

int qImageProxy::read_gif(qIFileR* source, qIMonitor* monitor) {
    return read_gif(source, monitor, qGifReadOptions());
}

int qImageProxy::read_gif(const char* path, qIMonitor* monitor, const qGifReadOptions& options) {
    qFileR file;
    if (!file.open(path)) return ST_READ_ERROR;
    return read_gif(&file, monitor, options);  // the file closes when `file` goes
}

int qImageProxy::read_gif(qIFileR* source, qIMonitor* monitor, const qGifReadOptions& options) {
    if (source == nullptr) return ST_BAD_ARGUMENT;
    qGifAnimation* animation = q_new<qGifAnimation>();
    if (animation == nullptr) return ST_NO_MEMORY;
    return hold_read(animation, animation->read(source, monitor, options));
}

int qImageProxy::read_gif(qGifPushReader* reader) {
    if (reader == nullptr || reader->animation() == nullptr) return ST_BAD_ARGUMENT;
    const int rc = reader->end();
    qGifAnimation* animation = reader->take_animation();
    return animation != nullptr ? hold_read(animation, rc) : ST_BAD_ARGUMENT;  // not the reader's
}

int qImageProxy::hold_read(qGifAnimation* animation, int rc) {
    // A stream that broke off or was stopped after a complete frame is still worth showing.
    if (animation->valid()) rc = 0;
    if (animation->size().empty()) {
        // A screen declared empty takes the size of the first image.
        const qIComponent* leaf = animation->current_leaf();
        if (leaf == nullptr) {
            if (rc != ST_LIMIT_EXCEEDED) rc = ST_NO_MEMORY;  // a refusal stays one
        } else if (rc == 0) {
            rc = animation->set_screen_size(leaf->size());
        }
    }
    if (rc != 0) {
        delete animation;
        animation = nullptr;
    }
    clear();
    component_ = animation;
    return rc;
}
