// The subcommands that answer once: "items", every item the runner knows
// with its unit, the parameters it reads and what its figure means; "call
// ITEM Name=Value ...", one call of one item with a fresh context (an item
// that measures since its previous call is called twice, a second apart,
// and the second answer is shown: a first call only primes); and "census
// rss" and "census cpu", every user process with its resident memory or its
// CPU share over one minute, as a table sorted by the figure (or one JSON
// record a process), which the exposition takes the top of too.

#include <stdio.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <future>

#include "plugin/linux/allprocess.h"
#include "tools/runner/report.h"
#include "tools/runner/runner_env.h"

namespace zadi_runner {

namespace {

constexpr long kPrimingIntervalMs = 1000;

const char* MatchName(Match match) {
    static const char* const kNames[] = {"", "exact", "prefix", "wildcard"};
    return kNames[static_cast<int>(match)];
}

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

int ItemsCommand(RunnerEnv& env, const Args& args) {
    if (!args.empty()) {
        return Complain(kExitUsage, "items takes no arguments");
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
        return Complain(kExitUsage, "usage: zadi_runner call ITEM [Name=Value ...]");
    }
    Config config;
    config.items.emplace_back();
    ConfiguredItem& item = config.items.back();
    item.item = args[0];
    if (FindItemInfo(item.item) == nullptr) {
        return Complain(kExitUsage, "unknown item \"%s\" (see zadi_runner items)", item.item.c_str());
    }
    std::string error;
    for (size_t i = 1; i < args.size(); ++i) {
        const size_t eq = args[i].find('=');
        if (eq == std::string::npos || eq == 0) {
            return Complain(kExitUsage, "parameter \"%s\" is not Name=Value", args[i].c_str());
        }
        if (!AddParam(&item, args[i].substr(0, eq), args[i].substr(eq + 1), &error)) {
            return Complain(kExitUsage, "%s", error.c_str());
        }
    }
    std::vector<ItemState> states;
    if (!env.library.Load(env.options.lib)) {
        return kExitSetup;
    }
    if (!PrepareItems(config, env.library, &states, &error)) {
        return Complain(kExitSetup, "%s", error.c_str());
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
        return Complain(kExitUsage, "usage: zadi_runner census rss|cpu");
    }
    if (!env.library.Load(env.options.lib)) {
        return kExitSetup;
    }
    const bool cpu = args[0] == "cpu";
    std::vector<Row> rows;
    int usersys = 0;
    int rc = 0;
    if (!TakeCensus(env.library, cpu, !env.options.json && isatty(STDOUT_FILENO), &rows, &usersys, &rc)) {
        return Complain(kExitSetup, "%s does not export the census functions", env.library.path().c_str());
    }
    if (rc != 0) {
        return Complain(kExitItemFailed, "the census failed (%d)", rc);
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
