// "call ITEM Name=Value ...": one call of one item with a fresh context. An
// item that measures since its previous call is called twice, a second
// apart, and the second answer is shown: a first call only primes.

#include <time.h>

#include "tools/runner/runner.h"

namespace zr {

namespace {

constexpr long kPrimingIntervalMs = 1000;

int CallOnce(RunnerEnv& env, const std::vector<std::string>& args) {
    if (args.empty()) {
        fprintf(env.err, "zadi_runner: usage: zadi_runner call ITEM [Name=Value ...]\n");
        return kExitUsage;
    }
    Config config;
    config.items.emplace_back();
    ConfiguredItem& item = config.items.back();
    item.item = args[0];
    if (FindItemInfo(item.item) == nullptr) {
        fprintf(env.err, "zadi_runner: unknown item \"%s\" (see zadi_runner items)\n", item.item.c_str());
        return kExitUsage;
    }
    for (size_t i = 1; i < args.size(); ++i) {
        const size_t eq = args[i].find('=');
        std::string error;
        if (eq == std::string::npos || eq == 0) {
            fprintf(env.err, "zadi_runner: parameter \"%s\" is not Name=Value\n", args[i].c_str());
            return kExitUsage;
        }
        if (!AddParam(&item, args[i].substr(0, eq), args[i].substr(eq + 1), &error)) {
            fprintf(env.err, "zadi_runner: %s\n", error.c_str());
            return kExitUsage;
        }
    }
    if (!LoadLibrary(env)) {
        return kExitSetup;
    }
    std::vector<ItemState> states;
    std::string error;
    if (!PrepareItems(config, env.library, &states, &error)) {
        fprintf(env.err, "zadi_runner: %s\n", error.c_str());
        return kExitSetup;
    }
    CallRecord rec = CallItem(env.library, states[0], 1);
    if (rec.outcome == CallState::kPriming) {
        const struct timespec pause = {kPrimingIntervalMs / 1000, (kPrimingIntervalMs % 1000) * 1000000};
        nanosleep(&pause, nullptr);
        rec = CallItem(env.library, states[0], 1);
    }
    if (!env.options.json) {
        PrintTableHeader(env.out);
    }
    PrintCall(env, rec);
    RunPostCallHooks(env, rec);
    return StatusOfItems(states);
}

}  // namespace

ZADI_RUNNER_SUBCOMMAND(call, "call", "call one item: call ITEM [Name=Value ...] (CPU items: two samples 1 s apart)",
                       CallOnce);

}  // namespace zr
