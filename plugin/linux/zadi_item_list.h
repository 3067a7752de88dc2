#ifndef PLUGIN_LINUX_ZADI_ITEM_LIST_H
#define PLUGIN_LINUX_ZADI_ITEM_LIST_H

// Every inspection item, once: ZADI_ITEM_LIST(X) calls X(name, unit,
// parameters, match, reportsPid, primes, meaning) for each, in the order of
// zadi_items.h, which declares the same items for C (a test holds the two and
// the exports list together). The runner's catalogue and the tests expand it.
//
//   unit        "%", "%core" (of one processor), "MB", "exists", "beats", ""
//   parameters  the names the item reads, in order, space-separated; "..."
//               accepts any more
//   match       how ProcessName finds processes: None, Exact, Prefix, Wildcard
//   reportsPid  1 when the item writes the pid of the match it measured
//   primes      1 when it measures since its previous call (the first call
//               only stores a sample)

// clang-format off
#define ZADI_ITEM_LIST(X) \
    X(GetDiskUsage, "%", "Path", None, 0, 0, "used share of the file system holding Path") \
    X(GetSysCPU, "%", "", None, 0, 1, "busy share of all processors since the previous call") \
    X(GetSysUsrCPU, "%", "", None, 0, 1, "user-mode share of all processors since the previous call") \
    X(GetSysMemory, "%", "", None, 0, 0, "used share of memory (free is the kernel's plain free memory)") \
    X(GetSysFreeMemory, "MB", "", None, 0, 0, "free memory") \
    X(GetProcessSysCPU, "%", "ProcessName", Exact, 0, 1, "CPU share of all processors since the previous call, process named exactly") \
    X(GetProcessSysCPUExtern, "%", "ProcessName", Prefix, 1, 0, "highest CPU share of all processors over 0.5 s among processes whose command line starts so") \
    X(GetProcessCoreCPU, "%core", "ProcessName", Exact, 0, 1, "CPU use since the previous call, process named exactly") \
    X(GetProcessCoreCPUExtern, "%core", "ProcessName", Prefix, 1, 0, "highest CPU use over 0.5 s among processes whose command line starts so") \
    X(GetProcessMemory, "MB", "ProcessName", Exact, 0, 0, "resident memory of the process named exactly") \
    X(GetProcessMemoryExtern, "MB", "ProcessName", Prefix, 1, 0, "highest resident memory among processes whose command line starts so") \
    X(GetProcessHandle, "%", "ProcessName", Exact, 0, 0, "open handles as a share of the open-files limit, process named exactly") \
    X(GetProcessHandleExtern, "%", "ProcessName", Prefix, 1, 0, "highest handle share among processes whose command line starts so") \
    X(IsExistProcess, "exists", "ProcessName", None, 0, 0, "1 when a process is named exactly so") \
    X(IsExistProcessExtern, "exists", "ProcessName", None, 1, 0, "1 when a command line starts so") \
    X(IsExistProcessPreCmd, "exists", "ProcessName PreCmd RetKeyWords", None, 0, 0, "1 when the process runs or PreCmd's output does not start with RetKeyWords") \
    X(GetProcessSysCPUFuzzyMatch, "%", "ProcessName", Wildcard, 1, 0, "highest CPU share of all processors over 0.5 s among processes matching the pattern (? and *)") \
    X(GetProcessSysCPUFuzzyMatchCfgPeriod, "%", "ProcessName Period", Wildcard, 1, 0, "as GetProcessSysCPUFuzzyMatch over Period seconds (1 to 240)") \
    X(GetProcessCoreCPUFuzzyMatch, "%core", "ProcessName", Wildcard, 1, 0, "highest CPU use over 0.5 s among processes matching the pattern (? and *)") \
    X(GetProcessCoreCPUFuzzyMatchCfgPeriod, "%core", "ProcessName Period", Wildcard, 1, 0, "as GetProcessCoreCPUFuzzyMatch over Period seconds (1 to 240)") \
    X(GetProcessMemoryFuzzyMatch, "MB", "ProcessName", Wildcard, 1, 0, "highest resident memory among processes matching the pattern (? and *)") \
    X(GetProcessHandleFuzzyMatch, "%", "ProcessName", Wildcard, 1, 0, "highest handle share among processes matching the pattern (? and *)") \
    X(ProcessHeartBeat, "beats", "ProcessName ProcessMoudleId", None, 0, 0, "1 when every heartbeat file of the process changed since the previous call, 0 when one hangs") \
    X(ClearHeartBeatFile, "", "", None, 0, 0, "removes heartbeat files of processes that are gone; always 1") \
    X(SendErrRpt, "", "ErrCode ProcessMoudleId ResId ProcessName UserData RecoverCmd ...", None, 0, 0, "raises an error report through the agent")
// clang-format on

#endif
