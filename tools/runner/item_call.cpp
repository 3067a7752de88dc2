// Building the agent's argument array for a configured item, calling it with
// the item's persistent context, and telling what its answer means.

#include "tools/runner/item_call.h"

#include <string.h>
#include <time.h>

#include <algorithm>

#include "tools/runner/runner_env.h"

namespace zadi_runner {

namespace {

void CopyBounded(char* dest, size_t size, const std::string& text) {
    const size_t n = std::min(text.size(), size - 1);
    memcpy(dest, text.data(), n);
    dest[n] = '\0';
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

}  // namespace

double MonotonicMs() {
    struct timespec ts;
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return static_cast<double>(ts.tv_sec) * 1e3 + static_cast<double>(ts.tv_nsec) / 1e6;
}

std::vector<FI_PARAM_S> ItemArguments(const std::vector<Param>& params) {
    std::vector<FI_PARAM_S> argv(params.size(), FI_PARAM_S{});
    for (size_t i = 0; i < params.size(); ++i) {
        CopyBounded(argv[i].name, sizeof(argv[i].name), params[i].name);
        CopyBounded(argv[i].value, sizeof(argv[i].value), params[i].value);
    }
    return argv;
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

const char* StateName(CallState state) {
    static const char* const kNames[] = {"ok", "priming", "no_match", "failed"};
    return kNames[static_cast<int>(state)];
}

}  // namespace zadi_runner
