// "call ITEM Name=Value ...": one call of one item with a fresh context.

#include "tools/runner/runner.h"

namespace zr {

namespace {

int CallOnce(RunnerEnv& env, const std::vector<std::string>& args) {
    if (args.empty()) {
        fprintf(env.err, "zadi_runner: usage: zadi_runner call ITEM [Name=Value ...]\n");
        return 2;
    }
    ConfiguredItem item;
    item.item = args[0];
    if (FindItemInfo(item.item) == nullptr) {
        fprintf(env.err, "zadi_runner: unknown item \"%s\"\n", item.item.c_str());
        return 1;
    }
    for (size_t i = 1; i < args.size(); ++i) {
        const size_t eq = args[i].find('=');
        std::string error;
        if (eq == std::string::npos || eq == 0) {
            fprintf(env.err, "zadi_runner: parameter \"%s\" is not Name=Value\n", args[i].c_str());
            return 2;
        }
        if (!AddParam(&item, args[i].substr(0, eq), args[i].substr(eq + 1), &error)) {
            fprintf(env.err, "zadi_runner: %s\n", error.c_str());
            return 2;
        }
    }
    if (!LoadLibrary(env)) {
        return 1;
    }
    Config config;
    config.items.push_back(item);
    std::vector<ItemState> states;
    std::string error;
    if (!PrepareItems(config, env.library, &states, &error)) {
        fprintf(env.err, "zadi_runner: %s\n", error.c_str());
        return 1;
    }
    const CallRecord rec = CallItem(states[0], 1);
    if (env.options.json) {
        PrintJson(env.out, rec);
    } else {
        PrintTableHeader(env.out);
        PrintTableRow(env.out, rec);
    }
    fflush(env.out);
    RunPostCallHooks(env, rec);
    return rec.result.result == 0 ? 0 : 3;
}

}  // namespace

ZADI_RUNNER_SUBCOMMAND(call, "call", "call one item once: call ITEM [Name=Value ...]", CallOnce);

}  // namespace zr
