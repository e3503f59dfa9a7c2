// qTypes.h: the small enumerations that travel through the interfaces.
//
// Every enumeration has the fixed underlying type int, so any 32-bit value a caller passes is a
// valid value of the type and is refused by the operation that reads it, never undefined.
#pragma once

// What kind of transparency an image or colour map has.
enum qAlphaType : int {
    AT_NONE = 0,     // not worked out, no image, or a pixel type without an answer
    AT_OPAQUE = 1,   // every alpha is 255, or the pixels have no alpha
    AT_BILEVEL = 2,  // alphas are 0 or 255 with at least one 0; any image with a transparent index
    AT_TRANSLUCENT = 3,  // at least one alpha between 1 and 254
};

// The kind of an image component, as each class reports it. The value 2 is reported by nothing.
enum qComponentType : int {
    CT_NONE = 0,          // the facade when it has no leaf
    CT_ANIMATION = 1,     // qGifAnimation
    CT_GIF_FRAME = 3,     // qGifFrame
    CT_FRAME = 4,         // qFrameDecorator
    CT_DIRECT_IMAGE = 5,  // qDirectImage
    CT_INDEX_IMAGE = 6,   // qIndexImage and qColorIndexImage
};

// How the block transfer puts source pixels into the destination. Other values give ST_UNSUPPORTED.
enum qBltMode : int {
    BLT_COPY = 1,   // convert and copy; source alpha copied, not applied; opacity ignored
    BLT_OVER = 2,   // composite over the destination by source alpha (opacity: PT_BGRA32 targets)
    BLT_BLEND = 3,  // blend by source alpha times opacity; a PT_BGRA32 target takes that alpha
};

// Which palette a generated-palette colour reduction builds. Other values give ST_UNSUPPORTED.
enum qCmapType : int {
    CM_CUBE = 0,      // a fixed colour cube sized to the requested count
    CM_ADAPTIVE = 1,  // chosen by median cut from the image's own pixels
    CM_GRAY = 2,      // a grey ramp with the requested number of levels
    // Not 3: callers count on the kinds after CM_GRAY being unknown.
    CM_QUALITY = 16,  // least-error palette from the image's pixels, mapped exactly (slower)
};

// How pixels are mapped to a palette. Only zero and non-zero are told apart.
enum qQuantizer : int {
    QT_NEAREST = 0,    // each pixel to the nearest entry
    QT_DIFFUSION = 1,  // error-diffusion dithering (any non-zero value)
};
