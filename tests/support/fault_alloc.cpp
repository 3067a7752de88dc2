// The allocator's replacements for injected failures (fault_inject.h). In a
// file of their own: C++ headers declare malloc with default visibility, and
// these must stay hidden, serving only this executable's own code, or every
// shared library (a sanitizer's allocator included) would come through them.

#include <dlfcn.h>
#include <stddef.h>

bool KtFaultAlloc();

namespace {

template <typename Fn>
Fn Next(const char* name) {
    return reinterpret_cast<Fn>(dlsym(RTLD_NEXT, name));
}

}  // namespace

#define KT_INTERPOSED __attribute__((visibility("hidden")))

extern "C" {

KT_INTERPOSED void* malloc(size_t size) {
    static auto real = Next<void* (*)(size_t)>("malloc");
    return KtFaultAlloc() ? nullptr : real(size);
}

KT_INTERPOSED void* calloc(size_t n, size_t size) {
    static auto real = Next<void* (*)(size_t, size_t)>("calloc");
    return KtFaultAlloc() ? nullptr : real(n, size);
}

KT_INTERPOSED void* realloc(void* p, size_t size) {
    static auto real = Next<void* (*)(void*, size_t)>("realloc");
    return KtFaultAlloc() ? nullptr : real(p, size);
}

}  // extern "C"
