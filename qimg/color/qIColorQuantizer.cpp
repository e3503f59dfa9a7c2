#include "qimg/color/qIColorQuantizer.h"

qIColorQuantizer::~qIColorQuantizer() = default;
