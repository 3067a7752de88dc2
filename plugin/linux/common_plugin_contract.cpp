// The item calling contract: parameter lookup, the three argument checks,
// the fault marker and the way result and reason are written.

#include <stdarg.h>
#include <stdint.h>

#include "plugin/linux/item_contract_internal.h"

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

}  // namespace zadi

using zadi::SetFault;

char* GetParaValue(int argc, FI_PARAM_S* argv, const char* name) {
    for (int i = 0; i < argc; ++i) {
        if (strcmp(argv[i].name, name) == 0) {
            return argv[i].value;
        }
    }
    return nullptr;
}

namespace {

constexpr size_t kParamNameCompare = sizeof(((FI_PARAM_S*)nullptr)->name);

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

bool ZADI_Linux_Plugin::input_para_check(int argc, FI_PARAM_S* argv, FI_CONTEXT_S* context, FI_RESULT_S* result) {
    return CheckArguments(argc, argv, context, result, 1, nullptr);
}

bool ZADI_Linux_Plugin::input_para_check_precmd(int argc, FI_PARAM_S* argv, FI_CONTEXT_S* context,
                                                FI_RESULT_S* result) {
    static const char* const kNames[] = {"ProcessName", "PreCmd", "RetKeyWords"};
    return CheckArguments(argc, argv, context, result, 3, kNames);
}

bool ZADI_Linux_Plugin::input_para_check_cfgperiod(int argc, FI_PARAM_S* argv, FI_CONTEXT_S* context,
                                                   FI_RESULT_S* result) {
    static const char* const kNames[] = {"ProcessName", "Period"};
    return CheckArguments(argc, argv, context, result, 2, kNames);
}
