// qimg.h: the umbrella header. Including it declares every class, enumeration and free function
// of the library.
//
//   core/    value types, enumerations, status codes, the progress monitor, the component
//            and pixel-buffer interfaces
//   image/   the images that own pixels, and the frame that places one on a logical screen
//   color/   colour maps
//   raster/  views onto pixel memory and the operations that draw into them
//   gif/     byte sources, the growable array, the graphic control record, LZW decoding,
//            GIF frames and animations and the stream reader
//
// qImageProxy (core/) is the facade most callers need: hand it an image, then query, edit and
// draw it.
#pragma once

#include "qimg/color/qColormap.h"
#include "qimg/color/qIColormap.h"
#include "qimg/color/qSafeColormap.h"
#include "qimg/core/qComponent.h"
#include "qimg/core/qExport.h"
#include "qimg/core/qGeometry.h"
#include "qimg/core/qImageBuffer.h"
#include "qimg/core/qImageProxy.h"
#include "qimg/core/qIndexColor.h"
#include "qimg/core/qMonitor.h"
#include "qimg/core/qPixel.h"
#include "qimg/core/qStatus.h"
#include "qimg/core/qTypes.h"
#include "qimg/gif/qFileR.h"
#include "qimg/gif/qGifAnimation.h"
#include "qimg/gif/qGifControl.h"
#include "qimg/gif/qGifFrame.h"
#include "qimg/gif/qIFileR.h"
#include "qimg/gif/qLzwDecoder.h"
#include "qimg/gif/qMemoryR.h"
#include "qimg/gif/qObjArray.h"
#include "qimg/image/qColorIndexImage.h"
#include "qimg/image/qDirectImage.h"
#include "qimg/image/qFrameDecorator.h"
#include "qimg/image/qIndexImage.h"
#include "qimg/raster/qImageAlias.h"
#include "qimg/raster/qImageEdit.h"
