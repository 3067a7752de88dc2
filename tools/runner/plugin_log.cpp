// The plug-in's diagnostic lines. The plug-in and its logging layer write
// through syslog(), and where no syslog daemon listens they vanish. The
// runner defines syslog and its fortified forms itself (exported, so the
// plug-in's calls bind here): every line still goes to the system log, and
// with --plugin-log it is also copied to the runner's log.

#include <dlfcn.h>
#include <stdarg.h>
#include <stdio.h>

#include <mutex>

#include "tools/runner/runner.h"

namespace zr {

namespace {

FILE* g_copy_to = nullptr;
std::mutex g_copy_mutex;

using VsyslogFn = void (*)(int, const char*, va_list);

void Forward(int priority, const char* fmt, va_list ap) {
    static const VsyslogFn real = reinterpret_cast<VsyslogFn>(dlsym(RTLD_NEXT, "vsyslog"));
    if (g_copy_to != nullptr) {
        va_list copy;
        va_copy(copy, ap);
        std::lock_guard<std::mutex> lock(g_copy_mutex);
        fprintf(g_copy_to, "plug-in <%d> ", priority & 7);
        vfprintf(g_copy_to, fmt, copy);
        fflush(g_copy_to);
        va_end(copy);
    }
    if (real != nullptr) {
        real(priority, fmt, ap);
    }
}

}  // namespace

void CopyPluginLog(FILE* to) { g_copy_to = to; }

}  // namespace zr

extern "C" {

__attribute__((visibility("default"))) void vsyslog(int priority, const char* fmt, va_list ap) {
    zr::Forward(priority, fmt, ap);
}

__attribute__((visibility("default"))) void __vsyslog_chk(int priority, int, const char* fmt, va_list ap) {
    zr::Forward(priority, fmt, ap);
}

__attribute__((visibility("default"))) void syslog(int priority, const char* fmt, ...) {
    va_list ap;
    va_start(ap, fmt);
    zr::Forward(priority, fmt, ap);
    va_end(ap);
}

__attribute__((visibility("default"))) void __syslog_chk(int priority, int, const char* fmt, ...) {
    va_list ap;
    va_start(ap, fmt);
    zr::Forward(priority, fmt, ap);
    va_end(ap);
}
}
