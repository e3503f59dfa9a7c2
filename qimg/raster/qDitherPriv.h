// qDitherPriv.h: the error tables of the diffusing colour mapper.
//
// A table turns the difference between the colour a pixel wanted and the colour it got into the
// error passed on to its neighbours, with the strength and the error limit folded in, so the
// per-pixel work is one table read per channel.
#pragma once

#include <cmath>
#include <cstdint>

// Errors -512..511 are stored at index error + 512.
inline constexpr int kErrorTableSize = 1024;
inline constexpr int kErrorTableOffset = 512;

// The limit applied to every diffused error: unchanged up to 160, half slope up to 319 (where
// it reaches 239), never beyond 240; the sign is kept. Limiting keeps a large error (a colour
// far from every palette entry) from smearing over many pixels as a visible streak.
constexpr int q_limit_error(int e) {
    const int m = e < 0 ? -e : e;
    const int limited = m <= 160 ? m : (m < 320 ? 80 + m / 2 : 240);
    return e < 0 ? -limited : limited;
}

// Fills table[i + 512] for i = -512..511 with q_limit_error(i * strength rounded half away
// from zero), computed in double. A strength that is not a number counts as 0; products too
// large for an int are limited to 240 before any conversion.
inline void q_fill_error_table(int16_t* table, float strength) {
    const double s = std::isnan(strength) ? 0.0 : static_cast<double>(strength);
    for (int i = -kErrorTableOffset; i < kErrorTableSize - kErrorTableOffset; ++i) {
        const double v = i >= 0 ? i * s + 0.5 : i * s - 0.5;
        int limited;
        if (v >= 320.0) {
            limited = 240;
        } else if (v <= -320.0) {
            limited = -240;
        } else {
            limited = q_limit_error(static_cast<int>(v));  // truncates toward zero
        }
        table[i + kErrorTableOffset] = static_cast<int16_t>(limited);
    }
}
