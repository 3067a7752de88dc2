#ifndef PLUGIN_LINUX_ZADI_ITEMS_H
#define PLUGIN_LINUX_ZADI_ITEMS_H

// Every inspection item the agent resolves by name, declared for C and C++
// alike. The records are in fi_types.h; the census functions in allprocess.h.

#include "os/base/kira_export.h"
#include "plugin/linux/fi_types.h"

#ifdef __cplusplus
extern "C" {
#endif

// System items: items.cpp.
KIRA_EXPORT float GetDiskUsage(int argc, FI_PARAM_S* argv, FI_CONTEXT_S* context, FI_RESULT_S* result);
KIRA_EXPORT float GetSysCPU(int argc, FI_PARAM_S* argv, FI_CONTEXT_S* context, FI_RESULT_S* result);
KIRA_EXPORT float GetSysUsrCPU(int argc, FI_PARAM_S* argv, FI_CONTEXT_S* context, FI_RESULT_S* result);
KIRA_EXPORT float GetSysMemory(int argc, FI_PARAM_S* argv, FI_CONTEXT_S* context, FI_RESULT_S* result);
KIRA_EXPORT float GetSysFreeMemory(int argc, FI_PARAM_S* argv, FI_CONTEXT_S* context, FI_RESULT_S* result);

// Process items: items.cpp.
KIRA_EXPORT float GetProcessSysCPU(int argc, FI_PARAM_S* argv, FI_CONTEXT_S* context, FI_RESULT_S* result);
KIRA_EXPORT float GetProcessSysCPUExtern(int argc, FI_PARAM_S* argv, FI_CONTEXT_S* context, FI_RESULT_S* result);
KIRA_EXPORT float GetProcessCoreCPU(int argc, FI_PARAM_S* argv, FI_CONTEXT_S* context, FI_RESULT_S* result);
KIRA_EXPORT float GetProcessCoreCPUExtern(int argc, FI_PARAM_S* argv, FI_CONTEXT_S* context, FI_RESULT_S* result);
KIRA_EXPORT float GetProcessMemory(int argc, FI_PARAM_S* argv, FI_CONTEXT_S* context, FI_RESULT_S* result);
KIRA_EXPORT float GetProcessMemoryExtern(int argc, FI_PARAM_S* argv, FI_CONTEXT_S* context, FI_RESULT_S* result);
KIRA_EXPORT float GetProcessHandle(int argc, FI_PARAM_S* argv, FI_CONTEXT_S* context, FI_RESULT_S* result);
KIRA_EXPORT float GetProcessHandleExtern(int argc, FI_PARAM_S* argv, FI_CONTEXT_S* context, FI_RESULT_S* result);
KIRA_EXPORT float IsExistProcess(int argc, FI_PARAM_S* argv, FI_CONTEXT_S* context, FI_RESULT_S* result);
KIRA_EXPORT float IsExistProcessExtern(int argc, FI_PARAM_S* argv, FI_CONTEXT_S* context, FI_RESULT_S* result);
KIRA_EXPORT float IsExistProcessPreCmd(int argc, FI_PARAM_S* argv, FI_CONTEXT_S* context, FI_RESULT_S* result);
KIRA_EXPORT float GetProcessSysCPUFuzzyMatch(int argc, FI_PARAM_S* argv, FI_CONTEXT_S* context, FI_RESULT_S* result);
KIRA_EXPORT float GetProcessSysCPUFuzzyMatchCfgPeriod(int argc, FI_PARAM_S* argv, FI_CONTEXT_S* context,
                                                      FI_RESULT_S* result);
KIRA_EXPORT float GetProcessCoreCPUFuzzyMatch(int argc, FI_PARAM_S* argv, FI_CONTEXT_S* context, FI_RESULT_S* result);
KIRA_EXPORT float GetProcessCoreCPUFuzzyMatchCfgPeriod(int argc, FI_PARAM_S* argv, FI_CONTEXT_S* context,
                                                       FI_RESULT_S* result);
KIRA_EXPORT float GetProcessMemoryFuzzyMatch(int argc, FI_PARAM_S* argv, FI_CONTEXT_S* context, FI_RESULT_S* result);
KIRA_EXPORT float GetProcessHandleFuzzyMatch(int argc, FI_PARAM_S* argv, FI_CONTEXT_S* context, FI_RESULT_S* result);

// Heartbeat check: heartbeat.cpp.
// 1.0 every heartbeat file of the process changed, 0.0 one did not (the hang
// flow id goes to result->hangflowid); the fault marker on bad arguments.
KIRA_EXPORT float ProcessHeartBeat(int argc, FI_PARAM_S* argv, FI_CONTEXT_S* context, FI_RESULT_S* result);
// Deletes heartbeat files whose pid no longer runs the named process; 1.0.
KIRA_EXPORT float ClearHeartBeatFile(int argc, FI_PARAM_S* argv, FI_CONTEXT_S* context, FI_RESULT_S* result);

// Error report: err_report.cpp.
// 0.0 once the report went out; the fault marker otherwise. The context is
// neither checked nor read.
KIRA_EXPORT float SendErrRpt(int argc, FI_PARAM_S* argv, FI_CONTEXT_S* context, FI_RESULT_S* result);

#ifdef __cplusplus
}
#endif

#endif
