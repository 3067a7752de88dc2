// SendErrRpt: an error report raised through the agent for a fault the agent
// detected. In order: the report handle's holder and the primary key, the
// error code, the heartbeat report's parameters and the ones attached, the
// per-code report creators (CPU and memory share one), and the send that
// always ends with the report destroyed. Each step that fails has already
// written result and reason.

#include "plugin/linux/err_report.h"

#include <string.h>

#include "os/base/kira_number.h"
#include "os/base/kira_raii.h"
#include "plugin/linux/plugin_internal.h"
#include "plugin/linux/zadi_inner.h"
#include "safec/safec.h"

namespace zadi {
namespace {

constexpr uint32_t kNoErrCode = 0xFFFFFFFFu;
constexpr uint16_t kResTypeMark = 0xF000;
constexpr uint8_t kRptType = 1;

// A report handle owned until it is handed out; destroyed on every other path.
using ReportHolder = kira::UniqueHandle<ZADI_ERRREPORT_S, ZADI_DestoryErrRptInner>;

// The module id number, as the low 16 bits of resType.
uint16_t ModuleIdOf(const char* field) {
    ParamValue text;
    text.Assign(field);
    return static_cast<uint16_t>(KIRA_StrToU64(text.c_str()));
}

void InitKey(ZADI_PRIMARY_KEY_S* key, const char* strProcModId, unsigned int uErrCode) {
    (void)memset_s(key, sizeof(*key), 0, sizeof(*key));
    key->resType = static_cast<uint16_t>(ModuleIdOf(strProcModId) | kResTypeMark);
    key->errCode = uErrCode;
    key->rptType = kRptType;
}

// A too long id is cut to what the key holds; that is not a failure.
template <typename... Args>
void FormatResId(ZADI_PRIMARY_KEY_S* key, const char* format, Args... args) {
    (void)snprintf_s(key->resId, sizeof(key->resId), sizeof(key->resId) - 1, format, args...);
}

ZADI_ERRREPORT_S* CreateWithKey(ZADI_PRIMARY_KEY_S* key, FI_RESULT_S* result) {
    ZADI_ERRREPORT_S* report = ZADI_CreateErrRptInner(key);
    if (report == nullptr) {
        SetFault(result, "Create ErrRpt failed.");
    }
    return report;
}

bool IsNeverAttached(const char* name) { return strcmp(name, "ErrCode") == 0 || strcmp(name, "RecoverCmd") == 0; }

// "ErrCode" converted and cut to 32 bits; 0xFFFFFFFF when it is absent.
uint32_t GetErrCodeFromArgv(int argc, FI_PARAM_S* argv) {
    ParamValue text;
    if (!zadi::LoadParam(argc, argv, "ErrCode", &text)) {
        return kNoErrCode;
    }
    return static_cast<uint32_t>(KIRA_StrToU64(text.c_str()));
}

// 0 with the three pointers set ("UserData" may be null), 1 on failure.
int GetHeartbeatLastParaFormArg(int argc, FI_PARAM_S* argv, char** strProcName, char** strProcModId,
                                char** strhangFlowId, FI_RESULT_S* result) {
    *strProcName = GetParaValue(argc, argv, "ProcessName");
    if (*strProcName == nullptr) {
        SetFault(result, "Get para 'ProcessName' failed.");
        return 1;
    }
    *strProcModId = GetParaValue(argc, argv, "ProcessMoudleId");
    if (*strProcModId == nullptr) {
        SetFault(result, "Get para 'ProcessMoudleId' failed.");
        return 1;
    }
    *strhangFlowId = GetParaValue(argc, argv, "UserData");
    return 0;
}

// Attaches every parameter except "ErrCode" and "RecoverCmd", in order.
// 0 on success, 1 at the first refusal.
int AddParaToErrRpt(int argc, FI_PARAM_S* argv, ZADI_ERRREPORT_S* errRpt, FI_RESULT_S* result) {
    ParamName name;
    ParamValue value;
    for (int i = 0; i < argc; ++i) {
        name.Assign(argv[i].name);
        if (IsNeverAttached(name.c_str())) {
            continue;
        }
        value.Assign(argv[i].value);
        if (ZADI_AddParamToErrRptInner(errRpt, name.get(), value.get()) != 0) {
            SetFault(result, "Add param %s=%s fail.", name.c_str(), value.c_str());
            return 1;
        }
    }
    return 0;
}

ZADI_ERRREPORT_S* CreateErrRptSysCPUHigh(int argc, FI_PARAM_S* argv, unsigned int uErrCode, FI_RESULT_S* result) {
    const char* strProcModId = GetParaValue(argc, argv, "ProcessMoudleId");
    if (strProcModId == nullptr) {
        SetFault(result, "Get para 'ProcessMoudleId' failed.");
        return nullptr;
    }
    ParamValue resId;
    if (!zadi::LoadParam(argc, argv, "ResId", &resId)) {
        SetFault(result, "Get para 'ResId' failed.");
        return nullptr;
    }
    ZADI_PRIMARY_KEY_S key;
    InitKey(&key, strProcModId, uErrCode);
    FormatResId(&key, "%s", resId.c_str());
    return CreateWithKey(&key, result);
}

ZADI_ERRREPORT_S* CreateErrRptSysMemHigh(int argc, FI_PARAM_S* argv, unsigned int uErrCode, FI_RESULT_S* result) {
    return CreateErrRptSysCPUHigh(argc, argv, uErrCode, result);
}

ZADI_ERRREPORT_S* CreateErrRptheartbeatLast(int argc, FI_PARAM_S* argv, unsigned int uErrCode, FI_RESULT_S* result) {
    char* strProcName = nullptr;
    char* strProcModId = nullptr;
    char* strhangFlowId = nullptr;
    if (GetHeartbeatLastParaFormArg(argc, argv, &strProcName, &strProcModId, &strhangFlowId, result) != 0) {
        return nullptr;
    }
    ZADI_PRIMARY_KEY_S key;
    InitKey(&key, strProcModId, uErrCode);
    ParamValue procName;
    procName.Assign(strProcName);
    if (strhangFlowId != nullptr) {
        ParamValue hangFlowId;
        hangFlowId.Assign(strhangFlowId);
        FormatResId(&key, "%s:%s", procName.c_str(), hangFlowId.c_str());
    } else {
        FormatResId(&key, "%s", procName.c_str());
    }
    ReportHolder report(CreateWithKey(&key, result));
    if (!report || AddParaToErrRpt(argc, argv, report.get(), result) != 0) {
        return nullptr;
    }
    return report.release();
}

ZADI_ERRREPORT_S* CreateForCode(int argc, FI_PARAM_S* argv, uint32_t uErrCode, FI_RESULT_S* result) {
    switch (uErrCode) {
        case ZADI_ERRCODE_SYS_CPU_HIGH:
            return CreateErrRptSysCPUHigh(argc, argv, uErrCode, result);
        case ZADI_ERRCODE_SYS_MEM_HIGH:
            return CreateErrRptSysMemHigh(argc, argv, uErrCode, result);
        case ZADI_ERRCODE_HEARTBEAT_LAST:
            return CreateErrRptheartbeatLast(argc, argv, uErrCode, result);
        default:
            SetFault(result, "ErrCode 0x%X is not supported.", uErrCode);
            return nullptr;
    }
}

}  // namespace
}  // namespace zadi

using zadi::SetFault;

float SendErrRpt(int argc, FI_PARAM_S* argv, FI_CONTEXT_S* /*context*/, FI_RESULT_S* result) {
    if (result == nullptr) {
        return zadi::FaultMarker();
    }
    if (argc < 0 || argv == nullptr) {
        SetFault(result, "Input parameter number error.");
        return zadi::FaultMarker();
    }
    uint32_t uErrCode = zadi::GetErrCodeFromArgv(argc, argv);
    if (uErrCode == zadi::kNoErrCode) {
        SetFault(result, "Get para 'ErrCode' failed.");
        return zadi::FaultMarker();
    }
    zadi::ReportHolder report(zadi::CreateForCode(argc, argv, uErrCode, result));
    if (!report) {
        return zadi::FaultMarker();
    }

    // Logged from what the agent holds, which is what goes out.
    ZADI_PRIMARY_KEY_S key;
    (void)memset_s(&key, sizeof(key), 0, sizeof(key));
    (void)ZADI_GetPrimaryKeyInner(report.get(), &key);
    key.resId[sizeof(key.resId) - 1] = '\0';
    PLUGIN_LOG_EVENT("DiagCode(0x%X) resId %s.", key.errCode, key.resId);

    const int sent = ZADI_SendErrReportInner(report.get(), nullptr);
    report.reset();  // destroyed before the outcome is written, sent or not
    if (sent != 0) {
        SetFault(result, "Send ErrRpt failed.");
        return zadi::FaultMarker();
    }
    result->result = 0;
    return 0.0f;
}
