// qimg.h: the umbrella header. Including it declares every class, enumeration and free function
// of the library.
//
//   core/     value types, enumerations, status codes, the progress monitor, the component
//             and pixel-buffer interfaces
//   palette/  the palette types: qIColormap and its extensions, qColormap, qSafeColormap
//   color/    the median-cut and quality quantizers, fixed palettes, frame reduction, the
//             nearest-colour cache
//   raster/   views onto pixel memory and the operations that draw into them (block and scaled
//             transfer, fill, colour mapping and dithering)
//   image/    true-colour and indexed images, the frame decorator, the frame composer
//   gif/      byte sources, the growable array, the graphic control record, LZW decoding,
//             GIF frames and animations, the stream parser with its pull and push readers
//   encode/   byte sinks, LZW encoding, the stream writer, the frame optimiser and the
//             animation encoder
//   facade/   qImageProxy
//
// Each folder includes only its own headers and those of the folders listed above it.
//
// qImageProxy is the facade most callers need: hand it an image (or read a GIF into it), then
// query, edit and draw it.
#pragma once

#include "qimg/color/qColorQuantProxy.h"
#include "qimg/color/qGifColormap.h"
#include "qimg/color/qHeckbertQuantizer.h"
#include "qimg/color/qIColorQuantizer.h"
#include "qimg/color/qQualityQuantizer.h"
#include "qimg/core/qComponent.h"
#include "qimg/core/qExport.h"
#include "qimg/core/qGeometry.h"
#include "qimg/core/qImageBuffer.h"
#include "qimg/core/qIndexColor.h"
#include "qimg/core/qMonitor.h"
#include "qimg/core/qPixel.h"
#include "qimg/core/qStatus.h"
#include "qimg/core/qTypes.h"
#include "qimg/encode/qCallbackW.h"
#include "qimg/encode/qFileW.h"
#include "qimg/encode/qGifEncoder.h"
#include "qimg/encode/qGifOptimizer.h"
#include "qimg/encode/qGifWriter.h"
#include "qimg/encode/qIFileW.h"
#include "qimg/encode/qLzwEncoder.h"
#include "qimg/encode/qMemoryW.h"
#include "qimg/facade/qImageProxy.h"
#include "qimg/gif/qFileR.h"
#include "qimg/gif/qGifAnimation.h"
#include "qimg/gif/qGifControl.h"
#include "qimg/gif/qGifFrame.h"
#include "qimg/gif/qGifPushReader.h"
#include "qimg/gif/qGifReadOptions.h"
#include "qimg/gif/qIFileR.h"
#include "qimg/gif/qLzwDecoder.h"
#include "qimg/gif/qMemoryR.h"
#include "qimg/gif/qObjArray.h"
#include "qimg/image/qColorIndexImage.h"
#include "qimg/image/qDirectImage.h"
#include "qimg/image/qFrameComposer.h"
#include "qimg/image/qFrameDecorator.h"
#include "qimg/image/qIndexImage.h"
#include "qimg/palette/qColormap.h"
#include "qimg/palette/qIColormap.h"
#include "qimg/palette/qSafeColormap.h"
#include "qimg/raster/qImageAlias.h"
#include "qimg/raster/qImageEdit.h"
