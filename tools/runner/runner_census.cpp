// "census rss" and "census cpu": every user process with its resident memory
// or its CPU share over one minute, as a table sorted by the figure (or one
// JSON record a process). On a terminal a progress line counts the minute.

#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>
#include <string>
#include <vector>

#include "plugin/linux/allprocess.h"
#include "tools/runner/metrics.h"
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

void PrintRows(RunnerEnv& env, const std::vector<Row>& rows, bool cpu) {
    FILE* out = env.out;
    if (env.options.json) {
        for (const Row& r : rows) {
            JsonLine line(out);
            line.Str("census", cpu ? "cpu" : "rss").Int("pid", r.pid).Str("name", r.name).Int("rss_mb", r.rss);
            if (cpu) {
                line.Int("cpu_pct_core", r.figure);
            }
            line.Str("cmdline", r.cmdline);
        }
        return;
    }
    fprintf(out, "%8s  %-15s  %9s  %8s  %s\n", "PID", "NAME", cpu ? "CPU(%core)" : "RSS(MB)", cpu ? "RSS(MB)" : "",
            "COMMAND LINE");
    for (const Row& r : rows) {
        const std::string cmd = r.cmdline.size() > 80 ? r.cmdline.substr(0, 77) + "..." : r.cmdline;
        const std::string rss = cpu ? std::to_string(r.rss) : "";
        fprintf(out, "%8d  %-15s  %9d  %8s  %s\n", static_cast<int>(r.pid), r.name.c_str(), r.figure, rss.c_str(),
                cmd.c_str());
    }
    fprintf(out, "%zu processes\n", rows.size());
}

// Counts the census minute on one rewritten line while the scan blocks.
class ProgressLine {
public:
    explicit ProgressLine(FILE* out) : out_(out) {
        if (out_ != nullptr) {
            thread_ = std::thread([this] { Count(); });
        }
    }
    ~ProgressLine() {
        if (out_ == nullptr) {
            return;
        }
        {
            std::lock_guard<std::mutex> lock(mutex_);
            done_ = true;
        }
        wake_.notify_one();
        thread_.join();
        fprintf(out_, "\r%60s\r", "");
        fflush(out_);
    }

private:
    void Count() {
        std::unique_lock<std::mutex> lock(mutex_);
        for (int s = 0; !done_; ++s) {
            fprintf(out_, "\rsampling every process: %2d of 60 s", s);
            fflush(out_);
            wake_.wait_for(lock, std::chrono::seconds(1), [this] { return done_; });
        }
    }
    FILE* out_;
    std::thread thread_;
    std::mutex mutex_;
    std::condition_variable wake_;
    bool done_ = false;
};

}  // namespace

bool TakeRssCensus(const PluginLibrary& lib, size_t top, std::vector<std::pair<int, int>>* out) {
    FreeFn freeList = reinterpret_cast<FreeFn>(lib.Symbol("FreeAllProcessList"));
    RssFn scan = reinterpret_cast<RssFn>(lib.Symbol("GetAllProcessRssMem"));
    struct list_head head;
    if (freeList == nullptr || scan == nullptr || scan(&head) != 0) {
        return false;
    }
    out->clear();
    for (const Row& r : TakeRows(&head, freeList, false)) {
        if (out->size() == top) {
            break;
        }
        out->emplace_back(r.figure, static_cast<int>(r.pid));
    }
    return true;
}

namespace {

int Census(RunnerEnv& env, const std::vector<std::string>& args) {
    if (args.size() != 1 || (args[0] != "rss" && args[0] != "cpu")) {
        fprintf(env.err, "zadi_runner: usage: zadi_runner census rss|cpu\n");
        return kExitUsage;
    }
    if (!LoadLibrary(env)) {
        return kExitSetup;
    }
    const bool cpu = args[0] == "cpu";
    FreeFn freeList = reinterpret_cast<FreeFn>(env.library.Symbol("FreeAllProcessList"));
    void* scan = env.library.Symbol(cpu ? "GetAllProcessCoreCPU" : "GetAllProcessRssMem");
    if (freeList == nullptr || scan == nullptr) {
        fprintf(env.err, "zadi_runner: %s does not export the census functions\n", env.library.path().c_str());
        return kExitSetup;
    }
    struct list_head head;
    int usersys = 0;
    int rc;
    if (cpu) {
        const bool terminal = !env.options.json && isatty(fileno(env.out));
        ProgressLine progress(terminal ? env.out : nullptr);
        rc = reinterpret_cast<CpuFn>(scan)(&head, &usersys);
    } else {
        rc = reinterpret_cast<RssFn>(scan)(&head);
    }
    if (rc != 0) {
        fprintf(env.err, "zadi_runner: the census failed (%d)\n", rc);
        return kExitItemFailed;
    }
    if (cpu && env.options.json) {
        JsonLine(env.out).Str("census", "cpu").Int("user_cpu_pct", usersys);
    } else if (cpu) {
        fprintf(env.out, "user share of all processors: %d%%\n", usersys);
    }
    PrintRows(env, TakeRows(&head, freeList, cpu), cpu);
    return kExitOk;
}

}  // namespace

ZADI_RUNNER_SUBCOMMAND(census, "census", "every user process by memory or CPU: census rss|cpu", Census);

}  // namespace zr
