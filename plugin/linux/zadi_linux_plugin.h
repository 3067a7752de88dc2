#ifndef PLUGIN_LINUX_ZADI_LINUX_PLUGIN_H
#define PLUGIN_LINUX_ZADI_LINUX_PLUGIN_H

// The measurement class behind the resource inspection items, the parameter
// helpers the items share, and the exported item entry points.
//
// Items are called by the agent through their plain names; each one builds a
// local ZADI_Linux_Plugin for the duration of a call. Nothing of an instance
// outlives the call: what must survive lives in the agent's contextbuff.

#include <stddef.h>
#include <sys/types.h>

#include "os/base/kira_export.h"
#include "plugin/linux/fi_types.h"
#include "plugin/linux/zadi_items.h"

// Signed underlying type: callers may pass out-of-range (negative) values,
// which the measurement must tolerate.
typedef enum : int {
    PROCESS_RESOURCE_MEM = 0,
    PROCESS_RESOURCE_HANDLE = 1,
    PROCESS_RESOURCE_EXIST = 2,
    PROCESS_RESOURCE_MAX = 3
} PROCESS_RESOURCE_E;

// Match modes of check_with_cmdline / get_allpid; any other value is exact.
enum { CMDLINE_MATCH_EXACT = 0, CMDLINE_MATCH_PREFIX = 1, CMDLINE_MATCH_FUZZY = 2 };

// Group CPU measurements sample at most this many processes per call.
#define PROCESS_SAMPLE_MAX 128

typedef struct {
    unsigned long long user;
    unsigned long long nice;
    unsigned long long system;
    unsigned long long idle;
} total_cpu_occupy_t;

typedef struct {
    unsigned long long utime;
    unsigned long long stime;
    unsigned long long cutime;
    unsigned long long cstime;
} process_cpu_occupy_t;

// Exported whole: every method under its decorated name. Methods are grouped
// by the question they answer; a process that is not found measures 0, a
// figure that cannot be read is 0 unless said otherwise.
class KIRA_EXPORT ZADI_Linux_Plugin {
public:
    // Pid of the heaviest process seen by the last wildcard group scan.
    int max_usage_pid;

    // ---- Were the arguments given as the item expects? ----
    // Each checks the count, argv, the parameter names (where it names them)
    // and the context, in that order, and writes the first failure into
    // result (nothing when result is null). One parameter of any name:
    bool input_para_check(int argc, FI_PARAM_S* argv, FI_CONTEXT_S* context, FI_RESULT_S* result);
    // "ProcessName", "PreCmd", "RetKeyWords":
    bool input_para_check_precmd(int argc, FI_PARAM_S* argv, FI_CONTEXT_S* context, FI_RESULT_S* result);
    // "ProcessName", "Period":
    bool input_para_check_cfgperiod(int argc, FI_PARAM_S* argv, FI_CONTEXT_S* context, FI_RESULT_S* result);

    // ---- What does the machine as a whole use? ----
    // Used share of the file system holding path, in whole percent; -1 when
    // statfs fails.
    float get_disk_usage(const char* path);
    // The first seven counters of /proc/stat's first line; -1 when it cannot
    // be opened.
    static int get_sys_cpu_tick(unsigned long long& user, unsigned long long& nice, unsigned long long& system,
                                unsigned long long& idle, unsigned long long& iowait, unsigned long long& irq,
                                unsigned long long& softirq);
    // Busy (everything but idle) and user shares since the sample in ctx,
    // which then holds the new one.
    float get_sys_cpu(sys_cpu_context_t* ctx);
    float get_sys_usr_cpu(sys_usr_cpu_context_t* ctx);
    // Used share of memory (total against plain free), and free megabytes.
    float get_sys_mem();
    float get_sys_free_mem();
    // Lines 1 and 2 of /proc/meminfo, in kB; false when it cannot be opened.
    bool get_sys_mem_info(unsigned long long& total, unsigned long long& free);

    // ---- What is a process's command line, and does it match a name? ----
    // The line-th line of path, read as fgets(buf, size - 1); 0 or -1.
    static int read_file(const char* path, char* buf, unsigned int size, int line);
    // The NULs between arguments turned into spaces, up to the first empty
    // argument.
    static void change_cmdlie_to_str(char* buf, unsigned int size);
    // The command line at path matches name in mode (CMDLINE_MATCH_*).
    static bool check_with_cmdline(const char* path, const char* name, int mode);
    // pid's command line as text into buf: 0, or -1 when there is none.
    static int get_cmdline_bypid(int pid, char* buf, size_t size);
    // The wildcard match ('?' one character, '*' any run), quirks included.
    static bool str_fuzzy_match(const char* str, const char* pattern);

    // ---- Which process is it? ----
    // The stored pid while it still runs exactly name; otherwise the first
    // exact match in /proc, with the samples reset. 0 (pid too) when none.
    static pid_t get_pid_byname(const char* name, int& pid, unsigned long long& syscputime,
                                unsigned long long& procputime);
    static pid_t get_pid_byname(const char* name, int& pid);
    // The first `max` matches of name in mode, in /proc order.
    static void get_allpid(const char* name, process_cpu_context_t* table, unsigned int max, unsigned int* count,
                           int mode);
    // pid still runs exactly name.
    static bool check_pid_with_name(const char* name, int& pid);
    // The kernel's name of pid (its status file's Name line); 0 or -1.
    static int get_procname_bypid(int pid, char* buf, size_t size);
    // 0 when the output of the shell command cmd begins with keywords.
    static int exec_pre_cmd(char* cmd, char* keywords);

    // ---- How much does one process use? ----
    // The first four counters of /proc/stat, summed.
    static unsigned long long get_cpu_total_occupy();
    // utime + stime of pid.
    static unsigned long long get_cpu_process_occupy(int pid);
    // pid's share of all processors since the samples, which then hold the
    // new ones.
    float get_pcpu(int pid, unsigned long long& syscputime, unsigned long long& procputime);
    // The same for the process named exactly, found through the stored pid.
    float get_process_cpu(const char* name, int& pid, unsigned long long& syscputime, unsigned long long& procputime);
    // Processors online, read once: a share of all of them times this is a
    // share of one.
    static unsigned int get_cpu_core_num();
    // Resident megabytes of pid; of the process named exactly.
    static unsigned int get_phy_mem(int pid);
    float get_process_memory(const char* name, int& pid);
    // Open descriptors as a percentage of the open-files soft limit; the
    // count and the limit on their own; of the process named exactly.
    unsigned int get_handle_usage(int pid);
    unsigned int get_handle_count(int pid);
    unsigned int get_handle_max(int pid);
    float get_process_handle(const char* name, int& pid);
    // 1.0 when a process runs exactly name, else 0.0.
    float get_process_exist(const char* name, int& pid);
    // Field n (from 1) of a stat line, counting single spaces.
    static const char* get_items(const char* str, int n);

    // ---- Which process of a group uses most, and how much? ----
    // CPU share over 0.5 s of the busiest prefix match (its pid into *pid);
    // over `period` microseconds of the busiest wildcard match
    // (max_usage_pid).
    float get_process_cpu_extern(const char* name, int* pid);
    float get_process_cpu(const char* name, int period);
    // Resident megabytes and handle usage of the heaviest wildcard match
    // (max_usage_pid).
    float get_process_memory(const char* name);
    float get_process_handle(const char* name);
    // One resource of the heaviest prefix match (its pid into *pid).
    float get_process_resource(PROCESS_RESOURCE_E type, const char* name, int* pid);
};

// Value of the first parameter called `name`, pointing into argv itself;
// null when there is none.
KIRA_EXPORT char* GetParaValue(int argc, FI_PARAM_S* argv, const char* name);

// Sampling period text in whole seconds to microseconds, kept within
// [500000, 240000000].
KIRA_EXPORT int ConvertStr2PeriodUS(const char* text);

#endif
