// "census rss" and "census cpu": every user process with its resident memory
// or its CPU share over one minute, as a table sorted by the figure (or one
// JSON record a process). On a terminal a progress line counts the minute.
// The exposition takes the top of the memory census from here too.

#include <stdio.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <future>

#include "plugin/linux/allprocess.h"
#include "tools/runner/report.h"
#include "tools/runner/runner_env.h"

namespace zadi_runner {

namespace {

using RssFn = int (*)(struct list_head*);
using CpuFn = int (*)(struct list_head*, int*);
using FreeFn = void (*)(struct list_head*);

struct Row {
    pid_t pid;
    int figure;
    int rss;
    std::string name;
    std::string cmdline;
};

// The CPU census samples for a minute; on a terminal a line counts it.
int ScanCpu(CpuFn scan, struct list_head* head, int* usersys, bool progress) {
    if (!progress) {
        return scan(head, usersys);
    }
    std::future<int> done = std::async(std::launch::async, scan, head, usersys);
    for (int s = 0; s == 0 || done.wait_for(std::chrono::seconds(1)) != std::future_status::ready; ++s) {
        printf("\rsampling every process: %2d of 60 s", s);
        fflush(stdout);
    }
    printf("\r%60s\r", "");
    fflush(stdout);
    return done.get();
}

// The census of one kind, copied out and sorted by its figure (the list
// goes back to the library that made it). On a terminal a line counts the
// CPU census's minute. False when the library lacks the census; `rc` is
// its answer.
bool TakeCensus(const PluginLibrary& lib, bool cpu, bool progress, std::vector<Row>* rows, int* usersys, int* rc) {
    const FreeFn free_list = reinterpret_cast<FreeFn>(lib.Symbol("FreeAllProcessList"));
    void* scan = lib.Symbol(cpu ? "GetAllProcessCoreCPU" : "GetAllProcessRssMem");
    if (free_list == nullptr || scan == nullptr) {
        return false;
    }
    struct list_head head;
    *rc = cpu ? ScanCpu(reinterpret_cast<CpuFn>(scan), &head, usersys, progress) : reinterpret_cast<RssFn>(scan)(&head);
    if (*rc != 0) {
        return true;
    }
    const PROCESS_INFO_S* info;
    list_for_each_entry(info, &head, stEntry) {
        rows->push_back({info->pid, cpu ? info->corecpu : info->rss, info->rss, info->name, info->cmdline});
    }
    free_list(&head);
    std::stable_sort(rows->begin(), rows->end(), [](const Row& a, const Row& b) {
        return a.figure != b.figure ? a.figure > b.figure : a.pid < b.pid;
    });
    return true;
}

void PrintRows(const RunnerEnv& env, const std::vector<Row>& rows, bool cpu) {
    if (env.options.json) {
        for (const Row& r : rows) {
            JsonLine line;
            line.Str("census", cpu ? "cpu" : "rss").Int("pid", r.pid).Str("name", r.name).Int("rss_mb", r.rss);
            if (cpu) {
                line.Int("cpu_pct_core", r.figure);
            }
            line.Str("cmdline", r.cmdline);
        }
        return;
    }
    printf("%8s  %-15s  %9s  %8s  %s\n", "PID", "NAME", cpu ? "CPU(%core)" : "RSS(MB)", cpu ? "RSS(MB)" : "",
           "COMMAND LINE");
    for (const Row& r : rows) {
        const std::string cmd = r.cmdline.size() > 80 ? r.cmdline.substr(0, 77) + "..." : r.cmdline;
        printf("%8d  %-15s  %9d  %8s  %s\n", static_cast<int>(r.pid), r.name.c_str(), r.figure,
               cpu ? std::to_string(r.rss).c_str() : "", cmd.c_str());
    }
    printf("%zu processes\n", rows.size());
}

}  // namespace

bool TakeRssCensus(const PluginLibrary& lib, size_t top, std::vector<std::pair<int, int>>* out) {
    std::vector<Row> rows;
    int rc = 0;
    if (!TakeCensus(lib, false, false, &rows, nullptr, &rc) || rc != 0) {
        return false;
    }
    out->clear();
    for (size_t i = 0; i < rows.size() && i < top; ++i) {
        out->emplace_back(rows[i].figure, static_cast<int>(rows[i].pid));
    }
    return true;
}

int CensusCommand(RunnerEnv& env, const Args& args) {
    if (args.size() != 1 || (args[0] != "rss" && args[0] != "cpu")) {
        fprintf(stderr, "zadi_runner: usage: zadi_runner census rss|cpu\n");
        return kExitUsage;
    }
    if (!env.library.Load(env.options.lib)) {
        return kExitSetup;
    }
    const bool cpu = args[0] == "cpu";
    std::vector<Row> rows;
    int usersys = 0;
    int rc = 0;
    if (!TakeCensus(env.library, cpu, !env.options.json && isatty(STDOUT_FILENO), &rows, &usersys, &rc)) {
        fprintf(stderr, "zadi_runner: %s does not export the census functions\n", env.library.path().c_str());
        return kExitSetup;
    }
    if (rc != 0) {
        fprintf(stderr, "zadi_runner: the census failed (%d)\n", rc);
        return kExitItemFailed;
    }
    if (cpu && env.options.json) {
        JsonLine().Str("census", "cpu").Int("user_cpu_pct", usersys);
    } else if (cpu) {
        printf("user share of all processors: %d%%\n", usersys);
    }
    PrintRows(env, rows, cpu);
    return kExitOk;
}

}  // namespace zadi_runner
