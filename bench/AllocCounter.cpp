// A malloc interposer for the benchmark binary: the executable's definitions win over libc's for
// every library, the dlopen'ed driver and Qt included, and operator new ends up here too.
#include "AllocCounter.h"

#include <cstddef>

extern "C" {
void* __libc_malloc(size_t size);
void* __libc_calloc(size_t count, size_t size);
void* __libc_realloc(void* ptr, size_t size);
void* __libc_memalign(size_t alignment, size_t size);
}

namespace {
// Only the measuring thread counts: the NTP worker runs beside it.
thread_local bool counting = false;
thread_local std::uint64_t allocations = 0;

inline void count() {
    if (counting)
        ++allocations;
}
}  // namespace

namespace krv_bench {
void startCounting() {
    allocations = 0;
    counting = true;
}
std::uint64_t stopCounting() {
    counting = false;
    return allocations;
}
}  // namespace krv_bench

extern "C" {
void* malloc(size_t size) {
    count();
    return __libc_malloc(size);
}
void* calloc(size_t n, size_t size) {
    count();
    return __libc_calloc(n, size);
}
void* realloc(void* ptr, size_t size) {
    count();
    return __libc_realloc(ptr, size);
}
void* memalign(size_t alignment, size_t size) {
    count();
    return __libc_memalign(alignment, size);
}
int posix_memalign(void** out, size_t alignment, size_t size) {
    count();
    void* p = __libc_memalign(alignment, size);
    if (p == nullptr)
        return 12;  // ENOMEM
    *out = p;
    return 0;
}
void* aligned_alloc(size_t alignment, size_t size) {
    count();
    return __libc_memalign(alignment, size);
}
}
