// "items": every item the runner knows, with its unit, the parameters it
// reads and what its figure means.

#include "tools/runner/runner.h"

namespace zr {

namespace {

const char* MatchName(Match match) {
    switch (match) {
        case Match::kExact:
            return "exact";
        case Match::kPrefix:
            return "prefix";
        case Match::kWildcard:
            return "wildcard";
        case Match::kNone:
            break;
    }
    return "";
}

int ListItems(RunnerEnv& env, const std::vector<std::string>& args) {
    if (!args.empty()) {
        fprintf(env.err, "zadi_runner: items takes no arguments\n");
        return kExitUsage;
    }
    for (const ItemInfo& info : KnownItems()) {
        if (env.options.json) {
            JsonLine(env.out)
                .Str("item", info.name)
                .Str("unit", info.unit)
                .Str("params", info.params)
                .Str("match", MatchName(info.match))
                .Bool("reports_pid", info.reports_pid)
                .Bool("primes", info.primes)
                .Str("meaning", info.meaning);
        } else {
            fprintf(env.out, "%-36s %-6s %s\n%38s%s%s\n", info.name, info.unit,
                    *info.params != '\0' ? info.params : "(no parameters)", "", info.meaning,
                    info.primes ? "; the first call only primes" : "");
        }
    }
    if (!env.options.json) {
        fprintf(env.out, "\nunits:\n%s", UnitLegend());
    }
    return kExitOk;
}

}  // namespace

ZADI_RUNNER_SUBCOMMAND(items, "items", "every item with its unit, parameters and meaning", ListItems,
                       kOptJson | kOptLog);

}  // namespace zr
