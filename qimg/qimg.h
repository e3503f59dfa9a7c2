// qimg.h: the umbrella header. Including it declares every class, enumeration and free function
// of the library.
//
//   core/    value types, enumerations, status codes, the progress monitor, the component
//            and pixel-buffer interfaces
//   color/   colour maps, palette choice (median cut, fixed cubes and grey ramps)
//   gif/     the nearest-colour cache
//   raster/  views onto pixel memory and the operations that draw into them
#pragma once

#include "qimg/color/qColorQuantProxy.h"
#include "qimg/color/qColormap.h"
#include "qimg/color/qHeckbertQuantizer.h"
#include "qimg/color/qIColorQuantizer.h"
#include "qimg/color/qIColormap.h"
#include "qimg/color/qSafeColormap.h"
#include "qimg/core/qComponent.h"
#include "qimg/core/qExport.h"
#include "qimg/core/qGeometry.h"
#include "qimg/core/qImageBuffer.h"
#include "qimg/core/qIndexColor.h"
#include "qimg/core/qMonitor.h"
#include "qimg/core/qPixel.h"
#include "qimg/core/qStatus.h"
#include "qimg/core/qTypes.h"
#include "qimg/gif/qGifColormap.h"
#include "qimg/raster/qImageAlias.h"
#include "qimg/raster/qImageEdit.h"
