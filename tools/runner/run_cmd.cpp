// The default subcommand: call every configured item on its period and
// print each round.

#include <time.h>

#include "tools/runner/runner.h"

namespace zr {

namespace {

long NowMs() {
    struct timespec ts;
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return static_cast<long>(ts.tv_sec) * 1000 + ts.tv_nsec / 1000000;
}

void SleepUntil(long due_ms) {
    const long wait = due_ms - NowMs();
    if (wait > 0) {
        struct timespec ts = {wait / 1000, (wait % 1000) * 1000000};
        nanosleep(&ts, nullptr);
    }
}

void RunRound(RunnerEnv& env, std::vector<ItemState>& states, unsigned long round) {
    if (!env.options.json) {
        PrintRoundHeader(env.out, round);
        PrintTableHeader(env.out);
    }
    const long now = NowMs();
    for (ItemState& state : states) {
        if (state.next_due_ms > now) {
            continue;
        }
        // Due times stay on the round's grid, so items of the same period
        // keep being called in the same round however long calls take.
        state.next_due_ms = now + static_cast<long>(state.config.period_s) * 1000;
        const CallRecord rec = CallItem(state, round);
        if (env.options.json) {
            PrintJson(env.out, rec);
        } else {
            PrintTableRow(env.out, rec);
        }
        fflush(env.out);
        RunPostCallHooks(env, rec);
    }
}

long NextDue(const std::vector<ItemState>& states) {
    long next = states.front().next_due_ms;
    for (const ItemState& s : states) {
        next = s.next_due_ms < next ? s.next_due_ms : next;
    }
    return next;
}

}  // namespace

int RunConfigured(RunnerEnv& env, const std::vector<std::string>& args) {
    if (!args.empty()) {
        fprintf(env.err, "zadi_runner: run takes no arguments (got \"%s\")\n", args[0].c_str());
        return 2;
    }
    Config config;
    std::string error;
    if (env.options.config.empty()) {
        config = DefaultConfig();
    } else if (!LoadConfigFile(env.options.config, &config, &error)) {
        fprintf(env.err, "zadi_runner: %s\n", error.c_str());
        return 1;
    }
    if (!LoadLibrary(env)) {
        return 1;
    }
    std::vector<ItemState> states;
    if (!PrepareItems(config, env.library, &states, &error)) {
        fprintf(env.err, "zadi_runner: %s\n", error.c_str());
        return 1;
    }
    const unsigned long rounds = env.options.once ? 1 : static_cast<unsigned long>(env.options.rounds);
    for (unsigned long round = 1; rounds == 0 || round <= rounds; ++round) {
        if (round > 1) {
            SleepUntil(NextDue(states));
        }
        RunRound(env, states, round);
    }
    return 0;
}

ZADI_RUNNER_SUBCOMMAND(run, "run", "call the configured items on their periods (the default)", RunConfigured);

}  // namespace zr
