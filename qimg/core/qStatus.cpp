#include "qimg/core/qStatus.h"

const char* status_text(int status) {
    switch (status) {
        case ST_OK:
            return "success";
        case ST_CANCELLED:
            return "cancelled";
        case ST_PASSES_DONE:
            return "animation passes complete";
        case ST_NO_MEMORY:
            return "out of memory, or no usable data";
        case ST_READ_ERROR:
            return "cannot open or read the data, or the data are cut short";
        case ST_BAD_ARGUMENT:
            return "invalid argument or empty object";
        case ST_UNSUPPORTED:
            return "unsupported pixel type, mode or palette kind";
        case ST_BAD_FORMAT:
            return "malformed GIF data";
        case ST_UNDECODABLE:
            return "GIF image without colour map, or undecodable image data";
        case ST_UNMAPPABLE:
            return "a pixel cannot be mapped to the palette";
        case ST_LIMIT_EXCEEDED:
            return "the GIF needs more than the reading limits allow";
        case ST_NOT_IMPLEMENTED:
            return "operation not supported by this object";
    }
    return "unknown status";
}
