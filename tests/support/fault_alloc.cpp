// The allocator's replacements for injected failures (fault_inject.h). In a
// file of their own: C++ headers declare malloc with default visibility, and
// these must stay hidden, serving only this executable's own code, or every
// shared library (a sanitizer's allocator included) would come through them.

#include <dlfcn.h>
#include <stddef.h>

bool KtFaultAlloc();

#define KT_INTERPOSED __attribute__((visibility("hidden")))
#define KT_NEXT(name) static auto real = reinterpret_cast<decltype(&name)>(dlsym(RTLD_NEXT, #name))

extern "C" {

KT_INTERPOSED void* malloc(size_t size) {
    KT_NEXT(malloc);
    return KtFaultAlloc() ? nullptr : real(size);
}

KT_INTERPOSED void* calloc(size_t n, size_t size) {
    KT_NEXT(calloc);
    return KtFaultAlloc() ? nullptr : real(n, size);
}

KT_INTERPOSED void* realloc(void* p, size_t size) {
    KT_NEXT(realloc);
    return KtFaultAlloc() ? nullptr : real(p, size);
}

}  // extern "C"
