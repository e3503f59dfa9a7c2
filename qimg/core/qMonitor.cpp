#include "qimg/core/qMonitor.h"

// Defined out of line so the vtable and type information live in the library.
qIMonitor::~qIMonitor() = default;
