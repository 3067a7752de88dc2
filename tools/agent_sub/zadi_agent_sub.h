#ifndef TOOLS_AGENT_SUB_ZADI_AGENT_SUB_H
#define TOOLS_AGENT_SUB_ZADI_AGENT_SUB_H

// Control interface of the substitute error-report library. Besides the five
// ZADI_*Sub functions the plug-in imports (declared in zadi_inner.h), it lets
// a test or host choose where sent reports are printed, make chosen calls
// fail, and count the reports still alive.
//
// Environment, read when the library is loaded and again by Reset:
//   ZADI_AGENT_SUB_OUT   file that sent reports are appended to, one line
//                        each; standard error when unset or empty.
//   ZADI_AGENT_SUB_FAIL  comma-separated "call" or "call=N" with call one of
//                        create, addparam, getkey, send: "call" fails every
//                        such call, "call=N" only the Nth one counted from
//                        load or reset.

#include <stddef.h>

#include "plugin/linux/zadi_inner.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef enum tagZADI_SUB_CALL_E {
    ZADI_SUB_CALL_CREATE = 0,
    ZADI_SUB_CALL_ADDPARAM = 1,
    ZADI_SUB_CALL_GETKEY = 2,
    ZADI_SUB_CALL_SEND = 3,
    ZADI_SUB_CALL_BUTT = 4
} ZADI_SUB_CALL_E;

// Forgets failure settings, call counters and sent reports, then re-reads the
// environment. Live reports stay counted: a leak must stay visible.
void ZADI_AgentSubReset(void);
// nth > 0: the nth call of that kind from now fails once; nth < 0: every call
// fails; nth == 0: calls succeed again.
void ZADI_AgentSubFailCall(int call, int nth);
// Where sent reports go; NULL or "" means standard error.
void ZADI_AgentSubSetOutput(const char* path);

int ZADI_AgentSubLiveReports(void);
int ZADI_AgentSubSentReports(void);
int ZADI_AgentSubCallCount(int call);
// The line printed for the latest sent report, without its newline. Returns
// its length, or -1 when nothing was sent or buf is too small.
int ZADI_AgentSubLastSent(char* buf, size_t size);
// The key of the latest sent report; -1 when nothing was sent.
int ZADI_AgentSubLastSentKey(ZADI_PRIMARY_KEY_S* key);

#ifdef __cplusplus
}
#endif

#endif
