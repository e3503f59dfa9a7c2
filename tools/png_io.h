// png_io.h: PNG files for the command-line program and the examples (through libpng's simplified
// interface).
//
// The library itself writes no files; these helpers sit beside it. Pixels cross this interface
// in qimg's own layouts: PT_BGRA32 for true colour, PT_INDEX8 plus a palette for indexed PNGs.
#pragma once

#include <qimg/qimg.h>

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

// Writes `height` rows of `width` PT_BGRA32 pixels, `stride` bytes apart, as an RGBA PNG.
bool write_png_bgra(const std::string& path, const unsigned char* pixels, int width, int height,
                    int stride, std::string& error);

// Writes PT_INDEX8 rows as a palette PNG: PLTE from the colour map and, when any entry is not
// opaque, a tRNS chunk with the alphas (up to the last non-opaque entry).
bool write_png_indexed(const std::string& path, const unsigned char* indices, int width, int height,
                       int stride, const qIColormap& palette, std::string& error);
