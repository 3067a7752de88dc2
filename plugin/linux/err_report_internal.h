#ifndef PLUGIN_LINUX_ERR_REPORT_INTERNAL_H
#define PLUGIN_LINUX_ERR_REPORT_INTERNAL_H

// Steps of SendErrRpt: reading the code and the parameters, building the
// key, creating a report per code and attaching parameters. Each function
// that fails has already written result and reason. Never exported.

#include <stdint.h>

#include "plugin/linux/fi_types.h"
#include "plugin/linux/zadi_inner.h"

// "ErrCode" converted and cut to 32 bits; 0xFFFFFFFF when it is absent.
uint32_t GetErrCodeFromArgv(int argc, FI_PARAM_S* argv);

// 0 with the three pointers set ("UserData" may be null), 1 on failure.
int GetHeartbeatLastParaFormArg(int argc, FI_PARAM_S* argv, char** strProcName, char** strProcModId,
                                char** strhangFlowId, FI_RESULT_S* result);

// Attaches every parameter except "ErrCode" and "RecoverCmd", in order.
// 0 on success, 1 at the first refusal.
int AddParaToErrRpt(int argc, FI_PARAM_S* argv, ZADI_ERRREPORT_S* errRpt, FI_RESULT_S* result);

ZADI_ERRREPORT_S* CreateErrRptSysCPUHigh(int argc, FI_PARAM_S* argv, unsigned int uErrCode, FI_RESULT_S* result);
ZADI_ERRREPORT_S* CreateErrRptSysMemHigh(int argc, FI_PARAM_S* argv, unsigned int uErrCode, FI_RESULT_S* result);
ZADI_ERRREPORT_S* CreateErrRptheartbeatLast(int argc, FI_PARAM_S* argv, unsigned int uErrCode, FI_RESULT_S* result);

#endif
