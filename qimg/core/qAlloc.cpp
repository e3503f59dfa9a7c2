#include "qimg/core/qAllocPriv.h"
#include "qimg/core/qAllocationHookPriv.h"

#ifdef QIMG_TEST_HOOKS
namespace {
thread_local long g_count = 0;
thread_local long g_fail_at = 0;
thread_local unsigned long long g_bytes = 0;
}  // namespace

bool q_allocation_refused(std::size_t bytes) noexcept {
    g_bytes += bytes;
    return ++g_count == g_fail_at;
}

void qimg_fail_allocation(long n) {
    g_count = 0;
    g_bytes = 0;
    g_fail_at = n;
}

unsigned long long qimg_allocated_bytes() {
    return g_bytes;
}

long qimg_allocation_count() {
    return g_count;
}
#endif
