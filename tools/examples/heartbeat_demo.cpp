// heartbeat_demo: the heartbeat check and its error report end to end, as a
// program linked against the plug-in would do it. A worker process beats a
// few times into /tmp/heartbeat and then hangs (keeps running, stops
// rewriting its file); ProcessHeartBeat is called every second, and once it
// answers 0.0 the heartbeat report goes out through SendErrRpt (the agent's
// stand-in prints it). The plug-in's own log lines are copied to standard
// error. The worker and its file go on every way out: the end, SIGTERM,
// SIGINT and a closed output pipe (and the worker dies with the demo even on
// SIGKILL). In order: the worker, one check and its report, main.

#include <errno.h>
#include <signal.h>
#include <stdio.h>
#include <string.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <syslog.h>
#include <time.h>
#include <unistd.h>

#include <string>

#include "plugin/linux/zadi_items.h"

namespace {

const char kDir[] = "/tmp/heartbeat";
const char kWorkerName[] = "zadi_demo";
const char kModuleId[] = "9";
const char kHeartbeatCode[] = "0xF000020F";
constexpr int kBeats = 3;
constexpr int kChecks = 6;

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

FI_PARAM_S Param(const char* name, const std::string& value) {
    FI_PARAM_S param = {};
    snprintf(param.name, sizeof(param.name), "%s", name);
    snprintf(param.value, sizeof(param.value), "%s", value.c_str());
    return param;
}

// What the agent does after a hang: the report names the process and module
// and carries the hang flow id as its user data.
void RaiseReport(unsigned int hangflowid) {
    FI_PARAM_S params[] = {Param("ErrCode", kHeartbeatCode), Param("ProcessName", kWorkerName),
                           Param("ProcessMoudleId", kModuleId), Param("UserData", std::to_string(hangflowid))};
    FI_CONTEXT_S context = {};
    FI_RESULT_S result = {};
    SendErrRpt(4, params, &context, &result);
    printf("    error report %s hangFlowId=%u: %s\n", kHeartbeatCode, hangflowid,
           result.result == 0 ? "sent" : result.reason);
}

// One check with the context the item keeps across calls.
void Check(int round, FI_CONTEXT_S* context) {
    FI_PARAM_S params[] = {Param("ProcessName", kWorkerName), Param("ProcessMoudleId", kModuleId)};
    FI_RESULT_S result = {};
    const float value = ProcessHeartBeat(2, params, context, &result);
    if (result.result != 0) {
        printf("check %d: failed: %s\n", round, result.reason);
    } else {
        printf("check %d: %s\n", round, value == 0.0f ? "0 hung" : "1 beating");
    }
    if (result.result == 0 && value == 0.0f) {
        RaiseReport(result.hangflowid);
    }
    fflush(stdout);
}

void StopWorker(pid_t worker) {
    kill(worker, SIGKILL);
    waitpid(worker, nullptr, 0);
    unlink(HeartbeatPath(worker).c_str());
    FI_CONTEXT_S context = {};
    FI_RESULT_S result = {};
    ClearHeartBeatFile(0, nullptr, &context, &result);
}

}  // namespace

int main(int argc, char**) {
    if (argc > 1) {
        fprintf(stderr, "heartbeat_demo: takes no arguments\n");
        return 2;
    }
    if (mkdir(kDir, 0755) != 0 && errno != EEXIST) {
        fprintf(stderr, "heartbeat_demo: cannot create %s: %s\n", kDir, strerror(errno));
        return 1;
    }
    openlog("plug-in", LOG_PERROR, 0);
    struct sigaction sa = {};
    sa.sa_handler = OnStop;
    for (int sig : {SIGTERM, SIGINT, SIGPIPE}) {
        sigaction(sig, &sa, nullptr);
    }
    fflush(nullptr);
    const pid_t worker = fork();
    if (worker < 0) {
        fprintf(stderr, "heartbeat_demo: fork failed: %s\n", strerror(errno));
        return 1;
    }
    if (worker == 0) {
        Worker();
    }
    printf("worker %s (pid %d) beats %d times, then hangs\n", kWorkerName, static_cast<int>(worker), kBeats);
    SleepMs(500);
    FI_CONTEXT_S context = {};
    for (int round = 1; round <= kChecks && g_stop == 0; ++round) {
        Check(round, &context);
        if (ferror(stdout)) {
            g_stop = 1;  // nobody reads any more
        }
        SleepMs(1000);
    }
    StopWorker(worker);
    if (g_stop != 0) {
        fprintf(stderr, "heartbeat_demo: demo stopped early; worker (pid %d) and its heartbeat file removed\n",
                static_cast<int>(worker));
        return 1;
    }
    printf("worker stopped; its heartbeat file removed\n");
    return 0;
}
