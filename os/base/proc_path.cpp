// "/proc/<pid>/<leaf>" without a formatting call: the lookups build one per
// process on every walk.

#include <errno.h>
#include <string.h>

#include "os/base/kira_io.h"

namespace kira {

namespace {

constexpr char kProcDir[] = "/proc/";

// Appends text at *len; false when it and the terminator do not fit.
bool Append(char* buf, size_t size, size_t* len, const char* text, size_t textLen) {
    if (textLen >= size - *len) {
        return false;
    }
    memcpy(buf + *len, text, textLen);
    *len += textLen;
    return true;
}

bool Build(char* buf, size_t size, const char* pidText, size_t pidLen, const char* leaf) {
    if (buf == nullptr || size == 0) {
        errno = ENAMETOOLONG;
        return false;
    }
    size_t len = 0;
    const size_t leafLen = leaf == nullptr ? 0 : strlen(leaf);
    const bool fits = Append(buf, size, &len, kProcDir, sizeof(kProcDir) - 1) &&
                      Append(buf, size, &len, pidText, pidLen) &&
                      (leafLen == 0 || (Append(buf, size, &len, "/", 1) && Append(buf, size, &len, leaf, leafLen)));
    if (!fits) {
        buf[0] = '\0';
        errno = ENAMETOOLONG;
        return false;
    }
    buf[len] = '\0';
    return true;
}

}  // namespace

bool ProcPidPath(char* buf, size_t size, long long pid, const char* leaf) {
    char digits[24];
    char* p = digits + sizeof(digits);
    // Negated as unsigned so that the most negative value has a magnitude.
    unsigned long long magnitude = pid < 0 ? 0ULL - static_cast<unsigned long long>(pid) : pid;
    do {
        *--p = static_cast<char>('0' + magnitude % 10);
        magnitude /= 10;
    } while (magnitude != 0);
    if (pid < 0) {
        *--p = '-';
    }
    return Build(buf, size, p, static_cast<size_t>(digits + sizeof(digits) - p), leaf);
}

bool ProcPidPath(char* buf, size_t size, const char* pidText, const char* leaf) {
    if (pidText == nullptr) {
        errno = EINVAL;
        return false;
    }
    return Build(buf, size, pidText, strlen(pidText), leaf);
}

}  // namespace kira
