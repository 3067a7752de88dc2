// Raises the heartbeat error report the way the agent does: after a
// ProcessHeartBeat call that answered 0.0, SendErrRpt is called with code
// 0xF000020F, the item's process name and module id, and the hang flow id
// as "UserData".
//
// Per item, in the configuration line: ErrRpt=off stops the reports;
// ErrRptUserData=none leaves UserData out, any other text replaces the hang
// flow id. (The item receives these fields too and ignores them.)

#include <stdio.h>
#include <string.h>

#include "tools/runner/item_call.h"
#include "tools/runner/report.h"

namespace zadi_runner {

namespace {

const char kHeartbeatCode[] = "0xF000020F";

const std::string* ParamOf(const ConfiguredItem& item, const char* name) {
    for (const Param& p : item.params) {
        if (p.name == name) {
            return &p.value;
        }
    }
    return nullptr;
}

// The item's own values were checked against FI_PARAM_S when it was
// configured, so they fit the report's parameters as they are.
std::vector<FI_PARAM_S> ReportParams(const CallRecord& rec) {
    const ConfiguredItem& item = rec.state->config;
    const std::string* user_data = ParamOf(item, "ErrRptUserData");
    std::vector<Param> params = {{"ErrCode", kHeartbeatCode}};
    for (const char* name : {"ProcessName", "ProcessMoudleId"}) {
        if (ParamOf(item, name) != nullptr) {
            params.push_back({name, *ParamOf(item, name)});
        }
    }
    if (user_data == nullptr) {
        params.push_back({"UserData", std::to_string(rec.result.hangflowid)});
    } else if (*user_data != "none") {
        params.push_back({"UserData", *user_data});
    }
    return ItemArguments(params);
}

}  // namespace

void RaiseHeartbeatReport(const RunnerEnv& env, const CallRecord& rec) {
    const ConfiguredItem& item = rec.state->config;
    const std::string* enabled = ParamOf(item, "ErrRpt");
    if (item.item != "ProcessHeartBeat" || rec.result.result != 0 || rec.value != 0.0f ||
        (enabled != nullptr && *enabled == "off")) {
        return;
    }
    const FI_ITEM_FN send = env.library.Item("SendErrRpt");
    if (send == nullptr) {
        fprintf(stderr, "zadi_runner: no error report: item \"SendErrRpt\" is not exported by %s\n",
                env.library.path().c_str());
        return;
    }
    std::vector<FI_PARAM_S> params = ReportParams(rec);
    FI_CONTEXT_S context;
    FI_RESULT_S result;
    memset(&context, 0, sizeof(context));
    memset(&result, 0, sizeof(result));
    send(static_cast<int>(params.size()), params.data(), &context, &result);
    Say(env, "    error report %s hangFlowId=%u: %s\n", kHeartbeatCode, rec.result.hangflowid,
        result.result == 0 ? "sent" : result.reason);
    fflush(stdout);
}

}  // namespace zadi_runner
