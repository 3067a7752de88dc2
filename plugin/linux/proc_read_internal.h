#ifndef PLUGIN_LINUX_PROC_READ_INTERNAL_H
#define PLUGIN_LINUX_PROC_READ_INTERNAL_H

// Reading /proc for the measurements, the census and the heartbeat check:
// command lines as text and their match, the walk of /proc by command line,
// per-process files, the system's tick counters, and the parsers of single
// lines (kept apart for fuzzing). Never exported.
//
// Every file read here is made whole by the kernel, so one read that comes
// back short is the whole file (kira::ReadEnd::kShortRead): a command line,
// a stat or status file costs open, read, close. Nothing here allocates.

#include <fcntl.h>
#include <stdlib.h>
#include <sys/types.h>

#include "os/base/kira_io.h"
#include "plugin/linux/zadi_linux_plugin.h"

namespace zadi {

constexpr size_t kCmdlineBufSize = 1024;
constexpr size_t kScanPathSize = 100;      // "/proc/%s/cmdline" while walking /proc
constexpr size_t kStoredPidPathSize = 50;  // the stored pid's "/proc/%d/cmdline"
constexpr size_t kPidPathSize = 64;        // other per-pid files
constexpr int kStatLineSize = 1024;        // stat lines
constexpr int kStatusLineSize = 256;       // status, limits, /proc/stat and meminfo lines

// ---- command lines ----

// read_file(path, buf, size, 1) and change_cmdlie_to_str(buf, size) in one
// read: at most size - 2 bytes, up to and including a newline. Returns the
// bytes taken, 0 for an empty command line (a kernel thread), -1 when the
// file cannot be opened (errno kept). A relative path is taken from the open
// directory dirFd.
ssize_t ReadCmdlineText(const char* path, char* buf, size_t size, int dirFd = AT_FDCWD);

// The command-line text compared with name in mode (CMDLINE_MATCH_*).
bool MatchesName(const char* text, const char* name, int mode);

// The command line at path matches; buf is a kCmdlineBufSize scratch.
bool CmdlineMatches(const char* path, const char* name, int mode, char* buf, int dirFd = AT_FDCWD);

// Only process directories hold a cmdline file; skipping the others (sys,
// net, driver, ...) saves a failing open each.
inline bool StartsWithDigit(const char* name) { return name[0] >= '0' && name[0] <= '9'; }

// Calls fn(pid) for every /proc directory whose command line matches name in
// mode, in directory order, until fn returns false. False when /proc cannot
// be opened.
template <typename Fn>
bool WalkMatching(const char* name, int mode, Fn fn) {
    kira::DirWalk walk(opendir("/proc"), kira::DirWalk::kDirectories, StartsWithDigit);
    if (!walk) {
        return false;
    }
    // The path is built whole, so its length limit holds, but opened from
    // the directory already open: the walk's floor is openat/read/close.
    constexpr size_t kProcPrefix = sizeof("/proc/") - 1;
    const int procFd = dirfd(walk.dir());
    char buf[kCmdlineBufSize];
    char path[kScanPathSize];
    while (const char* entry = walk.Next()) {
        if (kira::ProcPidPath(path, sizeof(path), entry, "cmdline") &&
            CmdlineMatches(path + kProcPrefix, name, mode, buf, procFd) && !fn(atoi(entry))) {
            break;
        }
    }
    return true;
}

// ---- per-process and system files ----

// Opens "/proc/<pid>/<leaf>" for line reading. False when it cannot be
// opened (errno kept); `path` then names it for the caller's log line.
bool OpenPidFile(kira::LineReader& reader, char (&path)[kPidPathSize], long long pid, const char* leaf);

// Opens path and reads its first line into buf (fgets semantics, count =
// size).
enum class FirstLine { kOk, kOpenFailed, kEmpty };
FirstLine ReadFirstLine(const char* path, char* buf, int size);

// What one pass over a status file found: the first piece (256-byte fgets
// piece) holding "Name:" gives the name, the first holding "VmRSS:" the
// resident kilobytes. Null `name` or `rssKb` means that answer is not
// wanted; the scan stops once every wanted one is found.
struct StatusScan {
    char* name = nullptr;  // receives "%*s %s" of the Name line
    size_t nameSize = 0;
    bool nameFound = false;
    int* rssKb = nullptr;  // 0 when there is no VmRSS line (kernel threads)
    bool rssFound = false;
};
void ScanStatus(kira::LineReader& reader, StatusScan* scan);

// The seven counters of the first line of /proc/stat, as get_sys_cpu_tick
// reads them.
struct SysTicks {
    unsigned long long user = 0;
    unsigned long long nice = 0;
    unsigned long long system = 0;
    unsigned long long idle = 0;
    unsigned long long iowait = 0;
    unsigned long long irq = 0;
    unsigned long long softirq = 0;

    bool Read() { return ZADI_Linux_Plugin::get_sys_cpu_tick(user, nice, system, idle, iowait, irq, softirq) == 0; }
    unsigned long long Total() const { return user + nice + system + idle + iowait + irq + softirq; }
};

// ---- parsers of single /proc lines ----

// utime + stime from a "/proc/PID/stat" line (fields 14 and 15 by spaces).
unsigned long long ParseStatLineTicks(const char* line);
// "VmRSS:   1234 kB" -> 1234 (0 when it does not parse).
int ParseStatusKb(const char* line);
// The soft limit of a "/proc/PID/limits" row (fourth word, 0 for unlimited).
int ParseLimitSoft(const char* line);

}  // namespace zadi

#endif
