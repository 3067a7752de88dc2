#ifndef PLUGIN_LINUX_ALLPROCESS_INTERNAL_H
#define PLUGIN_LINUX_ALLPROCESS_INTERNAL_H

// Scans of /proc behind the census and the list handling that turns two
// scans into a result. Never exported.

#include <stdint.h>

#include "plugin/linux/allprocess.h"

typedef struct tagPROCESS_BASICDATA_S {
    struct list_head stEntry;
    bool invalid;  // no CPU figure could be computed
    pid_t pid;
    uint64_t syscputime;
    uint64_t procputime;
    int corecpu;
    int rss;
    char name[32];
    char cmdline[1024];
} PROCESS_BASICDATA_S;

typedef void (*PROC_DIR_ITER_FN)(const char* procPath, int pid, void* pContext);
typedef int (*LIST_CMP_FN)(struct list_head* pstEntry1, struct list_head* pstEntry2);

int ForeachProcDir(PROC_DIR_ITER_FN iterfunc, void* pContext);
bool isDigit(const char* str, int strLen);
bool IsUserProcess(const char* cmdLinePath);
void GetProcessBasicData(const char* procPath, int pid, void* pContext);
struct list_head* SearchList(struct list_head* pstListHead, LIST_CMP_FN compare, struct list_head* pstEntry1);
int ProcBasicDataCmpMatchPidName(struct list_head* pstEntry1, struct list_head* pstEntry2);
PROCESS_INFO_S* ProcBasicDataToProcInfo(PROCESS_BASICDATA_S* pstBasicData);
void CalcAllProcessCoreCPU(struct list_head* firstScan, struct list_head* secondScan, struct list_head* result);
void CalcAllProcessRssMem(struct list_head* scan, struct list_head* result);
void FreeProcBasicData(struct list_head* pstListHead);
int GetProcessPidInter(const char* procName, int* pidbuff, unsigned int pidbuffsize, unsigned int* pidbuffused,
                       int matchflag);
int ZADI_ExecuteCmd(const char* recoverCmd);

// GetAllProcessCoreCPU with the time between the scans as a parameter; the
// exported function always waits 60 seconds.
int GetAllProcessCoreCPUEvery(struct list_head* allProcessListHead, int* usersyscpu, unsigned int intervalSeconds);

#endif
