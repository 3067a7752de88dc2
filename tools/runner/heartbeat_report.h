#ifndef TOOLS_RUNNER_HEARTBEAT_REPORT_H
#define TOOLS_RUNNER_HEARTBEAT_REPORT_H

// The heartbeat error report the agent raises after a hang, raised by the
// runner after every call (run, serve and call alike).

#include "tools/runner/item_call.h"
#include "tools/runner/runner_env.h"

namespace zadi_runner {

// Does nothing unless `rec` is a ProcessHeartBeat call that answered 0.0.
void RaiseHeartbeatReport(const RunnerEnv& env, const CallRecord& rec);

}  // namespace zadi_runner

#endif
