#include "cli_label.h"

namespace {

constexpr int kGlyphWidth = 3;
constexpr int kGlyphHeight = 5;

// Each glyph is five rows of three bits, the high bit on the left.
struct Glyph {
    char c;
    unsigned char rows[kGlyphHeight];
};

constexpr Glyph kGlyphs[] = {
    {'0', {7, 5, 5, 5, 7}},
    {'1', {2, 6, 2, 2, 7}},
    {'2', {7, 1, 7, 4, 7}},
    {'3', {7, 1, 7, 1, 7}},
    {'4', {5, 5, 7, 1, 1}},
    {'5', {7, 4, 7, 1, 7}},
    {'6', {7, 4, 7, 5, 7}},
    {'7', {7, 1, 1, 1, 1}},
    {'8', {7, 5, 7, 5, 7}},
    {'9', {7, 5, 7, 1, 7}},
    {':', {0, 2, 0, 2, 0}},
    {'m', {0, 7, 7, 5, 5}},
    {'s', {3, 4, 2, 1, 6}},
    {'x', {0, 5, 2, 5, 0}},
};

const unsigned char* glyph_rows(char c) {
    for (const Glyph& g : kGlyphs) {
        if (g.c == c) return g.rows;
    }
    return nullptr;
}

}  // namespace

int label_width(const std::string& text, int scale) {
    return static_cast<int>(text.size()) * (kGlyphWidth + 1) * scale;
}

int label_height(int scale) {
    return kGlyphHeight * scale;
}

void draw_label(qImageEdit& view, int x, int y, const std::string& text, int scale,
                const unsigned char colour[4]) {
    for (size_t i = 0; i < text.size(); ++i) {
        const unsigned char* rows = glyph_rows(text[i]);
        if (!rows) continue;
        const int left = x + static_cast<int>(i) * (kGlyphWidth + 1) * scale;
        for (int r = 0; r < kGlyphHeight; ++r) {
            for (int c = 0; c < kGlyphWidth; ++c) {
                if (rows[r] & (4 >> c)) {
                    view.FillRect(qRect(left + c * scale, y + r * scale, scale, scale), PT_BGRA32,
                                  colour, nullptr);
                }
            }
        }
    }
}
