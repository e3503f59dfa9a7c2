#include "qimg/core/qAllocPriv.h"
#include "qimg/core/qAllocationHookPriv.h"

#ifdef QIMG_ALLOCATION_HOOK
namespace {
thread_local long g_count = 0;
thread_local long g_fail_at = 0;
}  // namespace

bool q_allocation_refused() noexcept { return ++g_count == g_fail_at; }

void qimg_fail_allocation(long n) {
    g_count = 0;
    g_fail_at = n;
}

long qimg_allocation_count() { return g_count; }
#endif
