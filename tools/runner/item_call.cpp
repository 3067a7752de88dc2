// Building the agent's argument array for a configured item, calling it with
// the item's persistent context, and telling what its answer means. Then the
// heartbeat error report, raised the way the agent does: after a
// ProcessHeartBeat call that answered 0.0, SendErrRpt with code 0xF000020F,
// the item's process name and module id, and the hang flow id as "UserData".
// Per item, in the configuration line: ErrRpt=off stops the reports;
// ErrRptUserData=none leaves UserData out, any other text replaces the hang
// flow id. (The item receives these fields too and ignores them.)

#include "tools/runner/item_call.h"

#include <stdio.h>
#include <string.h>
#include <time.h>

#include "tools/runner/runner_env.h"

namespace zadi_runner {

namespace {

const char kHeartbeatCode[] = "0xF000020F";

// The values were checked against FI_PARAM_S when the item was configured.
std::vector<FI_PARAM_S> ItemArguments(const std::vector<Param>& params) {
    std::vector<FI_PARAM_S> argv(params.size(), FI_PARAM_S{});
    for (size_t i = 0; i < params.size(); ++i) {
        snprintf(argv[i].name, sizeof(argv[i].name), "%s", params[i].name.c_str());
        snprintf(argv[i].value, sizeof(argv[i].value), "%s", params[i].value.c_str());
    }
    return argv;
}

using PidFn = int (*)(const char*, int*);
using PidListFn = int (*)(const char*, int*, unsigned int, unsigned int*);

// The library's own lookup of the item's flavour: whether any process
// answers to the name the item was given. Lookup failures count as a match,
// so that only a clear miss is reported as one.
bool AnyProcessMatches(const PluginLibrary& lib, Match match, const char* name) {
    int pid = 0;
    if (match == Match::kExact) {
        const PidFn fn = reinterpret_cast<PidFn>(lib.Symbol("GetProcessPid"));
        return fn == nullptr || fn(name, &pid) != 0 || pid != 0;
    }
    const PidListFn fn =
        reinterpret_cast<PidListFn>(lib.Symbol(match == Match::kPrefix ? "GetProcessPidExtern" : "GetProcessPidFuzzy"));
    unsigned int used = 0;
    return fn == nullptr || fn(name, &pid, 1, &used) != 0 || used != 0;
}

CallState Classify(const PluginLibrary& lib, ItemState& state, const CallRecord& rec) {
    if (rec.result.result != 0) {
        return CallState::kFailed;
    }
    // A process item answers 0 both for an idle or small process and for
    // none at all; only a zero needs the second look.
    if (state.info->match != Match::kNone && rec.value == 0.0f && !state.argv.empty() &&
        !AnyProcessMatches(lib, state.info->match, state.argv[0].value)) {
        state.primed = false;  // the item starts its samples afresh once the process is back
        return CallState::kNoMatch;
    }
    if (state.info->primes && !state.primed) {
        state.primed = true;
        return CallState::kPriming;
    }
    return CallState::kOk;
}

const std::string* ParamOf(const ConfiguredItem& item, const char* name) {
    for (const Param& p : item.params) {
        if (p.name == name) {
            return &p.value;
        }
    }
    return nullptr;
}

std::vector<FI_PARAM_S> ReportParams(const CallRecord& rec) {
    const ConfiguredItem& item = rec.state->config;
    std::vector<Param> params = {{"ErrCode", kHeartbeatCode}};
    for (const char* name : {"ProcessName", "ProcessMoudleId"}) {
        if (const std::string* value = ParamOf(item, name)) {
            params.push_back({name, *value});
        }
    }
    const std::string* user_data = ParamOf(item, "ErrRptUserData");
    if (user_data == nullptr) {
        params.push_back({"UserData", std::to_string(rec.result.hangflowid)});
    } else if (*user_data != "none") {
        params.push_back({"UserData", *user_data});
    }
    return ItemArguments(params);
}

}  // namespace

double MonotonicMs() {
    struct timespec ts;
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return static_cast<double>(ts.tv_sec) * 1e3 + static_cast<double>(ts.tv_nsec) / 1e6;
}

bool PrepareItems(const Config& config, const PluginLibrary& lib, std::vector<ItemState>* states, std::string* error) {
    states->clear();
    states->reserve(config.items.size());
    for (const ConfiguredItem& item : config.items) {
        ItemState state;
        state.config = item;
        state.info = FindItemInfo(item.item);
        state.fn = lib.Item(item.item);
        if (state.fn == nullptr || state.info == nullptr) {
            *error = (item.line > 0 ? "line " + std::to_string(item.line) + ": " : std::string()) + "item \"" +
                     item.item + "\" is not exported by " + lib.path();
            return false;
        }
        state.argv = ItemArguments(item.params);
        memset(&state.context, 0, sizeof(state.context));
        states->push_back(std::move(state));
    }
    return true;
}

CallRecord CallItem(const PluginLibrary& lib, ItemState& state, unsigned long round) {
    CallRecord rec;
    rec.round = round;
    rec.state = &state;
    memset(&rec.result, 0, sizeof(rec.result));
    const double start = MonotonicMs();
    rec.value = state.fn(static_cast<int>(state.argv.size()), state.argv.empty() ? nullptr : state.argv.data(),
                         &state.context, &rec.result);
    rec.elapsed_ms = MonotonicMs() - start;
    rec.outcome = Classify(lib, state, rec);
    state.last = rec.outcome;
    return rec;
}

int StatusOfItems(const std::vector<ItemState>& states) {
    int status = kExitOk;
    for (const ItemState& s : states) {
        if (s.last == CallState::kFailed) {
            return kExitItemFailed;
        }
        if (s.last == CallState::kNoMatch) {
            status = kExitNoMatch;
        }
    }
    return status;
}

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
    // Beside a table, or on standard error so that standard output stays one
    // JSON record a line.
    fprintf(env.options.json ? stderr : stdout, "    error report %s hangFlowId=%u: %s\n", kHeartbeatCode,
            rec.result.hangflowid, result.result == 0 ? "sent" : result.reason);
    fflush(stdout);
}

}  // namespace zadi_runner
