// qExport.h: the export macro.
//
// libqimg.so is built with hidden visibility; QIMG_API marks what the umbrella header declares,
// so that exactly those classes and functions (with their vtables and type information, which
// the run-time capability queries need across the library boundary) are exported.
#pragma once

#define QIMG_API __attribute__((visibility("default")))
