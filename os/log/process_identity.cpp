// The process identity printed at the end of every line: the executable's
// name, or the name and the process id. Both are worked out once and kept;
// a forked child keeps its parent's text.

#include <pthread.h>
#include <string.h>
#include <unistd.h>

#include "os/log/log_internal.h"
#include "safec/safec.h"

namespace {

constexpr size_t kIdentitySize = 256;
constexpr size_t kExePathSize = 512;

char g_processName[kIdentitySize];
char g_processNameAndPid[kIdentitySize];
// Two threads logging their first lines together must not both write the
// caches, so each is filled under its own once-flag.
pthread_once_t g_nameOnce = PTHREAD_ONCE_INIT;
pthread_once_t g_nameAndPidOnce = PTHREAD_ONCE_INIT;

void FillProcessName() { __get_process_name(g_processName); }

void FillProcessNameAndPid() {
    __get_process_name(g_processNameAndPid);
    const size_t used = strlen(g_processNameAndPid);
    char pidText[11];
    if (snprintf_s(pidText, sizeof(pidText), sizeof(pidText) - 1, "%d", static_cast<int>(getpid())) < 0) return;
    (void)strcat_s(g_processNameAndPid + used, kIdentitySize - used, ",");
    (void)strcat_s(g_processNameAndPid + used, kIdentitySize - used, pidText);
}

}  // namespace

void __get_process_name(char* out) {
    char exePath[kExePathSize];
    memset(exePath, 0, sizeof(exePath));
    (void)snprintf_s(exePath, sizeof(exePath), 17, "/proc/%d/exe", static_cast<int>(getpid()));
    char target[kIdentitySize];
    memset(target, 0, sizeof(target));
    const ssize_t len = readlink(exePath, target, sizeof(target));
    if (len != -1 && len < static_cast<ssize_t>(sizeof(target))) {
        const char* slash = strrchr(target, '/');
        const char* base = slash == nullptr ? target : slash + 1;
        (void)strncpy_s(out, kIdentitySize, base, kIdentitySize - 1);
        out[kIdentitySize - 1] = '\0';
        return;
    }
    (void)snprintf_s(out, kIdentitySize, 9, "<%d>", static_cast<int>(getpid()));
}

const char* __get_process_info(int32_t mode) {
    if (mode == 0) {
        pthread_once(&g_nameOnce, FillProcessName);
        return g_processName;
    }
    if (mode == 1) {
        pthread_once(&g_nameAndPidOnce, FillProcessNameAndPid);
        return g_processNameAndPid;
    }
    return g_processName;
}
