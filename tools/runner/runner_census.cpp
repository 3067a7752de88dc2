// "census rss" and "census cpu": every user process with its resident memory
// or its CPU share over one minute, as a table sorted by the figure.

#include <algorithm>
#include <string>
#include <vector>

#include "plugin/linux/allprocess.h"
#include "tools/runner/runner.h"

namespace zr {

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

// Copies the result out and hands the list back to the library that made it.
std::vector<Row> TakeRows(struct list_head* head, FreeFn freeList, bool cpu) {
    std::vector<Row> rows;
    const PROCESS_INFO_S* info;
    list_for_each_entry(info, head, stEntry) {
        rows.push_back({info->pid, cpu ? info->corecpu : info->rss, info->rss, info->name, info->cmdline});
    }
    freeList(head);
    std::stable_sort(rows.begin(), rows.end(), [](const Row& a, const Row& b) {
        return a.figure != b.figure ? a.figure > b.figure : a.pid < b.pid;
    });
    return rows;
}

void PrintRows(FILE* out, const std::vector<Row>& rows, bool cpu) {
    fprintf(out, "%8s  %-15s  %9s  %8s  %s\n", "PID", "NAME", cpu ? "CPU(%)" : "RSS(MB)", cpu ? "RSS(MB)" : "",
            "COMMAND LINE");
    for (const Row& r : rows) {
        std::string cmd = r.cmdline.size() > 80 ? r.cmdline.substr(0, 77) + "..." : r.cmdline;
        if (cpu) {
            fprintf(out, "%8d  %-15s  %9d  %8d  %s\n", static_cast<int>(r.pid), r.name.c_str(), r.figure, r.rss,
                    cmd.c_str());
        } else {
            fprintf(out, "%8d  %-15s  %9d  %8s  %s\n", static_cast<int>(r.pid), r.name.c_str(), r.figure, "",
                    cmd.c_str());
        }
    }
    fprintf(out, "%zu processes\n", rows.size());
}

int Census(RunnerEnv& env, const std::vector<std::string>& args) {
    if (args.size() != 1 || (args[0] != "rss" && args[0] != "cpu")) {
        fprintf(env.err, "zadi_runner: usage: zadi_runner census rss|cpu\n");
        return 2;
    }
    if (!LoadLibrary(env)) {
        return 1;
    }
    const bool cpu = args[0] == "cpu";
    FreeFn freeList = reinterpret_cast<FreeFn>(env.library.Symbol("FreeAllProcessList"));
    void* scan = env.library.Symbol(cpu ? "GetAllProcessCoreCPU" : "GetAllProcessRssMem");
    if (freeList == nullptr || scan == nullptr) {
        fprintf(env.err, "zadi_runner: %s does not export the census functions\n", env.library.path().c_str());
        return 1;
    }
    struct list_head head;
    int usersys = 0;
    int rc;
    if (cpu) {
        fprintf(env.out, "sampling every process for 60 seconds...\n");
        fflush(env.out);
        rc = reinterpret_cast<CpuFn>(scan)(&head, &usersys);
    } else {
        rc = reinterpret_cast<RssFn>(scan)(&head);
    }
    if (rc != 0) {
        fprintf(env.err, "zadi_runner: the census failed (%d)\n", rc);
        return 3;
    }
    if (cpu) {
        fprintf(env.out, "user share of all processors: %d%%\n", usersys);
    }
    PrintRows(env.out, TakeRows(&head, freeList, cpu), cpu);
    return 0;
}

}  // namespace

ZADI_RUNNER_SUBCOMMAND(census, "census", "every user process by memory or CPU: census rss|cpu", Census);

}  // namespace zr
