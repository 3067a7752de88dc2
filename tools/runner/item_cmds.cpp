// The subcommands about single items: "items", every item the runner knows
// with its unit, the parameters it reads and what its figure means; and
// "call ITEM Name=Value ...", one call of one item with a fresh context. An
// item that measures since its previous call is called twice, a second
// apart, and the second answer is shown: a first call only primes.

#include <stdio.h>
#include <time.h>

#include "tools/runner/report.h"
#include "tools/runner/runner_env.h"

namespace zadi_runner {

namespace {

constexpr long kPrimingIntervalMs = 1000;

const char* MatchName(Match match) {
    static const char* const kNames[] = {"", "exact", "prefix", "wildcard"};
    return kNames[static_cast<int>(match)];
}

}  // namespace

int ItemsCommand(RunnerEnv& env, const Args& args) {
    if (!args.empty()) {
        fprintf(stderr, "zadi_runner: items takes no arguments\n");
        return kExitUsage;
    }
    for (const ItemInfo& info : KnownItems()) {
        if (env.options.json) {
            JsonLine()
                .Str("item", info.name)
                .Str("unit", info.unit)
                .Str("params", info.params)
                .Str("match", MatchName(info.match))
                .Bool("reports_pid", info.reports_pid)
                .Bool("primes", info.primes)
                .Str("meaning", info.meaning);
        } else {
            printf("%-36s %-6s %s\n%38s%s%s\n", info.name, info.unit,
                   info.params.empty() ? "(no parameters)" : info.params.c_str(), "", info.meaning,
                   info.primes ? "; the first call only primes" : "");
        }
    }
    if (!env.options.json) {
        printf("\nunits:\n%s", UnitLegend());
    }
    return kExitOk;
}

int CallCommand(RunnerEnv& env, const Args& args) {
    if (args.empty()) {
        fprintf(stderr, "zadi_runner: usage: zadi_runner call ITEM [Name=Value ...]\n");
        return kExitUsage;
    }
    Config config;
    config.items.emplace_back();
    ConfiguredItem& item = config.items.back();
    item.item = args[0];
    if (FindItemInfo(item.item) == nullptr) {
        fprintf(stderr, "zadi_runner: unknown item \"%s\" (see zadi_runner items)\n", item.item.c_str());
        return kExitUsage;
    }
    std::string error;
    for (size_t i = 1; i < args.size(); ++i) {
        const size_t eq = args[i].find('=');
        if (eq == std::string::npos || eq == 0) {
            fprintf(stderr, "zadi_runner: parameter \"%s\" is not Name=Value\n", args[i].c_str());
            return kExitUsage;
        }
        if (!AddParam(&item, args[i].substr(0, eq), args[i].substr(eq + 1), &error)) {
            fprintf(stderr, "zadi_runner: %s\n", error.c_str());
            return kExitUsage;
        }
    }
    std::vector<ItemState> states;
    if (!env.library.Load(env.options.lib)) {
        return kExitSetup;
    }
    if (!PrepareItems(config, env.library, &states, &error)) {
        fprintf(stderr, "zadi_runner: %s\n", error.c_str());
        return kExitSetup;
    }
    CallRecord rec = CallItem(env.library, states[0], 1);
    if (rec.outcome == CallState::kPriming) {
        const struct timespec pause = {kPrimingIntervalMs / 1000, (kPrimingIntervalMs % 1000) * 1000000};
        nanosleep(&pause, nullptr);
        rec = CallItem(env.library, states[0], 1);
    }
    if (!env.options.json) {
        PrintTableHeader();
    }
    PrintCall(env, rec);
    RaiseHeartbeatReport(env, rec);
    return StatusOfItems(states);
}

}  // namespace zadi_runner
