// The GIF decoding calls the benchmarks time: qimg and giflib, each decoding every frame of a
// file held in memory to indices. Each returns the sum of the frames' pixel counts (width x
// height of every frame), the unit the benchmarks count in.
#pragma once

#include <gif_lib.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

#include "qimg/gif/qGifAnimation.h"
#include "qimg/gif/qGifFrame.h"
#include "qimg/gif/qGifPushReader.h"
#include "qimg/gif/qMemoryR.h"

using Bytes = std::vector<unsigned char>;

inline Bytes read_file(const std::filesystem::path& path) {
    std::ifstream in(path, std::ios::binary);
    return Bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
}

inline int64_t frame_pixels(qGifAnimation& animation) {
    int64_t pixels = 0;
    for (int i = 0; i < animation.num_frames(); ++i) {
        const qRect r = animation.frame(i)->frame_rect();
        pixels += int64_t{r.width} * r.height;
    }
    return pixels;
}

// read_gif from memory: the stream through qMemoryR into a qGifAnimation.
inline int64_t qimg_decode(const Bytes& bytes) {
    qGifAnimation animation;
    qMemoryR source(bytes.data(), bytes.size());
    animation.read(&source, nullptr);
    return frame_pixels(animation);
}

// The push reader fed the same bytes in pieces of 4 KiB, as they would come from a socket.
inline int64_t qimg_push_decode(const Bytes& bytes) {
    qGifPushReader reader;
    reader.begin(qGifReadOptions(), nullptr);
    constexpr size_t kPiece = 4096;
    for (size_t at = 0; at < bytes.size() && !reader.finished(); at += kPiece)
        reader.push(bytes.data() + at, static_cast<int>(std::min(kPiece, bytes.size() - at)));
    reader.end();
    return frame_pixels(*reader.animation());
}

struct GiflibMemoryInput {
    const Bytes* bytes;
    size_t at;
};

inline int giflib_read(GifFileType* gif, GifByteType* out, int n) {
    auto* in = static_cast<GiflibMemoryInput*>(gif->UserData);
    const size_t k = std::min(static_cast<size_t>(n), in->bytes->size() - in->at);
    std::memcpy(out, in->bytes->data() + in->at, k);
    in->at += k;
    return static_cast<int>(k);
}

// DGifSlurp: every frame's indices in memory, as qimg keeps them.
inline int64_t giflib_decode(const Bytes& bytes) {
    GiflibMemoryInput input{&bytes, 0};
    int error = 0;
    GifFileType* gif = DGifOpen(&input, giflib_read, &error);
    if (gif == nullptr) return 0;
    int64_t pixels = 0;
    if (DGifSlurp(gif) == GIF_OK) {
        for (int i = 0; i < gif->ImageCount; ++i) {
            pixels +=
                int64_t{gif->SavedImages[i].ImageDesc.Width} * gif->SavedImages[i].ImageDesc.Height;
        }
    }
    DGifCloseFile(gif, &error);
    return pixels;
}
