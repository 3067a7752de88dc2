#ifndef PLUGIN_LINUX_ALLPROCESS_H
#define PLUGIN_LINUX_ALLPROCESS_H

// All-process census: CPU share of every user process over one minute, the
// resident memory of every user process, and lookup and termination of
// processes by name. Result lists are intrusive lists of PROCESS_INFO_S; they
// belong to the caller until handed to FreeAllProcessList.

#include <stdbool.h>
#include <sys/types.h>

#include "os/base/kira_export.h"
#include "os/base/kira_list.h"

typedef struct tagPROCESS_INFO_S {
    struct list_head stEntry;  // first, so an entry is also the record
    pid_t pid;
    int corecpu;  // percent of one core; 0 in memory results
    int rss;      // resident megabytes
    char name[32];
    char cmdline[1024];
    bool used;  // false when handed out; left to the caller
} PROCESS_INFO_S;

#ifdef __cplusplus
extern "C" {
#endif

// Blocks for 60 seconds between its two scans. 0, or -1 with the list left
// as it was.
KIRA_EXPORT int GetAllProcessCoreCPU(struct list_head* allProcessListHead, int* usersyscpu);
KIRA_EXPORT int GetAllProcessRssMem(struct list_head* allProcessListHead);
KIRA_EXPORT void FreeAllProcessList(struct list_head* allProcessListHead);
// 0 pid runs procName, -1 pid cannot be looked up, -2 it runs another program.
KIRA_EXPORT int CheckProcessExist(const char* procName, int pid);
// As CheckProcessExist; on a match a background "kill -9" is issued.
KIRA_EXPORT int KillProcess(const char* procName, int pid);
KIRA_EXPORT int GetProcessPid(const char* procName, int* pid);
// 0, -1 bad argument, -2 out of memory. Prefix and wildcard command-line match.
KIRA_EXPORT int GetProcessPidExtern(const char* procName, int* pidbuff, unsigned int pidbuffsize,
                                    unsigned int* pidbuffused);
KIRA_EXPORT int GetProcessPidFuzzy(const char* procName, int* pidbuff, unsigned int pidbuffsize,
                                   unsigned int* pidbuffused);

#ifdef __cplusplus
}
#endif

#endif
