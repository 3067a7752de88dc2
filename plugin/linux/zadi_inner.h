#ifndef PLUGIN_LINUX_ZADI_INNER_H
#define PLUGIN_LINUX_ZADI_INNER_H

// The diagnosis agent's error-report interface: the primary key, the opaque
// report handle, the agent's enumerations, the five functions the agent's
// libraries export, and the thin inline wrappers the plug-in calls.
//
// Linking: the plug-in only imports the five ZADI_*Sub functions; it never
// defines them and is linked without -z defs, so the shared library carries
// them as undefined dynamic symbols. Inside the agent they resolve at load
// time against the agent's own libraries, already in the process. Outside the
// agent a host must first load the substitute library zadi_agent_sub with
// RTLD_GLOBAL (or link against it, as the tests and benchmarks do) before it
// loads the plug-in; the names then resolve to the substitute.

#include <stdarg.h>
#include <stddef.h>
#include <stdint.h>

typedef struct tagZADI_PRIMARY_KEY_S {
    uint16_t resType;
    uint32_t errCode;
    char resId[64];
    uint8_t rptType;
} ZADI_PRIMARY_KEY_S;

// Owned and laid out by the agent; the plug-in only passes pointers along.
typedef struct tagZADI_ERRREPORT_S ZADI_ERRREPORT_S;

typedef enum tagZADI_ERRRPT_STATUS_E {
    ZADI_ERRRPT_STATUS_NORMAL = 0,
    ZADI_ERRRPT_STATUS_DELAY = 1,
    ZADI_ERRRPT_STATUS_RELIEF = 2,
    ZADI_ERRRPT_STATUS_PROCESSING = 3,
    ZADI_ERRRPT_STATUS_WAITING = 4,
    ZADI_ERRRPT_STATUS_RASCAL = 5,
    ZADI_ERRRPT_STATUS_FAILED = 6,
    ZADI_ERRRPT_STATUS_PASSIVATING = 7,
    ZADI_ERRRPT_STATUS_HANGING = 8,
    ZADI_ERRRPT_STATUS_COMPLETED = 9,
    ZADI_ERRRPT_STATUS_BUTT = 10
} ZADI_ERRRPT_STATUS_E;

typedef enum tagZADI_HANDLE_TYPE_E {
    ZADI_HANDLE_TYPE_LOCAL = 0,
    ZADI_HANDLE_TYPE_GLOBAL = 1,
    ZADI_HANDLE_TYPE_BUTT = 2
} ZADI_HANDLE_TYPE_E;

// The agent's module numbers; the plug-in logs as PID_CTRL_ZADIMONITOR.
typedef enum enPID_CTRL_E {
    PID_CTRL_ZADIDAEMONE = 421,
    PID_CTRL_ZADICORE = 422,
    PID_CTRL_ZADIKERNELAGENT = 423,
    PID_CTRL_ZADIMONITOR = 424,
    PID_CTRL_BUTT = 440
} PID_CTRL_E;

#ifdef __cplusplus
extern "C" {
#endif

ZADI_ERRREPORT_S* ZADI_CreateErrRptSub(ZADI_PRIMARY_KEY_S* pKey);
int ZADI_AddParamToErrRptSub(const ZADI_ERRREPORT_S* errRpt, char* name, char* value);
int ZADI_GetPrimaryKeySub(const ZADI_ERRREPORT_S* errRpt, ZADI_PRIMARY_KEY_S* key);
int ZADI_SendErrReportSub(const ZADI_ERRREPORT_S* errRpt, const char* desc, va_list args);
void ZADI_DestoryErrRptSub(const ZADI_ERRREPORT_S* errRpt);

#ifdef __cplusplus
}
#endif

static inline ZADI_ERRREPORT_S* ZADI_CreateErrRptInner(ZADI_PRIMARY_KEY_S* pKey) { return ZADI_CreateErrRptSub(pKey); }

static inline int ZADI_AddParamToErrRptInner(const ZADI_ERRREPORT_S* errRpt, char* name, char* value) {
    return ZADI_AddParamToErrRptSub(errRpt, name, value);
}

static inline int ZADI_GetPrimaryKeyInner(const ZADI_ERRREPORT_S* errRpt, ZADI_PRIMARY_KEY_S* key) {
    return ZADI_GetPrimaryKeySub(errRpt, key);
}

static inline void ZADI_DestoryErrRptInner(const ZADI_ERRREPORT_S* errRpt) { ZADI_DestoryErrRptSub(errRpt); }

// Without a description there is nothing to format, so the argument list is
// never opened and the agent must not read it.
static inline int ZADI_SendErrReportInner(const ZADI_ERRREPORT_S* errRpt, const char* desc, ...) {
    int iRet = 0;
    va_list args;
    if (desc != NULL) {
        va_start(args, desc);
        iRet = ZADI_SendErrReportSub(errRpt, desc, args);
        va_end(args);
        return iRet;
    }
    // The list is passed unopened; zero it so the handover is defined.
    __builtin_memset(&args, 0, sizeof(args));
    iRet = ZADI_SendErrReportSub(errRpt, NULL, args);
    return iRet;
}

#endif
