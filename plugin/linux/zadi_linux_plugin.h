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

// Exported whole: every method under its decorated name. The comment over
// each group names the file that holds it.
class KIRA_EXPORT ZADI_Linux_Plugin {
public:
    // Pid of the heaviest process seen by the last wildcard group scan.
    int max_usage_pid;

    // ---- argument checks: common_plugin_contract.cpp ----
    bool input_para_check(int argc, FI_PARAM_S* argv, FI_CONTEXT_S* context, FI_RESULT_S* result);
    bool input_para_check_precmd(int argc, FI_PARAM_S* argv, FI_CONTEXT_S* context, FI_RESULT_S* result);
    bool input_para_check_cfgperiod(int argc, FI_PARAM_S* argv, FI_CONTEXT_S* context, FI_RESULT_S* result);

    // ---- whole-system figures: common_plugin_system.cpp ----
    float get_disk_usage(const char* path);
    static int get_sys_cpu_tick(unsigned long long& user, unsigned long long& nice, unsigned long long& system,
                                unsigned long long& idle, unsigned long long& iowait, unsigned long long& irq,
                                unsigned long long& softirq);
    float get_sys_cpu(sys_cpu_context_t* ctx);
    float get_sys_usr_cpu(sys_usr_cpu_context_t* ctx);
    float get_sys_mem();
    float get_sys_free_mem();
    bool get_sys_mem_info(unsigned long long& total, unsigned long long& free);
    static unsigned int get_cpu_core_num();

    // ---- command lines as text and their match: common_plugin_cmdline.cpp ----
    static int read_file(const char* path, char* buf, unsigned int size, int line);
    static void change_cmdlie_to_str(char* buf, unsigned int size);
    static bool check_with_cmdline(const char* path, const char* name, int mode);
    static int get_cmdline_bypid(int pid, char* buf, size_t size);
    // The wildcard matcher: common_plugin_fuzzy.cpp.
    static bool str_fuzzy_match(const char* str, const char* pattern);

    // ---- process lookup by command line: common_plugin_lookup.cpp ----
    static pid_t get_pid_byname(const char* name, int& pid, unsigned long long& syscputime,
                                unsigned long long& procputime);
    static pid_t get_pid_byname(const char* name, int& pid);
    static void get_allpid(const char* name, process_cpu_context_t* table, unsigned int max, unsigned int* count,
                           int mode);
    static bool check_pid_with_name(const char* name, int& pid);

    // ---- kernel name and pre-command gate: common_plugin_procinfo.cpp ----
    static int get_procname_bypid(int pid, char* buf, size_t size);
    static int exec_pre_cmd(char* cmd, char* keywords);
    // Fields of a stat line: common_plugin_procfile.cpp.
    static const char* get_items(const char* str, int n);

    // ---- CPU sampling: common_plugin_sampling_cpu.cpp ----
    float get_process_cpu(const char* name, int& pid, unsigned long long& syscputime, unsigned long long& procputime);
    float get_process_cpu(const char* name, int period);
    float get_process_cpu_extern(const char* name, int* pid);
    float get_pcpu(int pid, unsigned long long& syscputime, unsigned long long& procputime);
    static unsigned long long get_cpu_total_occupy();
    static unsigned long long get_cpu_process_occupy(int pid);

    // ---- memory, handles, existence: common_plugin_sampling_res.cpp ----
    float get_process_resource(PROCESS_RESOURCE_E type, const char* name, int* pid);
    float get_process_memory(const char* name, int& pid);
    float get_process_memory(const char* name);
    static unsigned int get_phy_mem(int pid);
    float get_process_handle(const char* name, int& pid);
    float get_process_handle(const char* name);
    float get_process_exist(const char* name, int& pid);
    unsigned int get_handle_usage(int pid);
    unsigned int get_handle_count(int pid);
    unsigned int get_handle_max(int pid);
};

// Value of the first parameter called `name`, pointing into argv itself;
// null when there is none (common_plugin_contract.cpp).
KIRA_EXPORT char* GetParaValue(int argc, FI_PARAM_S* argv, const char* name);

// Sampling period text in whole seconds to microseconds, kept within
// [500000, 240000000] (common_plugin_items.cpp).
KIRA_EXPORT int ConvertStr2PeriodUS(const char* text);

#endif
