#ifndef PLUGIN_LINUX_PROCESS_MONITOR_H
#define PLUGIN_LINUX_PROCESS_MONITOR_H

// Heartbeat check: monitored processes rewrite "/tmp/heartbeat/NAME___MOD___PID"
// on every beat (line 1 a token that changes, line 2 an optional hang flow
// id). ProcessHeartBeat answers whether every file of one process changed
// since its previous call; ClearHeartBeatFile removes files of dead processes.
// Everything remembered between calls lives in the item's contextbuff.
//
// The pid field is read with atoi, so "w___7___2310" and "w___7___2310junk"
// are files of the same process: the first of them in directory order is the
// one remembered, a later one is compared with it, and a stale one therefore
// reads as a hang. A name whose path passes 255 characters is never checked
// by ProcessHeartBeat; ClearHeartBeatFile still removes it when its process
// is gone.

#include <stddef.h>
#include <stdint.h>

#include "os/base/kira_export.h"
#include "plugin/linux/fi_types.h"
#include "plugin/linux/zadi_items.h"

#define ZADI_HEARTBEAT_DIR "/tmp/heartbeat/"
#define ZADI_HEARTBEAT_NO_HANGFLOWID 0xFFFFFFFFu

typedef struct tagZADI_PROCESS_HEARTBEAT_NODE {
    uint32_t uiProcessId;  // 0: free slot, and the end of the used ones
    bool bFileExist;       // seen during the current scan
    uint32_t hangFlowId;
    uint32_t uiBufferUsed;
    char szBuffer[128];
} ZADI_PROCESS_HEARTBEAT_NODE;

typedef struct tagZADI_PROCESS_HEARTBEAT_CONTEXT {
    uint32_t uiSize;  // 0 until the first call
    bool bHeartbeatRefreshed;
    uint32_t hangFlowId;
    ZADI_PROCESS_HEARTBEAT_NODE stNode[];  // fills the rest of contextbuff
} ZADI_PROCESS_HEARTBEAT_CONTEXT;

// As many whole nodes as fit in contextbuff behind the header.
#define ZADI_HEARTBEAT_NODE_MAX                                                                     \
    ((sizeof(((FI_CONTEXT_S*)0)->contextbuff) - offsetof(ZADI_PROCESS_HEARTBEAT_CONTEXT, stNode)) / \
     sizeof(ZADI_PROCESS_HEARTBEAT_NODE))

typedef int (*ZADI_DIR_ITER_FN)(const char* filePath, const char* filename, void* pContext);

// Calls iterfunc for each regular file directly in dirPath, with the path
// "dirPath/name"; stops early when it returns non-zero. -1 when the directory
// cannot be opened (a symbolic link is not followed).
KIRA_EXPORT int ForeachDir(const char* dirPath, ZADI_DIR_ITER_FN iterfunc, void* pContext);
// Splits NAME___MOD___PID in place into at most three fields; missing fields
// stay null, anything after the third separator is dropped.
KIRA_EXPORT void SpliteHeartFileName(char* filename, unsigned int filenamesize, char** filenameset);
// The kernel's name of pid atoi(procId) is exactly procName.
KIRA_EXPORT bool CheckProcIdAndProcName(const char* procId, const char* procName);
KIRA_EXPORT bool CheckFileAndProc(const char* pszProcessName, const char* pszModId, char** filenameset,
                                  unsigned int filenamesetsize);
// 0 read (or empty), 1 could not be opened.
KIRA_EXPORT int ReadHeartbeatFile(const char* filePath, ZADI_PROCESS_HEARTBEAT_NODE* pstHeartBeatNode);
KIRA_EXPORT int CheckProcessHeartBeatFileRefresh(const char* filePath, const char* filename, void* pContext);
KIRA_EXPORT bool HeartBeatRefreshed(const char* pszProcessName, const char* pszPid, FI_CONTEXT_S* context,
                                    unsigned int* hangFlowId);
KIRA_EXPORT int CheckHeartBeatFileValid(const char* filePath, const char* filename, void* pContext);

#endif
