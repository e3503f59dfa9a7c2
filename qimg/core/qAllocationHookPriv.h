// qAllocationHookPriv.h: test-only control of the allocation choke point.
//
// Present only in builds with QIMG_TEST_HOOKS (the `make test` build). The state is per
// thread, so tests on different threads do not disturb each other.
#pragma once

#include "qimg/core/qExport.h"

#ifdef QIMG_TEST_HOOKS
// Restarts the counts of allocations and bytes on this thread at 0 and makes allocation number `n`
// (1-based) fail; n <= 0 lets every allocation through.
QIMG_API void qimg_fail_allocation(long n);
// Allocations asked for on this thread since the last qimg_fail_allocation().
QIMG_API long qimg_allocation_count();
// Bytes asked for by those allocations (a reallocation counts its whole new size), an upper
// bound of the memory they held at any time: tests use it to bound the memory an input costs.
QIMG_API unsigned long long qimg_allocated_bytes();
#endif
