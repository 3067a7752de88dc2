// Sanitizer settings every test executable needs, read by the sanitizer
// runtime at start-up.

#if defined(__SANITIZE_THREAD__)
// Each sandboxed body ends in _exit, where ThreadSanitizer would otherwise
// wait a second for threads to finish: hundreds of tests would each pay it.
extern "C" __attribute__((visibility("default"), used)) const char* __tsan_default_options() {
    return "atexit_sleep_ms=0";
}
#endif
