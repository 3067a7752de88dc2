// The exported whole-system items: disk, CPU, user CPU, memory, free memory.

#include "plugin/linux/item_contract_internal.h"

using zadi::FaultMarker;
using zadi::FinishItem;

float GetDiskUsage(int argc, FI_PARAM_S* argv, FI_CONTEXT_S* context, FI_RESULT_S* result) {
    ZADI_Linux_Plugin plugin;
    if (!plugin.input_para_check(argc, argv, context, result)) {
        return FaultMarker();
    }
    const zadi::ParamValue path(argv[0].value);
    return FinishItem(result, plugin.get_disk_usage(path.c_str()), "Get Disk Usage Fault, Return %f.");
}

namespace {

// The two CPU delta items: previous sample in the context, no argument read.
template <typename Ctx, typename Measure>
float SysDeltaItem(FI_CONTEXT_S* context, FI_RESULT_S* result, Measure measure) {
    if (result == nullptr || context == nullptr) {
        return FaultMarker();
    }
    ZADI_Linux_Plugin plugin;
    Ctx ctx = zadi::LoadContext<Ctx>(context);
    const float value = (plugin.*measure)(&ctx);
    zadi::StoreContext(context, ctx);
    return FinishItem(result, value, "Get Sys CPU Usage Fault, Return %f.");
}

}  // namespace

float GetSysCPU(int /*argc*/, FI_PARAM_S* /*argv*/, FI_CONTEXT_S* context, FI_RESULT_S* result) {
    return SysDeltaItem<sys_cpu_context_t>(context, result, &ZADI_Linux_Plugin::get_sys_cpu);
}

float GetSysUsrCPU(int /*argc*/, FI_PARAM_S* /*argv*/, FI_CONTEXT_S* context, FI_RESULT_S* result) {
    return SysDeltaItem<sys_usr_cpu_context_t>(context, result, &ZADI_Linux_Plugin::get_sys_usr_cpu);
}

float GetSysMemory(int /*argc*/, FI_PARAM_S* /*argv*/, FI_CONTEXT_S* /*context*/, FI_RESULT_S* result) {
    if (result == nullptr) {
        return FaultMarker();
    }
    ZADI_Linux_Plugin plugin;
    return FinishItem(result, plugin.get_sys_mem(), "Get Sys Memory Fault, Return %f.");
}

float GetSysFreeMemory(int /*argc*/, FI_PARAM_S* /*argv*/, FI_CONTEXT_S* /*context*/, FI_RESULT_S* result) {
    if (result == nullptr) {
        return FaultMarker();
    }
    ZADI_Linux_Plugin plugin;
    return FinishItem(result, plugin.get_sys_free_mem(), "Get Sys Memory Fault, Return %f.");
}
