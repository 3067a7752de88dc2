// Raises the heartbeat error report the way the agent does: after a
// ProcessHeartBeat call that answered 0.0, SendErrRpt is called with code
// 0xF000020F, the item's process name and module id, and the hang flow id
// as "UserData".
//
// Per item, in the configuration line: ErrRpt=off stops the reports;
// ErrRptUserData=none leaves UserData out, any other text replaces the hang
// flow id. (The item receives these fields too and ignores them.)

#include <string>
#include <vector>

#include "tools/runner/runner.h"

namespace zr {

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

bool BuildReport(const CallRecord& rec, ConfiguredItem* report, std::string* error) {
    const ConfiguredItem& item = rec.state->config;
    report->item = "SendErrRpt";
    if (!AddParam(report, "ErrCode", kHeartbeatCode, error)) {
        return false;
    }
    for (const char* name : {"ProcessName", "ProcessMoudleId"}) {
        const std::string* value = ParamOf(item, name);
        if (value != nullptr && !AddParam(report, name, *value, error)) {
            return false;
        }
    }
    const std::string* userData = ParamOf(item, "ErrRptUserData");
    if (userData == nullptr) {
        return AddParam(report, "UserData", std::to_string(rec.result.hangflowid), error);
    }
    return *userData == "none" || AddParam(report, "UserData", *userData, error);
}

class HeartbeatReportHook : public PostCallHook {
public:
    void AfterCall(RunnerEnv& env, const CallRecord& rec) override {
        const ConfiguredItem& item = rec.state->config;
        const std::string* enabled = ParamOf(item, "ErrRpt");
        if (item.item != "ProcessHeartBeat" || rec.result.result != 0 || rec.value != 0.0f ||
            (enabled != nullptr && *enabled == "off")) {
            return;
        }
        Config config;
        config.items.emplace_back();
        std::string error;
        std::vector<ItemState> states;
        if (!BuildReport(rec, &config.items.back(), &error) || !PrepareItems(config, env.library, &states, &error)) {
            fprintf(env.err, "zadi_runner: no error report: %s\n", error.c_str());
            return;
        }
        const CallRecord sent = CallItem(env.library, states[0], rec.round);
        Say(env, "    error report %s hangFlowId=%u: %s\n", kHeartbeatCode, rec.result.hangflowid,
            sent.result.result == 0 ? "sent" : sent.result.reason);
        fflush(env.out);
    }
};

}  // namespace

ZADI_RUNNER_POST_CALL_HOOK(heartbeat_report, HeartbeatReportHook);

}  // namespace zr
