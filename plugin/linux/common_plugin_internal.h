#ifndef PLUGIN_LINUX_COMMON_PLUGIN_INTERNAL_H
#define PLUGIN_LINUX_COMMON_PLUGIN_INTERNAL_H

// Helpers shared by the resource items: the fault marker, result writing,
// context overlay copies, a stdio-free line reader for /proc files, the
// /proc walk, and the small parsers of /proc lines. Never exported.

#include <dirent.h>
#include <errno.h>
#include <stdlib.h>
#include <string.h>

#include "os/base/kira_raii.h"
#include "os/log/dbg_log.h"
#include "plugin/linux/fi_types.h"
#include "plugin/linux/zadi_linux_plugin.h"
#include "safec/safec.h"

#define PLUGIN_LOG_ERR(...) PLUGIN_LOG_ERR_AS(__FUNCTION__, __VA_ARGS__)
// For helpers that fail on behalf of a measurement: the line names the
// measurement, which is what the reader of the log knows.
#define PLUGIN_LOG_ERR_AS(func, ...) DBG_Log(PID_CTRL_ZADIMONITOR, DBG_LOG_ERROR, func, __LINE__, 0, __VA_ARGS__)

namespace zadi {

constexpr size_t kReasonSize = sizeof(((FI_RESULT_S*)nullptr)->reason);
constexpr size_t kCmdlineBufSize = 1024;
constexpr size_t kScanPathSize = 100;  // "/proc/%s/cmdline" while walking /proc
constexpr size_t kPidPathSize = 64;    // per-pid files of the sampling methods

// The float with bit pattern 0x00800000: items return it for every failure.
float FaultMarker();

// result = -1, then the formatted reason (at most 1023 characters).
void SetFault(FI_RESULT_S* result, const char* format, ...) __attribute__((format(printf, 2, 3)));

// The tail shared by every measuring item: a negative value is a fault
// reported with `faultFormat` (one "%f"), anything else a success.
float FinishItem(FI_RESULT_S* result, float value, const char* faultFormat);

// contextbuff sits at offset 4, so the overlays are copied rather than cast.
template <typename T>
T LoadContext(const FI_CONTEXT_S* context) {
    static_assert(sizeof(T) <= sizeof(context->contextbuff), "context layout too large");
    T value;
    memcpy(&value, context->contextbuff, sizeof(T));
    return value;
}
template <typename T>
void StoreContext(FI_CONTEXT_S* context, const T& value) {
    memcpy(context->contextbuff, &value, sizeof(T));
}

// Reads a file line by line with the exact semantics of fgets, from a
// private buffer, without stdio's allocation and stat call.
class LineReader {
public:
    // False (errno set) when the file cannot be opened for reading.
    bool Open(const char* path);
    // fgets(buf, count, stream): at most count-1 bytes, up to and including
    // a newline; false at end of file with nothing read, or on a read error.
    bool Gets(char* buf, int count);

private:
    bool Fill();
    kira::UniqueFd fd_;
    size_t pos_ = 0;
    size_t len_ = 0;
    bool eof_ = false;
    char data_[4096];
};

// Opens `path` and reads its first line into buf (fgets semantics, count =
// size). Returns false when it cannot be opened (errno kept) or is empty.
enum class FirstLine { kOk, kOpenFailed, kEmpty };
FirstLine ReadFirstLine(const char* path, char* buf, int size);

// Calls fn(pid) for every /proc directory entry whose command line matches
// `name` in `mode`, in directory order, until fn returns false. `buf` is a
// kCmdlineBufSize scratch buffer. False when /proc cannot be opened.
template <typename Fn>
bool ForEachMatchingProcess(const char* name, int mode, char* buf, Fn fn);

// Builds the per-pid path from `format` (one %d) and opens it. False when
// it cannot be opened (errno kept); `path` then names it for the caller's
// log line.
bool OpenPidFile(LineReader& reader, char (&path)[kPidPathSize], const char* format, int pid);

// The first line of a stat file read into a newly allocated 1024-byte block
// held by `block`; the caller logs the failure in its own words.
enum class StatLineRead { kOk, kNoMemory, kOpenFailed };
StatLineRead ReadStatLine(const char* path, kira::UniqueBlock& block);

// The command line at `path` (converted) compared with name in mode, using
// the caller's kCmdlineBufSize buffer.
bool CmdlineMatches(const char* path, const char* name, int mode, char* buf);

// A kCmdlineBufSize block for command lines; null (logged under the name
// of check_with_cmdline, where every comparison takes its buffer) on failure.
char* AllocCmdlineBuffer();

// ForEachMatchingProcess with its own scratch buffer, one for the whole walk.
template <typename Fn>
bool WalkMatching(const char* name, int mode, Fn fn) {
    kira::UniqueBlock buf(AllocCmdlineBuffer());
    if (!buf) {
        return false;
    }
    return ForEachMatchingProcess(name, mode, static_cast<char*>(buf.get()), fn);
}

// Parsers of single /proc lines (kept apart for fuzzing).
// utime + stime from a "/proc/PID/stat" line (fields 14 and 15 by spaces).
unsigned long long ParseStatLineTicks(const char* line);
// "VmRSS:   1234 kB" -> 1234 (0 when it does not parse).
int ParseStatusKb(const char* line);
// The soft limit of a "/proc/PID/limits" row (fourth word, 0 for unlimited).
int ParseLimitSoft(const char* line);

template <typename Fn>
bool ForEachMatchingProcess(const char* name, int mode, char* buf, Fn fn) {
    kira::UniqueDir dir(opendir("/proc"));
    if (!dir) {
        return false;
    }
    char path[kScanPathSize];
    for (struct dirent* entry = readdir(dir.get()); entry != nullptr; entry = readdir(dir.get())) {
        if (strcmp(entry->d_name, ".") == 0 || strcmp(entry->d_name, "..") == 0 || entry->d_type != DT_DIR) {
            continue;
        }
        // Only process directories hold a cmdline file; skipping the others
        // (sys, net, driver, ...) saves a failing open each.
        if (entry->d_name[0] < '0' || entry->d_name[0] > '9') {
            continue;
        }
        if (snprintf_s(path, sizeof(path), sizeof(path) - 1, "/proc/%s/cmdline", entry->d_name) < 0) {
            continue;
        }
        if (CmdlineMatches(path, name, mode, buf) && !fn(atoi(entry->d_name))) {
            break;
        }
    }
    return true;
}

}  // namespace zadi

#endif
