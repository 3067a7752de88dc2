// The cp/rm/tar/touch/mv/mkdir wrappers. Each builds its command line in a
// block of exactly the right size and runs it through KIRA_system. Paths go
// in unquoted (only mkdir quotes): the shell sees them as given.

#include <dirent.h>
#include <stdlib.h>
#include <string.h>
#include <syslog.h>

#include "os/base/kira_file.h"
#include "os/base/kira_raii.h"
#include "os/base/kira_system.h"
#include "safec/safec.h"

namespace {

bool LengthOk(const char* path, const char* complaint) {
    if (KIRA_name_lenth_check(path) != 0) {
        syslog(LOG_INFO, "%s", complaint);
        return false;
    }
    return true;
}

// format(dest, size, count) writes the command and returns snprintf_s's
// count; len is the exact length the command must have.
template <typename Format>
int RunExactCommand(size_t len, Format format) {
    kira::UniqueBlock block(malloc(len + 1));
    if (!block) {
        syslog(LOG_INFO, "Mem malloc failed.\n");
        return -1;
    }
    char* cmd = static_cast<char*>(block.get());
    int written = format(cmd, len + 1, len);
    if (written != static_cast<int>(len)) {
        syslog(LOG_INFO, "Execute snprintf Fail,return %d.\n", written);
        return -1;
    }
    int status = KIRA_system(cmd);
    if (status != 0) {
        syslog(LOG_INFO, "Execute cmd(%s) Fail(%d).\n", cmd, status);
        return -1;
    }
    return 0;
}

const char kParamNull[] = "Param is null.\n";
const char kFileLen[] = "The length of file is not correct.\n";
const char kSourceLen[] = "The length of source file is not correct.\n";
const char kDestLen[] = "The length of dest file is not correct.\n";

// Fixed characters of each format: the command length is exactly these
// plus the lengths of the paths.
constexpr size_t kCpFixed = 8;
constexpr size_t kRmFixed = 7;
constexpr size_t kTarCreateFixed = 11;
constexpr size_t kTarExtractFixed = 14;
constexpr size_t kTouchFixed = 6;
constexpr size_t kMvFixed = 4;
constexpr size_t kMkdirFixed = 11;

template <typename Format>
int RunOnePath(const char* path, size_t fixed, Format format) {
    if (path == nullptr) {
        syslog(LOG_INFO, "%s", kParamNull);
        return -1;
    }
    if (!LengthOk(path, kFileLen)) {
        return -1;
    }
    return RunExactCommand(fixed + strlen(path), format);
}

template <typename Format>
int RunTwoPaths(const char* first, const char* second, const char* firstComplaint, const char* secondComplaint,
                size_t fixed, Format format) {
    if (first == nullptr || second == nullptr) {
        syslog(LOG_INFO, "%s", kParamNull);
        return -1;
    }
    if (!LengthOk(first, firstComplaint) || !LengthOk(second, secondComplaint)) {
        return -1;
    }
    return RunExactCommand(fixed + strlen(first) + strlen(second), format);
}

}  // namespace

extern "C" {

KIRA_EXPORT int KIRA_CmdCp(const char* src, const char* dst, int unused) {
    (void)unused;
    return RunTwoPaths(src, dst, kSourceLen, kDestLen, kCpFixed, [&](char* d, size_t size, size_t count) {
        return snprintf_s(d, size, count, "cp -af %s %s", src, dst);
    });
}

KIRA_EXPORT int KIRA_CmdRm(const char* path, int unused) {
    (void)unused;
    return RunOnePath(path, kRmFixed, [&](char* d, size_t size, size_t count) {
        return snprintf_s(d, size, count, "rm -rf %s", path);
    });
}

KIRA_EXPORT int KIRA_CmdTar(const char* archive, const char* path, int extract) {
    if (extract == 0) {
        return RunTwoPaths(archive, path, kFileLen, kFileLen, kTarCreateFixed, [&](char* d, size_t size, size_t count) {
            return snprintf_s(d, size, count, "tar -czvf %s %s", archive, path);
        });
    }
    return RunTwoPaths(archive, path, kFileLen, kFileLen, kTarExtractFixed, [&](char* d, size_t size, size_t count) {
        return snprintf_s(d, size, count, "tar -xzvf %s -C %s", archive, path);
    });
}

KIRA_EXPORT int KIRA_CmdTouch(const char* path, int unused) {
    (void)unused;
    return RunOnePath(path, kTouchFixed,
                      [&](char* d, size_t size, size_t count) { return snprintf_s(d, size, count, "touch %s", path); });
}

KIRA_EXPORT int KIRA_CmdMv(const char* src, const char* dst, int unused) {
    (void)unused;
    return RunTwoPaths(src, dst, kSourceLen, kDestLen, kMvFixed, [&](char* d, size_t size, size_t count) {
        return snprintf_s(d, size, count, "mv %s %s", src, dst);
    });
}

KIRA_EXPORT int KIRA_CmdMkdir(const char* path) {
    // An existing directory needs no shell at all; only then is the path
    // checked.
    if (path != nullptr && kira::UniqueDir(opendir(path))) {
        return 0;
    }
    return RunOnePath(path, kMkdirFixed, [&](char* d, size_t size, size_t count) {
        return snprintf_s(d, size, count, "mkdir -p \"%s\"", path);
    });
}

}  // extern "C"
