// png_io.h: PNG files for the command-line program (libpng's simplified interface for reading,
// row by row for writing).
//
// The library itself writes no files; these helpers sit beside it. Pixels cross this interface
// in qimg's own layouts: PT_BGRA32 for true colour, PT_INDEX8 plus a palette for indexed PNGs.
#pragma once

#include <qimg/qimg.h>

#include <cstdio>
#include <string>
#include <vector>

// A true-colour picture in PT_BGRA32 layout, rows of row_bytes(width, PT_BGRA32) bytes.
struct PngPicture {
    int width = 0;
    int height = 0;
    std::vector<unsigned char> pixels;

    int stride() const { return width * 4; }
};

// Reads any PNG as PT_BGRA32. On failure returns false and sets `error` to one line.
bool read_png(const std::string& path, PngPicture& picture, std::string& error);

// Writes `height` rows of `width` PT_BGRA32 pixels, `stride` bytes apart, as an RGBA PNG on
// `file`, row by row: `monitor` (may be null) hears each row and stops the writing by answering
// false. 0; 1 when stopped; -3 when the bytes cannot be written; -1 without memory; -5 for
// nothing to write.
int write_png_bgra(std::FILE* file, const unsigned char* pixels, int width, int height, int stride,
                   qIMonitor* monitor);

// The same for PT_INDEX8 rows as a palette PNG: PLTE from the colour map and, when any entry is
// not opaque, a tRNS chunk with the alphas (up to the last entry that is not opaque).
int write_png_indexed(std::FILE* file, const unsigned char* indices, int width, int height,
                      int stride, const qIColormap& palette, qIMonitor* monitor);
