// qStatus.h: the status codes every operation returns.
//
// Operations that produce a status return int: 0 for success, 1 or 2 for the two non-failure
// outcomes below, and a negative code otherwise. No exception ever crosses the interface.
// The names are for readers of calling code; the interfaces return plain ints.
#pragma once

#include "qimg/core/qExport.h"

enum qStatus : int {
    ST_OK = 0,
    ST_CANCELLED = 1,           // the monitor answered false; the work done so far stays
    ST_PASSES_DONE = 2,         // next_frame: the animation's passes are complete (not a failure)
    ST_NO_MEMORY = -1,          // memory exhausted, or a stream that yields nothing usable
    ST_READ_ERROR = -3,         // a file cannot be opened, or the data end before they should
    ST_BAD_ARGUMENT = -5,       // null or invalid argument, empty object, missing capability
    ST_UNSUPPORTED = -6,        // pixel type, type pair, mode, method or palette kind
    ST_BAD_FORMAT = -8,         // GIF data that break the layout
    ST_UNDECODABLE = -9,        // a GIF image without colour map, or undecodable LZW data
    ST_UNMAPPABLE = -10,        // a pixel that cannot be mapped to a palette index
    ST_LIMIT_EXCEEDED = -11,    // a GIF that needs more than the reading limits allow
    ST_NOT_IMPLEMENTED = -100,  // an operation that the class does not support
};

// A short English description of a status code, for messages; "unknown status" for any other
// value. The text is a static string.
QIMG_API const char* status_text(int status);
