#ifndef PLUGIN_LINUX_PLUGIN_INTERNAL_H
#define PLUGIN_LINUX_PLUGIN_INTERNAL_H

// What the plug-in's files share and nothing outside it sees. Never exported.
// In order:
//   logging        PLUGIN_LOG_* through DBG_Log, errno appended by one macro
//   item contract  fault marker, result and reason, context overlays, host
//                  strings as terminated copies (items.cpp)
//   lookup         command lines as text, the walk of /proc by command line
//                  (process_lookup.cpp)
//   /proc files    per-process files, one pass over a status file, the line
//                  parsers (process_measure.cpp); the seven system counters
//                  (system_measure.cpp)
//   kept apart for tests and fuzzing: the census with a chosen interval
//   (census.cpp), the heartbeat file parser (heartbeat.cpp)
//
// Every /proc file read here is made whole by the kernel, so one read that
// comes back short is the whole file (kira::ReadEnd::kShortRead): a command
// line, a stat or status file costs open, read, close. Nothing here
// allocates.

#include <errno.h>
#include <fcntl.h>
#include <stdlib.h>
#include <string.h>
#include <sys/types.h>

#include "os/base/kira_io.h"
#include "os/base/kira_list.h"
#include "os/log/dbg_log.h"
#include "plugin/linux/fi_types.h"
#include "plugin/linux/process_monitor.h"
#include "plugin/linux/zadi_inner.h"
#include "plugin/linux/zadi_linux_plugin.h"
#include "safec/safec.h"

// ---- logging ----
// Through DBG_Log under the monitor's module number, code 0, with the calling
// function's name and line supplied here. Failures at DBG_LOG_ERROR, events
// at DBG_LOG_EVENT.

#define PLUGIN_LOG_ERR(...) PLUGIN_LOG_ERR_AS(__FUNCTION__, __VA_ARGS__)
#define PLUGIN_LOG_EVENT(...) DBG_Log(PID_CTRL_ZADIMONITOR, DBG_LOG_EVENT, __FUNCTION__, __LINE__, 0, __VA_ARGS__)
// For a helper that fails on behalf of a measurement: the line names the
// measurement, which is what the reader of the log knows.
#define PLUGIN_LOG_ERR_AS(func, ...) DBG_Log(PID_CTRL_ZADIMONITOR, DBG_LOG_ERROR, func, __LINE__, 0, __VA_ARGS__)
// A failed call: the message (a literal without its final stop) followed by
// ", errno(<number>, <text>).". The _AS form names the function and takes the
// error number, for a caller that logs one failure more than once.
#define PLUGIN_LOG_ERRNO(...) PLUGIN_LOG_ERRNO_AS(__FUNCTION__, errno, __VA_ARGS__)
#define PLUGIN_LOG_ERRNO_AS(func, err, format, ...) \
    PLUGIN_LOG_ERR_AS(func, format ", errno(%d, %s).", ##__VA_ARGS__, (err), strerror(err))

namespace zadi {

// ---- item contract ----
//
// Host strings: the agent fills fixed 100- and 400-byte fields and nothing
// guarantees a terminator inside them. An item never hands a field to a
// string routine, a log line, the file system or the agent; it reads at
// most to the end of the field into a ParamValue/ParamName and works on
// that copy.

constexpr size_t kReasonSize = sizeof(((FI_RESULT_S*)nullptr)->reason);

// The float with bits ZADI_FAULT_MARKER_BITS: items return it for every failure.
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

// A host field copied up to its end into a buffer one byte longer, so the
// copy is always terminated.
template <size_t kFieldSize>
class BoundedText {
public:
    BoundedText() { text_[0] = '\0'; }
    explicit BoundedText(const char* field) { Assign(field); }
    void Assign(const char* field) {
        size_t len = strnlen(field, kFieldSize);
        (void)memcpy_s(text_, sizeof(text_), field, len);
        text_[len] = '\0';
    }
    char* get() { return text_; }
    const char* c_str() const { return text_; }

private:
    char text_[kFieldSize + 1];
};

using ParamName = BoundedText<sizeof(((FI_PARAM_S*)nullptr)->name)>;
using ParamValue = BoundedText<sizeof(((FI_PARAM_S*)nullptr)->value)>;

// The value of the first parameter called `name`, terminated; false when the
// parameter is absent.
inline bool LoadParam(int argc, FI_PARAM_S* argv, const char* name, ParamValue* out) {
    const char* field = GetParaValue(argc, argv, name);
    if (field == nullptr) {
        return false;
    }
    out->Assign(field);
    return true;
}

// ---- lookup by command line ----

constexpr size_t kCmdlineBufSize = 1024;
constexpr size_t kScanPathSize = 100;  // "/proc/%s/cmdline" while walking /proc

// read_file(path, buf, size, 1) and change_cmdlie_to_str(buf, size) in one
// read: at most size - 2 bytes, up to and including a newline. Returns the
// bytes taken, 0 for an empty command line (a kernel thread), -1 when the
// file cannot be opened (errno kept). A relative path is taken from the open
// directory dirFd.
ssize_t ReadCmdlineText(const char* path, char* buf, size_t size, int dirFd = AT_FDCWD);

// The command line at path matches name in mode (CMDLINE_MATCH_*); buf is a
// kCmdlineBufSize scratch.
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

// ---- /proc files ----

constexpr size_t kPidPathSize = 64;   // per-pid files other than a stored pid's cmdline
constexpr int kStatusLineSize = 256;  // status, limits, /proc/stat and meminfo lines

// Opens "/proc/<pid>/<leaf>" for line reading. False when it cannot be
// opened (errno kept); `path` then names it for the caller's log line.
bool OpenPidFile(kira::LineReader& reader, char (&path)[kPidPathSize], long long pid, const char* leaf);

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

// utime + stime from a "/proc/PID/stat" line (fields 14 and 15 by spaces).
unsigned long long ParseStatLineTicks(const char* line);
// "VmRSS:   1234 kB" -> 1234 (0 when it does not parse).
int ParseStatusKb(const char* line);
// The soft limit of a "/proc/PID/limits" row (fourth word, 0 for unlimited).
int ParseLimitSoft(const char* line);

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

// ---- census ----

// GetAllProcessCoreCPU with the time between the scans as a parameter; the
// exported function always waits 60 seconds.
int GetAllProcessCoreCPUEvery(struct list_head* allProcessListHead, int* usersyscpu, unsigned int intervalSeconds);
// Kernel threads have an empty command line; an open failure is logged.
bool IsUserProcess(const char* cmdLinePath);
// popen and pclose of a command whose output is not read; pclose's status.
int ZADI_ExecuteCmd(const char* recoverCmd);

// ---- heartbeat files ----

// Longest line the reader takes (fgets with a 127-byte limit).
constexpr size_t kHeartbeatLineMax = 126;
// Bytes that can make up the two lines that are looked at.
constexpr size_t kHeartbeatReadMax = 2 * kHeartbeatLineMax;

// Applies the first lines of a heartbeat file (data, len bytes) to a node the
// way two fgets calls with a 127-byte limit would see them. Returns false
// when line 1 is empty (end of file at once): the node's token is then left
// as it was. hangFlowId is only written when line 2 exists.
bool ParseHeartbeatLines(const char* data, size_t len, ZADI_PROCESS_HEARTBEAT_NODE* node);

}  // namespace zadi

#endif
