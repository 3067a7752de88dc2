// The exported process items, by flavour: exact match with the pid kept in
// the context, prefix ("Extern") and wildcard ("FuzzyMatch", "CfgPeriod")
// groups reporting the heaviest match's pid; and the period conversion.
// Every parameter value is measured through its terminated copy.

#include <stdint.h>
#include <stdlib.h>

#include "plugin/linux/item_contract_internal.h"

using zadi::FaultMarker;
using zadi::FinishItem;
using zadi::LoadContext;
using zadi::ParamValue;
using zadi::StoreContext;

namespace {

const char kCpuFault[] = "Get Process Cpu Usage Fault, Return %f.";
const char kMemFault[] = "Get Process Mem Usage Fault, Return %f.";
const char kHandleFault[] = "Get Process Handle Usage Fault, Return %f.";
const char kArrayCpuFault[] = "Get Process Array Sys Cpu Usage Fault, Return %f.";
const char kArrayMemFault[] = "Get Process Array Mem Usage Fault, Return %f.";

constexpr int kFuzzyCpuPeriodUs = 500000;
constexpr int kPeriodMinUs = 500000;
constexpr int kPeriodMaxUs = 240000000;

// "Core" figures are a share of one processor rather than of the machine.
float ToCoreShare(float value, const FI_RESULT_S* result) {
    if (result->result != 0) {
        return value;
    }
    return value * static_cast<float>(ZADI_Linux_Plugin::get_cpu_core_num());
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
template <typename Measure>
float ExactPidItem(int argc, FI_PARAM_S* argv, FI_CONTEXT_S* context, FI_RESULT_S* result, const char* fault,
                   Measure measure) {
    ZADI_Linux_Plugin plugin;
    if (!plugin.input_para_check(argc, argv, context, result)) {
        return FaultMarker();
    }
    const ParamValue name(argv[0].value);
    pid_t pid = LoadContext<pid_t>(context);
    const float value = measure(plugin, name.c_str(), pid);
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
template <typename Measure>
float FuzzyResourceItem(int argc, FI_PARAM_S* argv, FI_CONTEXT_S* context, FI_RESULT_S* result, const char* fault,
                        Measure measure) {
    ZADI_Linux_Plugin plugin;
    if (!plugin.input_para_check(argc, argv, context, result)) {
        return FaultMarker();
    }
    const ParamValue name(argv[0].value);
    plugin.max_usage_pid = 0;
    const float value = measure(plugin, name.c_str());
    return FinishWithPid(result, value, fault, plugin.max_usage_pid);
}

}  // namespace

int ConvertStr2PeriodUS(const char* text) {
    // The product wraps as 32-bit two's complement on purpose: very large
    // periods fold back into range exactly as configured systems expect.
    const int seconds = atoi(text);
    const int us = static_cast<int>(static_cast<uint32_t>(seconds) * 1000000u);
    if (us < kPeriodMinUs) {
        return kPeriodMinUs;
    }
    if (us > kPeriodMaxUs) {
        return kPeriodMaxUs;
    }
    return us;
}

float GetProcessSysCPU(int argc, FI_PARAM_S* argv, FI_CONTEXT_S* context, FI_RESULT_S* result) {
    return ProcessCpuItem(argc, argv, context, result);
}

float GetProcessCoreCPU(int argc, FI_PARAM_S* argv, FI_CONTEXT_S* context, FI_RESULT_S* result) {
    const float value = ProcessCpuItem(argc, argv, context, result);
    return result == nullptr ? value : ToCoreShare(value, result);
}

float GetProcessSysCPUExtern(int argc, FI_PARAM_S* argv, FI_CONTEXT_S* context, FI_RESULT_S* result) {
    return ProcessCpuExternItem(argc, argv, context, result);
}

float GetProcessCoreCPUExtern(int argc, FI_PARAM_S* argv, FI_CONTEXT_S* context, FI_RESULT_S* result) {
    const float value = ProcessCpuExternItem(argc, argv, context, result);
    return result == nullptr ? value : ToCoreShare(value, result);
}

float GetProcessMemory(int argc, FI_PARAM_S* argv, FI_CONTEXT_S* context, FI_RESULT_S* result) {
    return ExactPidItem(argc, argv, context, result, kMemFault, [](ZADI_Linux_Plugin& p, const char* name, int& pid) {
        return p.get_process_memory(name, pid);
    });
}

float GetProcessMemoryExtern(int argc, FI_PARAM_S* argv, FI_CONTEXT_S* context, FI_RESULT_S* result) {
    return ExternResourceItem(argc, argv, context, result, PROCESS_RESOURCE_MEM, kMemFault);
}

float GetProcessHandle(int argc, FI_PARAM_S* argv, FI_CONTEXT_S* context, FI_RESULT_S* result) {
    return ExactPidItem(
        argc, argv, context, result, kHandleFault,
        [](ZADI_Linux_Plugin& p, const char* name, int& pid) { return p.get_process_handle(name, pid); });
}

float GetProcessHandleExtern(int argc, FI_PARAM_S* argv, FI_CONTEXT_S* context, FI_RESULT_S* result) {
    return ExternResourceItem(argc, argv, context, result, PROCESS_RESOURCE_HANDLE, kHandleFault);
}

// Existence never fails once the arguments are accepted: 1.0 or 0.0.
float IsExistProcess(int argc, FI_PARAM_S* argv, FI_CONTEXT_S* context, FI_RESULT_S* result) {
    return ExactPidItem(argc, argv, context, result, nullptr, [](ZADI_Linux_Plugin& p, const char* name, int& pid) {
        return p.get_process_exist(name, pid);
    });
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
    const float value = FuzzyCpuFixedItem(argc, argv, context, result);
    return result == nullptr ? value : ToCoreShare(value, result);
}

float GetProcessCoreCPUFuzzyMatchCfgPeriod(int argc, FI_PARAM_S* argv, FI_CONTEXT_S* context, FI_RESULT_S* result) {
    const float value = FuzzyCpuCfgPeriodItem(argc, argv, context, result);
    return result == nullptr ? value : ToCoreShare(value, result);
}

float GetProcessMemoryFuzzyMatch(int argc, FI_PARAM_S* argv, FI_CONTEXT_S* context, FI_RESULT_S* result) {
    return FuzzyResourceItem(argc, argv, context, result, kArrayMemFault,
                             [](ZADI_Linux_Plugin& p, const char* name) { return p.get_process_memory(name); });
}

// The handle group keeps the single-process text, without "Array".
float GetProcessHandleFuzzyMatch(int argc, FI_PARAM_S* argv, FI_CONTEXT_S* context, FI_RESULT_S* result) {
    return FuzzyResourceItem(argc, argv, context, result, kHandleFault,
                             [](ZADI_Linux_Plugin& p, const char* name) { return p.get_process_handle(name); });
}
