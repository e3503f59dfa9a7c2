// GiflibReference.h: a GIF file as giflib reads it (a test-only peer): screen, global map,
// comments, loop count and every frame's rectangle, indices, local map and graphic control.
#pragma once

#include <gif_lib.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

namespace gif_test {

using Bytes = std::vector<unsigned char>;

struct MemoryInput {
    const Bytes* bytes;
    size_t at;
};

inline int read_memory(GifFileType* gif, GifByteType* out, int n) {
    auto* in = static_cast<MemoryInput*>(gif->UserData);
    const size_t k = std::min(static_cast<size_t>(n), in->bytes->size() - in->at);
    std::memcpy(out, in->bytes->data() + in->at, k);
    in->at += k;
    return static_cast<int>(k);
}

struct ReferenceFrame {
    int left, top, width, height;
    Bytes indices;  // rows in display order
    bool has_control = false;
    int delay = 0, disposal = 0, transparent = -1;
    bool interlaced = false;
    std::vector<unsigned char> local_rgb;  // empty without a local table
};
struct Reference {
    int width = 0, height = 0, background = -1;
    std::vector<unsigned char> global_rgb;
    int loop_count = 1;
    std::vector<std::string> comments;
    std::vector<ReferenceFrame> frames;
};

// Walks the extension blocks giflib saved before one image (or after the last one) the way a
// block-by-block reader meets them. giflib hands an image the last graphic control saved before
// it, whatever other extensions stand between them, as qimg's browser rules do.
inline void walk_extensions(const ExtensionBlock* blocks, int count, Reference* ref,
                            ReferenceFrame* frame) {
    bool looping_app = false;
    for (int i = 0; i < count; ++i) {
        const ExtensionBlock& b = blocks[i];
        if (b.Function == CONTINUE_EXT_FUNC_CODE) continue;  // data of the block before
        if (b.Function == GRAPHICS_EXT_FUNC_CODE && frame != nullptr && b.ByteCount == 4) {
            frame->has_control = true;
            frame->disposal = (b.Bytes[0] >> 2) & 7;
            frame->delay = b.Bytes[1] | (b.Bytes[2] << 8);
            frame->transparent = (b.Bytes[0] & 1) ? b.Bytes[3] : -1;
        } else if (b.Function == COMMENT_EXT_FUNC_CODE) {
            std::string text(reinterpret_cast<const char*>(b.Bytes), b.ByteCount);
            for (int j = i + 1; j < count && blocks[j].Function == CONTINUE_EXT_FUNC_CODE; ++j) {
                text.append(reinterpret_cast<const char*>(blocks[j].Bytes), blocks[j].ByteCount);
            }
            ref->comments.push_back(text);
        } else if (b.Function == APPLICATION_EXT_FUNC_CODE) {
            looping_app = b.ByteCount == 11 && std::memcmp(b.Bytes, "NETSCAPE2.0", 11) == 0;
            if (looping_app && i + 1 < count && blocks[i + 1].Function == CONTINUE_EXT_FUNC_CODE) {
                const ExtensionBlock& d = blocks[i + 1];
                if (d.ByteCount == 3 && d.Bytes[0] == 1) {
                    const int n = d.Bytes[1] | (d.Bytes[2] << 8);
                    ref->loop_count = n == 0 ? -1 : n + 1;
                }
            }
        }
    }
}

inline std::vector<unsigned char> rgb_of(const ColorMapObject* map) {
    std::vector<unsigned char> rgb;
    for (int i = 0; map && i < map->ColorCount; ++i)
        rgb.insert(rgb.end(), {map->Colors[i].Red, map->Colors[i].Green, map->Colors[i].Blue});
    return rgb;
}

// The file as giflib's DGifSlurp reads it; false when giflib refuses it.
inline bool slurp(const Bytes& bytes, Reference* ref) {
    MemoryInput input{&bytes, 0};
    int error = 0;
    GifFileType* gif = DGifOpen(&input, read_memory, &error);
    if (gif == nullptr) return false;
    if (DGifSlurp(gif) != GIF_OK) {
        DGifCloseFile(gif, &error);
        return false;
    }
    ref->width = gif->SWidth;
    ref->height = gif->SHeight;
    ref->background = gif->SBackGroundColor;
    ref->global_rgb = rgb_of(gif->SColorMap);
    for (int i = 0; i < gif->ImageCount; ++i) {
        const SavedImage& image = gif->SavedImages[i];
        ReferenceFrame frame;
        frame.left = image.ImageDesc.Left;
        frame.top = image.ImageDesc.Top;
        frame.width = image.ImageDesc.Width;
        frame.height = image.ImageDesc.Height;
        frame.interlaced = image.ImageDesc.Interlace;
        frame.local_rgb = rgb_of(image.ImageDesc.ColorMap);
        frame.indices.assign(image.RasterBits,
                             image.RasterBits + static_cast<size_t>(frame.width) * frame.height);
        walk_extensions(image.ExtensionBlocks, image.ExtensionBlockCount, ref, &frame);
        ref->frames.push_back(frame);
    }
    walk_extensions(gif->ExtensionBlocks, gif->ExtensionBlockCount, ref, nullptr);
    DGifCloseFile(gif, &error);
    return true;
}

}  // namespace gif_test
