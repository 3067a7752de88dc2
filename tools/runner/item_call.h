#ifndef TOOLS_RUNNER_ITEM_CALL_H
#define TOOLS_RUNNER_ITEM_CALL_H

// One call of one item with the context it keeps across calls, what the
// answer means (a figure, a priming call, no such process, or a failure),
// and the agent's error report that a hang calls for.

#include <vector>

#include "plugin/linux/fi_types.h"
#include "tools/runner/config.h"
#include "tools/runner/item_catalog.h"
#include "tools/runner/plugin_library.h"

namespace zadi_runner {

enum class CallState { kOk, kPriming, kNoMatch, kFailed };
struct ItemState {
    ConfiguredItem config;
    const ItemInfo* info = nullptr;
    FI_ITEM_FN fn = nullptr;
    std::vector<FI_PARAM_S> argv;
    FI_CONTEXT_S context;  // zeroed once, kept across calls like the agent
    bool primed = false;   // a call since the last miss has stored a sample
    CallState last = CallState::kOk;
    long next_due_ms = 0;
};
struct CallRecord {
    unsigned long round;
    const ItemState* state;
    float value;
    FI_RESULT_S result;
    double elapsed_ms;
    CallState outcome;
};

// Resolves every configured item and builds its argument array. False with
// a message when an item is missing from the library.
bool PrepareItems(const Config& config, const PluginLibrary& lib, std::vector<ItemState>* states, std::string* error);
// Calls the item and tells a real zero from a miss: a process item that
// answers 0 is checked with the library's own pid lookup of the same flavour.
CallRecord CallItem(const PluginLibrary& lib, ItemState& state, unsigned long round);
// The exit status the items' last calls call for.
int StatusOfItems(const std::vector<ItemState>& states);
double MonotonicMs();

struct RunnerEnv;
// The agent's error report after a ProcessHeartBeat call that answered 0.0
// (run, serve and call alike); nothing after any other call.
void RaiseHeartbeatReport(const RunnerEnv& env, const CallRecord& rec);

}  // namespace zadi_runner

#endif
