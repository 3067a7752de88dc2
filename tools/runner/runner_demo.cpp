// "demo": the heartbeat check and its error report end to end. A worker
// process beats a few times into /tmp/heartbeat and then hangs (keeps
// running, stops rewriting its file); ProcessHeartBeat is called every
// second, and once it answers 0.0 the report hook raises the report through
// the agent's report service (the stand-in prints it). Finally the worker is
// stopped and ClearHeartBeatFile removes its file. The worker and its file
// go on every way out: the end, SIGTERM, SIGINT and a closed output pipe
// (and the worker dies with the runner even on SIGKILL).

#include <errno.h>
#include <signal.h>
#include <stdio.h>
#include <string.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "tools/runner/runner.h"

namespace zr {

namespace {

const char kDir[] = "/tmp/heartbeat";
const char kWorkerName[] = "zadi_demo";
const char kModuleId[] = "9";
constexpr int kBeats = 3;
constexpr int kRounds = 6;

volatile sig_atomic_t g_stop = 0;

void OnStop(int) { g_stop = 1; }

// A signal cuts the sleep short, so the demo stops promptly.
void SleepMs(long ms) {
    struct timespec ts = {ms / 1000, (ms % 1000) * 1000000};
    while (g_stop == 0 && nanosleep(&ts, &ts) != 0 && errno == EINTR) {
    }
}

std::string HeartbeatPath(pid_t pid) {
    return std::string(kDir) + "/" + kWorkerName + "___" + kModuleId + "___" + std::to_string(pid);
}

// Written aside and renamed into place, as a careful process would.
void Beat(const std::string& path, int beat) {
    const std::string tmp = std::string(kDir) + "/.zadi_demo.tmp";
    FILE* f = fopen(tmp.c_str(), "w");
    if (f == nullptr) {
        return;
    }
    fprintf(f, "beat %d\n%d\n", beat, 1000 + beat);
    fclose(f);
    rename(tmp.c_str(), path.c_str());
}

[[noreturn]] void Worker() {
    prctl(PR_SET_NAME, kWorkerName);
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    for (int sig : {SIGTERM, SIGINT, SIGPIPE}) {
        signal(sig, SIG_DFL);
    }
    const std::string path = HeartbeatPath(getpid());
    for (int beat = 1; beat <= kBeats; ++beat) {
        Beat(path, beat);
        SleepMs(1000);
    }
    for (;;) {
        pause();  // hung: alive, but no more beats
    }
}

void StopWorker(RunnerEnv& env, pid_t worker) {
    kill(worker, SIGKILL);
    waitpid(worker, nullptr, 0);
    unlink(HeartbeatPath(worker).c_str());
    FI_ITEM_FN clear = env.library.Item("ClearHeartBeatFile");
    if (clear != nullptr) {
        FI_CONTEXT_S context = {};
        FI_RESULT_S result = {};
        clear(0, nullptr, &context, &result);
    }
}

int Demo(RunnerEnv& env, const std::vector<std::string>& args) {
    if (!args.empty()) {
        fprintf(env.err, "zadi_runner: demo takes no arguments\n");
        return kExitUsage;
    }
    if (!LoadLibrary(env)) {
        return kExitSetup;
    }
    if (mkdir(kDir, 0755) != 0 && errno != EEXIST) {
        fprintf(env.err, "zadi_runner: cannot create %s: %s\n", kDir, strerror(errno));
        return kExitSetup;
    }
    Config config;
    config.items.emplace_back();
    ConfiguredItem& item = config.items.back();
    item.item = "ProcessHeartBeat";
    item.period_s = 1;
    std::string error;
    std::vector<ItemState> states;
    if (!AddParam(&item, "ProcessName", kWorkerName, &error) ||
        !AddParam(&item, "ProcessMoudleId", kModuleId, &error) || !PrepareItems(config, env.library, &states, &error)) {
        fprintf(env.err, "zadi_runner: %s\n", error.c_str());
        return kExitSetup;
    }

    CatchSignals(OnStop, {SIGTERM, SIGINT, SIGPIPE});
    fflush(nullptr);
    const pid_t worker = fork();
    if (worker < 0) {
        fprintf(env.err, "zadi_runner: fork failed: %s\n", strerror(errno));
        return kExitSetup;
    }
    if (worker == 0) {
        Worker();
    }
    Say(env, "worker %s (pid %d) beats %d times, then hangs\n", kWorkerName, static_cast<int>(worker), kBeats);
    if (!env.options.json) {
        PrintTableHeader(env.out);
    }
    SleepMs(500);
    for (int round = 1; round <= kRounds && g_stop == 0; ++round) {
        const CallRecord rec = CallItem(env.library, states[0], static_cast<unsigned long>(round));
        PrintCall(env, rec);
        RunPostCallHooks(env, rec);
        if (ferror(env.out)) {
            g_stop = 1;  // nobody reads any more
        }
        SleepMs(1000);
    }
    StopWorker(env, worker);
    if (g_stop != 0) {
        fprintf(env.err, "zadi_runner: demo stopped early; worker (pid %d) and its heartbeat file removed\n",
                static_cast<int>(worker));
        return kExitSetup;
    }
    Say(env, "worker stopped; its heartbeat file removed\n");
    return kExitOk;
}

}  // namespace

ZADI_RUNNER_SUBCOMMAND(demo, "demo", "a worker that stops beating: detection and error report end to end", Demo);

}  // namespace zr
