// Raises the heartbeat error report the way the agent does: after a
// ProcessHeartBeat call that answered 0.0, SendErrRpt is called with code
// 0xF000020F, the item's process name and module id, and the hang flow id
// as "UserData".
//
// Per item, in the configuration line: ErrRpt=off stops the reports;
// ErrRptUserData=none leaves UserData out, any other text replaces the hang
// flow id. (The item receives these fields too and ignores them.)

#include "tools/runner/heartbeat_report.h"

#include <stdio.h>

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
    const std::string* user_data = ParamOf(item, "ErrRptUserData");
    if (user_data == nullptr) {
        return AddParam(report, "UserData", std::to_string(rec.result.hangflowid), error);
    }
    return *user_data == "none" || AddParam(report, "UserData", *user_data, error);
}

}  // namespace

void RaiseHeartbeatReport(const RunnerEnv& env, const CallRecord& rec) {
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
        fprintf(stderr, "zadi_runner: no error report: %s\n", error.c_str());
        return;
    }
    const CallRecord sent = CallItem(env.library, states[0], rec.round);
    Say(env, "    error report %s hangFlowId=%u: %s\n", kHeartbeatCode, rec.result.hangflowid,
        sent.result.result == 0 ? "sent" : sent.result.reason);
    fflush(stdout);
}

}  // namespace zadi_runner
