// The inspection items as the agent calls them, and the calling contract
// they share. In order:
//   the contract: GetParaValue, the fault marker, how result and reason are
//     written, the three argument checks (count, argv, names, context)
//   ConvertStr2PeriodUS
//   the shapes every item is one of: system delta, exact with the pid kept
//     in the context, prefix ("Extern") and wildcard ("FuzzyMatch",
//     "CfgPeriod") groups reporting the heaviest match's pid
//   the exported items: system, then process
// Every parameter value is measured through its terminated copy; the
// measurements themselves are the methods of ZADI_Linux_Plugin.

#include <stdarg.h>
#include <stdint.h>
#include <stdlib.h>

#include "plugin/linux/plugin_internal.h"

// ---- the contract ----

namespace zadi {

float FaultMarker() {
    // Built from its bits so no rounding of a literal can change it.
    const uint32_t bits = ZADI_FAULT_MARKER_BITS;
    float value;
    memcpy(&value, &bits, sizeof(value));
    return value;
}

void SetFault(FI_RESULT_S* result, const char* format, ...) {
    result->result = -1;
    va_list args;
    va_start(args, format);
    // Truncation is accepted silently: the text stays terminated.
    (void)vsnprintf_s(result->reason, kReasonSize, kReasonSize - 1, format, args);
    va_end(args);
}

float FinishItem(FI_RESULT_S* result, float value, const char* faultFormat) {
    if (value < 0.0f) {
        SetFault(result, faultFormat, static_cast<double>(value));
        return FaultMarker();
    }
    result->result = 0;
    return value;
}

namespace {

constexpr size_t kParamNameCompare = sizeof(((FI_PARAM_S*)nullptr)->name);
constexpr int kPeriodMinUs = 500000;
constexpr int kPeriodMaxUs = 240000000;

// Steps common to the three checks up to the parameter names.
bool CheckCountAndArgv(int argc, int wanted, const FI_PARAM_S* argv, FI_RESULT_S* result) {
    if (argc != wanted) {
        SetFault(result, "Input parameter number error.");
        return false;
    }
    if (argv == nullptr) {
        SetFault(result, "Input parameter argv is NULL.");
        return false;
    }
    return true;
}

bool CheckNames(const FI_PARAM_S* argv, const char* const* names, int count, FI_RESULT_S* result) {
    for (int i = 0; i < count; ++i) {
        if (strncmp(argv[i].name, names[i], kParamNameCompare) != 0) {
            SetFault(result, "Input parameter error.");
            return false;
        }
    }
    return true;
}

bool CheckContext(const FI_CONTEXT_S* context, FI_RESULT_S* result) {
    if (context == nullptr) {
        SetFault(result, "Input parameter context is NULL.");
        return false;
    }
    return true;
}

// Names are checked before the context on purpose: a misconfigured item
// reports its parameters even when the context is missing too.
// `names` lists the required parameter names in order; null when the
// names are not examined.
bool CheckArguments(int argc, FI_PARAM_S* argv, FI_CONTEXT_S* context, FI_RESULT_S* result, int wanted,
                    const char* const* names) {
    if (result == nullptr) {
        return false;
    }
    return CheckCountAndArgv(argc, wanted, argv, result) &&
           (names == nullptr || CheckNames(argv, names, wanted, result)) && CheckContext(context, result);
}

}  // namespace
}  // namespace zadi

char* GetParaValue(int argc, FI_PARAM_S* argv, const char* name) {
    for (int i = 0; i < argc; ++i) {
        if (strcmp(argv[i].name, name) == 0) {
            return argv[i].value;
        }
    }
    return nullptr;
}

bool ZADI_Linux_Plugin::input_para_check(int argc, FI_PARAM_S* argv, FI_CONTEXT_S* context, FI_RESULT_S* result) {
    return zadi::CheckArguments(argc, argv, context, result, 1, nullptr);
}

bool ZADI_Linux_Plugin::input_para_check_precmd(int argc, FI_PARAM_S* argv, FI_CONTEXT_S* context,
                                                FI_RESULT_S* result) {
    static const char* const kNames[] = {"ProcessName", "PreCmd", "RetKeyWords"};
    return zadi::CheckArguments(argc, argv, context, result, 3, kNames);
}

bool ZADI_Linux_Plugin::input_para_check_cfgperiod(int argc, FI_PARAM_S* argv, FI_CONTEXT_S* context,
                                                   FI_RESULT_S* result) {
    static const char* const kNames[] = {"ProcessName", "Period"};
    return zadi::CheckArguments(argc, argv, context, result, 2, kNames);
}

int ConvertStr2PeriodUS(const char* text) {
    // The product wraps as 32-bit two's complement on purpose: very large
    // periods fold back into range exactly as configured systems expect.
    const int seconds = atoi(text);
    const int us = static_cast<int>(static_cast<uint32_t>(seconds) * 1000000u);
    if (us < zadi::kPeriodMinUs) {
        return zadi::kPeriodMinUs;
    }
    if (us > zadi::kPeriodMaxUs) {
        return zadi::kPeriodMaxUs;
    }
    return us;
}

// ---- the shapes of an item ----

namespace zadi {
namespace {

const char kCpuFault[] = "Get Process Cpu Usage Fault, Return %f.";
const char kMemFault[] = "Get Process Mem Usage Fault, Return %f.";
const char kHandleFault[] = "Get Process Handle Usage Fault, Return %f.";
const char kArrayCpuFault[] = "Get Process Array Sys Cpu Usage Fault, Return %f.";
const char kArrayMemFault[] = "Get Process Array Mem Usage Fault, Return %f.";
const char kSysCpuFault[] = "Get Sys CPU Usage Fault, Return %f.";
const char kSysMemFault[] = "Get Sys Memory Fault, Return %f.";

constexpr int kFuzzyCpuPeriodUs = 500000;

// The two system CPU delta items: previous sample in the context, no
// argument read.
template <typename Ctx, typename Measure>
float SysDeltaItem(FI_CONTEXT_S* context, FI_RESULT_S* result, Measure measure) {
    if (result == nullptr || context == nullptr) {
        return FaultMarker();
    }
    ZADI_Linux_Plugin plugin;
    Ctx ctx = LoadContext<Ctx>(context);
    const float value = (plugin.*measure)(&ctx);
    StoreContext(context, ctx);
    return FinishItem(result, value, kSysCpuFault);
}

// The two memory items read neither arguments nor context.
float SysMemoryItem(FI_RESULT_S* result, float (ZADI_Linux_Plugin::*measure)()) {
    if (result == nullptr) {
        return FaultMarker();
    }
    ZADI_Linux_Plugin plugin;
    return FinishItem(result, (plugin.*measure)(), kSysMemFault);
}

// "Core" figures are a share of one processor rather than of the machine.
float ToCoreShare(float value, const FI_RESULT_S* result) {
    if (result->result != 0) {
        return value;
    }
    return value * static_cast<float>(ZADI_Linux_Plugin::get_cpu_core_num());
}

float ToCoreShareIfAny(float value, const FI_RESULT_S* result) {
    return result == nullptr ? value : ToCoreShare(value, result);
}

// Existence items have no fault branch: a null `fault` means any value
// (1.0 or 0.0) is a success.
float FinishMaybeFault(FI_RESULT_S* result, float value, const char* fault) {
    if (fault == nullptr) {
        result->result = 0;
        return value;
    }
    return FinishItem(result, value, fault);
}

// Group items report the pid of the heaviest match, on success only.
float FinishWithPid(FI_RESULT_S* result, float value, const char* fault, int pid) {
    const float out = FinishMaybeFault(result, value, fault);
    if (result->result == 0) {
        result->pid = pid;
    }
    return out;
}

// Exact CPU share, samples kept in the context between calls.
float ProcessCpuItem(int argc, FI_PARAM_S* argv, FI_CONTEXT_S* context, FI_RESULT_S* result) {
    ZADI_Linux_Plugin plugin;
    if (!plugin.input_para_check(argc, argv, context, result)) {
        return FaultMarker();
    }
    const ParamValue name(argv[0].value);
    process_cpu_context_t ctx = LoadContext<process_cpu_context_t>(context);
    const float value = plugin.get_process_cpu(name.c_str(), ctx.pid, ctx.syscputime, ctx.procputime);
    StoreContext(context, ctx);
    return FinishItem(result, value, kCpuFault);
}

float ProcessCpuExternItem(int argc, FI_PARAM_S* argv, FI_CONTEXT_S* context, FI_RESULT_S* result) {
    ZADI_Linux_Plugin plugin;
    if (!plugin.input_para_check(argc, argv, context, result)) {
        return FaultMarker();
    }
    const ParamValue name(argv[0].value);
    int pid = 0;
    const float value = plugin.get_process_cpu_extern(name.c_str(), &pid);
    return FinishWithPid(result, value, kCpuFault, pid);
}

// Wildcard group CPU share over `periodUs`.
float FuzzyCpuItem(FI_PARAM_S* argv, FI_RESULT_S* result, int periodUs) {
    const ParamValue name(argv[0].value);
    ZADI_Linux_Plugin plugin;
    plugin.max_usage_pid = 0;
    const float value = plugin.get_process_cpu(name.c_str(), periodUs);
    return FinishWithPid(result, value, kArrayCpuFault, plugin.max_usage_pid);
}

float FuzzyCpuFixedItem(int argc, FI_PARAM_S* argv, FI_CONTEXT_S* context, FI_RESULT_S* result) {
    ZADI_Linux_Plugin plugin;
    if (!plugin.input_para_check(argc, argv, context, result)) {
        return FaultMarker();
    }
    return FuzzyCpuItem(argv, result, kFuzzyCpuPeriodUs);
}

float FuzzyCpuCfgPeriodItem(int argc, FI_PARAM_S* argv, FI_CONTEXT_S* context, FI_RESULT_S* result) {
    ZADI_Linux_Plugin plugin;
    if (!plugin.input_para_check_cfgperiod(argc, argv, context, result)) {
        return FaultMarker();
    }
    return FuzzyCpuItem(argv, result, ConvertStr2PeriodUS(ParamValue(argv[1].value).c_str()));
}

// Exact single-pid items whose context is just the pid.
float ExactPidItem(int argc, FI_PARAM_S* argv, FI_CONTEXT_S* context, FI_RESULT_S* result, const char* fault,
                   float (ZADI_Linux_Plugin::*measure)(const char*, int&)) {
    ZADI_Linux_Plugin plugin;
    if (!plugin.input_para_check(argc, argv, context, result)) {
        return FaultMarker();
    }
    const ParamValue name(argv[0].value);
    pid_t pid = LoadContext<pid_t>(context);
    const float value = (plugin.*measure)(name.c_str(), pid);
    StoreContext(context, pid);
    return FinishMaybeFault(result, value, fault);
}

// Prefix group over one resource; the heaviest match's pid is reported.
float ExternResourceItem(int argc, FI_PARAM_S* argv, FI_CONTEXT_S* context, FI_RESULT_S* result,
                         PROCESS_RESOURCE_E type, const char* fault) {
    ZADI_Linux_Plugin plugin;
    if (!plugin.input_para_check(argc, argv, context, result)) {
        return FaultMarker();
    }
    const ParamValue name(argv[0].value);
    int pid = 0;
    const float value = plugin.get_process_resource(type, name.c_str(), &pid);
    return FinishWithPid(result, value, fault, pid);
}

// Wildcard group over memory or handles.
float FuzzyResourceItem(int argc, FI_PARAM_S* argv, FI_CONTEXT_S* context, FI_RESULT_S* result, const char* fault,
                        float (ZADI_Linux_Plugin::*measure)(const char*)) {
    ZADI_Linux_Plugin plugin;
    if (!plugin.input_para_check(argc, argv, context, result)) {
        return FaultMarker();
    }
    const ParamValue name(argv[0].value);
    plugin.max_usage_pid = 0;
    const float value = (plugin.*measure)(name.c_str());
    return FinishWithPid(result, value, fault, plugin.max_usage_pid);
}

}  // namespace
}  // namespace zadi

using namespace zadi;

// ---- system items ----

float GetDiskUsage(int argc, FI_PARAM_S* argv, FI_CONTEXT_S* context, FI_RESULT_S* result) {
    ZADI_Linux_Plugin plugin;
    if (!plugin.input_para_check(argc, argv, context, result)) {
        return FaultMarker();
    }
    const ParamValue path(argv[0].value);
    return FinishItem(result, plugin.get_disk_usage(path.c_str()), "Get Disk Usage Fault, Return %f.");
}

float GetSysCPU(int /*argc*/, FI_PARAM_S* /*argv*/, FI_CONTEXT_S* context, FI_RESULT_S* result) {
    return SysDeltaItem<sys_cpu_context_t>(context, result, &ZADI_Linux_Plugin::get_sys_cpu);
}

float GetSysUsrCPU(int /*argc*/, FI_PARAM_S* /*argv*/, FI_CONTEXT_S* context, FI_RESULT_S* result) {
    return SysDeltaItem<sys_usr_cpu_context_t>(context, result, &ZADI_Linux_Plugin::get_sys_usr_cpu);
}

float GetSysMemory(int /*argc*/, FI_PARAM_S* /*argv*/, FI_CONTEXT_S* /*context*/, FI_RESULT_S* result) {
    return SysMemoryItem(result, &ZADI_Linux_Plugin::get_sys_mem);
}

float GetSysFreeMemory(int /*argc*/, FI_PARAM_S* /*argv*/, FI_CONTEXT_S* /*context*/, FI_RESULT_S* result) {
    return SysMemoryItem(result, &ZADI_Linux_Plugin::get_sys_free_mem);
}

// ---- process items ----

float GetProcessSysCPU(int argc, FI_PARAM_S* argv, FI_CONTEXT_S* context, FI_RESULT_S* result) {
    return ProcessCpuItem(argc, argv, context, result);
}

float GetProcessCoreCPU(int argc, FI_PARAM_S* argv, FI_CONTEXT_S* context, FI_RESULT_S* result) {
    return ToCoreShareIfAny(ProcessCpuItem(argc, argv, context, result), result);
}

float GetProcessSysCPUExtern(int argc, FI_PARAM_S* argv, FI_CONTEXT_S* context, FI_RESULT_S* result) {
    return ProcessCpuExternItem(argc, argv, context, result);
}

float GetProcessCoreCPUExtern(int argc, FI_PARAM_S* argv, FI_CONTEXT_S* context, FI_RESULT_S* result) {
    return ToCoreShareIfAny(ProcessCpuExternItem(argc, argv, context, result), result);
}

float GetProcessMemory(int argc, FI_PARAM_S* argv, FI_CONTEXT_S* context, FI_RESULT_S* result) {
    return ExactPidItem(argc, argv, context, result, kMemFault, &ZADI_Linux_Plugin::get_process_memory);
}

float GetProcessMemoryExtern(int argc, FI_PARAM_S* argv, FI_CONTEXT_S* context, FI_RESULT_S* result) {
    return ExternResourceItem(argc, argv, context, result, PROCESS_RESOURCE_MEM, kMemFault);
}

float GetProcessHandle(int argc, FI_PARAM_S* argv, FI_CONTEXT_S* context, FI_RESULT_S* result) {
    return ExactPidItem(argc, argv, context, result, kHandleFault, &ZADI_Linux_Plugin::get_process_handle);
}

float GetProcessHandleExtern(int argc, FI_PARAM_S* argv, FI_CONTEXT_S* context, FI_RESULT_S* result) {
    return ExternResourceItem(argc, argv, context, result, PROCESS_RESOURCE_HANDLE, kHandleFault);
}

// Existence never fails once the arguments are accepted: 1.0 or 0.0.
float IsExistProcess(int argc, FI_PARAM_S* argv, FI_CONTEXT_S* context, FI_RESULT_S* result) {
    return ExactPidItem(argc, argv, context, result, nullptr, &ZADI_Linux_Plugin::get_process_exist);
}

float IsExistProcessExtern(int argc, FI_PARAM_S* argv, FI_CONTEXT_S* context, FI_RESULT_S* result) {
    return ExternResourceItem(argc, argv, context, result, PROCESS_RESOURCE_EXIST, nullptr);
}

float IsExistProcessPreCmd(int argc, FI_PARAM_S* argv, FI_CONTEXT_S* context, FI_RESULT_S* result) {
    ZADI_Linux_Plugin plugin;
    if (!plugin.input_para_check_precmd(argc, argv, context, result)) {
        return FaultMarker();
    }
    // The pre-command decides whether the process is expected at all; when
    // its output does not say so, the process counts as present.
    ParamValue cmd(argv[1].value);
    ParamValue keywords(argv[2].value);
    if (ZADI_Linux_Plugin::exec_pre_cmd(cmd.get(), keywords.get()) != 0) {
        result->result = 0;
        return 1.0f;
    }
    const ParamValue name(argv[0].value);
    pid_t pid = LoadContext<pid_t>(context);
    const float value = plugin.get_process_exist(name.c_str(), pid);
    StoreContext(context, pid);
    result->result = 0;
    return value;
}

float GetProcessSysCPUFuzzyMatch(int argc, FI_PARAM_S* argv, FI_CONTEXT_S* context, FI_RESULT_S* result) {
    return FuzzyCpuFixedItem(argc, argv, context, result);
}

float GetProcessSysCPUFuzzyMatchCfgPeriod(int argc, FI_PARAM_S* argv, FI_CONTEXT_S* context, FI_RESULT_S* result) {
    return FuzzyCpuCfgPeriodItem(argc, argv, context, result);
}

float GetProcessCoreCPUFuzzyMatch(int argc, FI_PARAM_S* argv, FI_CONTEXT_S* context, FI_RESULT_S* result) {
    return ToCoreShareIfAny(FuzzyCpuFixedItem(argc, argv, context, result), result);
}

float GetProcessCoreCPUFuzzyMatchCfgPeriod(int argc, FI_PARAM_S* argv, FI_CONTEXT_S* context, FI_RESULT_S* result) {
    return ToCoreShareIfAny(FuzzyCpuCfgPeriodItem(argc, argv, context, result), result);
}

float GetProcessMemoryFuzzyMatch(int argc, FI_PARAM_S* argv, FI_CONTEXT_S* context, FI_RESULT_S* result) {
    return FuzzyResourceItem(argc, argv, context, result, kArrayMemFault, &ZADI_Linux_Plugin::get_process_memory);
}

// The handle group keeps the single-process text, without "Array".
float GetProcessHandleFuzzyMatch(int argc, FI_PARAM_S* argv, FI_CONTEXT_S* context, FI_RESULT_S* result) {
    return FuzzyResourceItem(argc, argv, context, result, kHandleFault, &ZADI_Linux_Plugin::get_process_handle);
}
