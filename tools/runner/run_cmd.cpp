// The rounds: every configured item called on its period and each round
// printed ("run", the default) or kept for Prometheus (--textfile, and
// "serve", which answers /metrics from cpp-httplib's server on the given
// address only, loopback by default). SIGTERM and SIGINT end them after the
// call in progress with a one-line summary; SIGHUP reads the configuration
// again. In order: the signals and the clock, one round, what follows a
// round, reading the configuration, the loop, the two subcommands.

#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <time.h>

#include <algorithm>
#include <thread>

#include "tools/runner/metrics.h"
#include "tools/runner/report.h"
#include "tools/runner/runner_env.h"

#ifdef ZADI_RUNNER_HTTP
#include <httplib.h>
#endif

namespace zadi_runner {

namespace {

volatile sig_atomic_t g_stop_signal = 0;
volatile sig_atomic_t g_reload = 0;

void OnSignal(int sig) { (sig == SIGHUP ? g_reload : g_stop_signal) = sig; }

// Without SA_RESTART, so that a signal cuts the wait for the next round short.
void CatchSignals() {
    struct sigaction sa;
    memset(&sa, 0, sizeof(sa));
    sa.sa_handler = OnSignal;
    sigemptyset(&sa.sa_mask);
    for (int sig : {SIGTERM, SIGINT, SIGHUP}) {
        sigaction(sig, &sa, nullptr);
    }
}

long NowMs() { return static_cast<long>(MonotonicMs()); }

void SleepUntil(long due_ms) {
    const long wait = due_ms - NowMs();
    if (wait > 0) {
        struct timespec ts = {wait / 1000, (wait % 1000) * 1000000};
        nanosleep(&ts, nullptr);
    }
}

struct Totals {
    unsigned long rounds = 0, calls = 0, failed = 0, no_match = 0;
};

void RunRound(RunnerEnv& env, std::vector<ItemState>& states, unsigned long round, bool print, Totals* totals) {
    if (print && !env.options.json) {
        PrintRoundHeader(round);
        PrintTableHeader();
    }
    const long now = NowMs();
    for (ItemState& state : states) {
        if (state.next_due_ms > now || g_stop_signal != 0) {
            continue;
        }
        // Due times stay on the round's grid, so items of the same period
        // keep being called in the same round however long calls take.
        state.next_due_ms = now + static_cast<long>(state.config.period_s) * 1000;
        const CallRecord rec = CallItem(env.library, state, round);
        ++totals->calls;
        totals->failed += rec.outcome == CallState::kFailed;
        totals->no_match += rec.outcome == CallState::kNoMatch;
        if (env.metrics != nullptr) {
            env.metrics->Record(rec);
        }
        if (print) {
            PrintCall(env, rec);
        }
        RaiseHeartbeatReport(env, rec);
    }
    totals->rounds = round;
}

constexpr long kCensusEveryMs = 60000;

// The census once a minute and the textfile after every round.
void PublishRound(RunnerEnv& env, long* census_due_ms) {
    if (env.metrics == nullptr) {
        return;
    }
    std::vector<std::pair<int, int>> top;
    if (NowMs() >= *census_due_ms && TakeRssCensus(env.library, Metrics::kCensusTop, &top)) {
        env.metrics->SetCensus(top);
        *census_due_ms = NowMs() + kCensusEveryMs;
    }
    std::string error;
    if (!env.options.textfile.empty() && !WriteTextfile(env.options.textfile, env.metrics->Exposition(), &error)) {
        fprintf(stderr, "zadi_runner: %s\n", error.c_str());
    }
}

// The configuration comes before the library, so that a bad file is
// reported as such whatever the library does.
bool ReadAndPrepare(RunnerEnv& env, bool load, std::vector<ItemState>* states) {
    Config config;
    std::string error;
    if (env.options.config.empty()) {
        config = DefaultConfig();
    } else if (!LoadConfigFile(env.options.config, &config, &error)) {
        return Complain(false, "%s", error.c_str());
    }
    if (load && !env.library.Load(env.options.lib)) {
        return false;
    }
    if (!PrepareItems(config, env.library, states, &error)) {
        return Complain(false, "%s", error.c_str());
    }
    return true;
}

// Keeps the running items when the new configuration is bad.
void Reload(RunnerEnv& env, std::vector<ItemState>* states) {
    g_reload = 0;
    std::vector<ItemState> fresh;
    if (!ReadAndPrepare(env, false, &fresh)) {
        fprintf(stderr, "zadi_runner: keeping the previous configuration\n");
        return;
    }
    states->swap(fresh);
    if (env.metrics != nullptr) {
        env.metrics->Clear();
    }
    fprintf(stderr, "zadi_runner: configuration read again: %zu items\n", states->size());
}

// `print` shows each call. Returns the exit status.
int RunItems(RunnerEnv& env, bool print) {
    std::vector<ItemState> states;
    if (!ReadAndPrepare(env, true, &states)) {
        return kExitSetup;
    }
    struct stat st;
    if (!env.options.textfile.empty() && (stat(env.options.textfile.c_str(), &st) != 0 || !S_ISDIR(st.st_mode))) {
        return Complain(kExitSetup, "--textfile needs a directory: %s", env.options.textfile.c_str());
    }
    Metrics metrics;
    if (env.metrics == nullptr && !env.options.textfile.empty()) {
        env.metrics = &metrics;
    }
    CatchSignals();
    Totals totals;
    long census_due_ms = 0;
    const unsigned long rounds = env.options.once ? 1 : static_cast<unsigned long>(env.options.rounds);
    for (unsigned long round = 1; (rounds == 0 || round <= rounds) && g_stop_signal == 0; ++round) {
        if (round > 1) {
            auto next = std::min_element(states.begin(), states.end(), [](const ItemState& a, const ItemState& b) {
                return a.next_due_ms < b.next_due_ms;
            });
            SleepUntil(next->next_due_ms);
        }
        if (g_reload != 0) {
            Reload(env, &states);
        }
        if (g_stop_signal == 0) {
            RunRound(env, states, round, print, &totals);
            PublishRound(env, &census_due_ms);
        }
    }
    if (env.metrics == &metrics) {
        env.metrics = nullptr;
    }
    if (g_stop_signal != 0) {
        fprintf(stderr, "zadi_runner: stopped by SIG%s after %lu rounds: %lu calls, %lu failed, %lu no match\n",
                sigabbrev_np(g_stop_signal), totals.rounds, totals.calls, totals.failed, totals.no_match);
    }
    return env.options.exit_zero ? kExitOk : StatusOfItems(states);
}

constexpr char kDefaultListen[] = "127.0.0.1:9731";

// "ADDR:PORT" (the port 0 takes any free one).
bool ParseListen(const std::string& text, std::string* host, int* port) {
    const size_t colon = text.rfind(':');
    if (colon == std::string::npos || colon == 0 || colon + 1 == text.size() ||
        text.find_first_not_of("0123456789", colon + 1) != std::string::npos) {
        return false;
    }
    *host = text.substr(0, colon);
    *port = atoi(text.c_str() + colon + 1);
    return *port <= 65535;
}

}  // namespace

int RunCommand(RunnerEnv& env, const Args& args) {
    if (!args.empty()) {
        return Complain(kExitUsage, "run takes no arguments (got \"%s\")", args[0].c_str());
    }
    return RunItems(env, true);
}

int ServeCommand(RunnerEnv& env, const Args& args) {
    const std::string listen = env.options.listen.empty() ? kDefaultListen : env.options.listen;
    if (!args.empty()) {
        return Complain(kExitUsage, "usage: zadi_runner serve [--listen ADDR:PORT] (default %s)", kDefaultListen);
    }
    std::string host;
    int port = 0;
    if (!ParseListen(listen, &host, &port)) {
        return Complain(kExitUsage, "--listen needs ADDR:PORT, not \"%s\"", listen.c_str());
    }
#ifdef ZADI_RUNNER_HTTP
    Metrics metrics;
    httplib::Server server;
    server.Get("/metrics", [&metrics](const httplib::Request&, httplib::Response& res) {
        res.set_content(metrics.Exposition(), "text/plain; version=0.0.4; charset=utf-8");
    });
    const int bound =
        port == 0 ? server.bind_to_any_port(host.c_str()) : (server.bind_to_port(host.c_str(), port) ? port : -1);
    if (bound < 0) {
        return Complain(kExitSetup, "cannot listen on %s", listen.c_str());
    }
    fprintf(stderr, "zadi_runner: serving http://%s:%d/metrics\n", host.c_str(), bound);
    std::thread http([&server] { server.listen_after_bind(); });
    env.metrics = &metrics;
    const int status = RunItems(env, false);
    env.metrics = nullptr;
    server.stop();
    http.join();
    return status == kExitUsage || status == kExitSetup ? status : kExitOk;
#else
    return Complain(kExitSetup, "this build has no HTTP server (cpp-httplib was not found)");
#endif
}

}  // namespace zadi_runner
