// qGifFormatPriv.h: the byte values and block sizes of the GIF stream layout.
//
// Everything the stream reader, the image reader and the graphic control record compare bytes
// with is named here once.
#pragma once

#include <cstring>

// Block introducers, read where the next block is expected.
inline constexpr unsigned char kGifExtensionIntroducer = 0x21;
inline constexpr unsigned char kGifImageIntroducer = 0x2C;
inline constexpr unsigned char kGifTrailer = 0x3B;

// Extension labels, the byte after 0x21.
inline constexpr unsigned char kGifLabelPlainText = 0x01;
inline constexpr unsigned char kGifLabelGraphicControl = 0xF9;
inline constexpr unsigned char kGifLabelComment = 0xFE;
inline constexpr unsigned char kGifLabelApplication = 0xFF;

// Header: signature and version, compared byte for byte.
inline constexpr int kGifHeaderBytes = 6;
inline constexpr char kGifSignature87a[] = "GIF87a";
inline constexpr char kGifSignature89a[] = "GIF89a";

// Logical screen descriptor: width, height, packed flags, background index, aspect ratio.
inline constexpr int kGifScreenBytes = 7;
// Image descriptor after 0x2C: left, top, width, height, packed flags.
inline constexpr int kGifImageDescriptorBytes = 9;
// Packed flags of both descriptors: colour table present, its size code (2 << code entries).
inline constexpr unsigned char kGifColorTableFlag = 0x80;
inline constexpr unsigned char kGifColorTableSizeMask = 0x07;
// Packed flags of the image descriptor: rows stored in interlaced order.
inline constexpr unsigned char kGifInterlacedFlag = 0x40;
// Largest colour table: 256 red, green, blue triplets.
inline constexpr int kGifMaxColorTableBytes = 256 * 3;

// Graphic control extension: the 6 bytes after the label (size 4, packed, delay, index, 0).
inline constexpr int kGifControlBytes = 6;
inline constexpr unsigned char kGifControlBlockSize = 4;

// Application extension: an 11-byte identifier block; the looping one and its sub-block.
inline constexpr int kGifApplicationIdBytes = 11;
inline constexpr char kGifLoopingApplicationId[] = "NETSCAPE2.0";
inline constexpr int kGifLoopingSubBlockBytes = 3;
inline constexpr unsigned char kGifLoopingSubBlockId = 1;

// Data sub-blocks: a size byte of at most 255, then that many bytes; size 0 ends the sequence.
inline constexpr int kGifMaxSubBlockBytes = 255;

// Interlaced images store their rows in four passes: every 8th row from 0, every 8th from 4,
// every 4th from 2, every 2nd from 1.
struct qGifInterlacePass {
    int start;
    int step;
};
inline constexpr qGifInterlacePass kGifInterlacePasses[4] = {
    {0, 8},
    {4, 8},
    {2, 4},
    {1, 2}
};

// Unsigned little-endian 16-bit number, as every multi-byte field of the format is stored.
inline int q_gif_u16(const unsigned char* bytes) {
    return bytes[0] | (bytes[1] << 8);
}

// The version a header's 6 bytes name: 87 or 89; 0 when they are not a GIF signature.
inline int q_gif_version(const unsigned char* header) {
    if (std::memcmp(header, kGifSignature89a, kGifHeaderBytes) == 0) return 89;
    if (std::memcmp(header, kGifSignature87a, kGifHeaderBytes) == 0) return 87;
    return 0;
}

// The loop count that the first data sub-block (`n` bytes) of the looping application extension
// gives, or 0 when the sub-block is not the looping one. Its count says how often to repeat
// after the first play, 0 for ever: plays, or -1 for ever.
inline int q_gif_loop_count(const unsigned char* block, int n) {
    if (n != kGifLoopingSubBlockBytes || block[0] != kGifLoopingSubBlockId) return 0;
    const int repeats = q_gif_u16(block + 1);
    return repeats == 0 ? -1 : repeats + 1;
}
