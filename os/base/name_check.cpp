// Path length check: basename below 256 characters, dirname at most 4096.

#include <libgen.h>
#include <stdlib.h>
#include <string.h>
#include <syslog.h>

#include "os/base/kira_file.h"
#include "os/base/kira_raii.h"
#include "safec/safec.h"

namespace {

constexpr size_t kMaxBaseName = 256;  // exclusive
constexpr size_t kMaxDirName = 4096;  // inclusive

// basename() and dirname() may write into their argument, so each gets a
// private copy.
char* CopyPath(const char* path, size_t len) {
    char* copy = static_cast<char*>(malloc(len + 1));
    if (copy != nullptr && memcpy_s(copy, len + 1, path, len + 1) != 0) {
        free(copy);
        return nullptr;
    }
    return copy;
}

}  // namespace

extern "C" KIRA_EXPORT int KIRA_name_lenth_check(const char* path) {
    if (path == nullptr) {
        syslog(LOG_INFO, "Param is null.\n");
        return -1;
    }
    size_t len = strlen(path);
    kira::UniqueBlock first(CopyPath(path, len));
    if (!first) {
        syslog(LOG_INFO, "no memery.\n");
        return -1;
    }
    kira::UniqueBlock second(CopyPath(path, len));
    if (!second) {
        syslog(LOG_INFO, "no memery sec.\n");
        return -1;
    }
    const char* base = basename(static_cast<char*>(first.get()));
    const char* dir = dirname(static_cast<char*>(second.get()));
    if (base == nullptr || dir == nullptr) {
        syslog(LOG_INFO, "The basename1 or dirname1 is NULL, basename1: %p , dirname: %p\n",
               static_cast<const void*>(base), static_cast<const void*>(dir));
        return -1;
    }
    size_t baseLen = strlen(base);
    size_t dirLen = strlen(dir);
    if (baseLen < kMaxBaseName && dirLen <= kMaxDirName) {
        return 0;
    }
    syslog(LOG_INFO, "The length of file is too long. len_basename=%d, len_dirname=%d.\n", static_cast<int>(baseLen),
           static_cast<int>(dirLen));
    return -1;
}
