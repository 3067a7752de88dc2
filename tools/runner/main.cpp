// zadi_runner: loads the plug-in as the agent does and calls its items. Here:
// the table of subcommands, the command line (global options anywhere, then
// an optional subcommand, "run" by default, with its own arguments; options
// a subcommand does not take, and options that contradict each other, are
// refused), where the messages go, and the runner hiding its command line.

#include <errno.h>
#include <fcntl.h>
#include <stdarg.h>
#include <getopt.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/prctl.h>
#include <syslog.h>
#include <unistd.h>

#include "os/base/kira_raii.h"
#include "tools/runner/config.h"
#include "tools/runner/item_catalog.h"
#include "tools/runner/runner_env.h"

#ifndef ZADI_RUNNER_VERSION
#define ZADI_RUNNER_VERSION "unknown"
#endif

namespace zadi_runner {

namespace {

struct Subcommand {
    const char* name;
    int (*run)(RunnerEnv& env, const Args& args);
    unsigned options;  // Option bits it takes
    const char* summary;
};
const Subcommand kSubcommands[] = {
    {"run", RunCommand, kOptLib | kOptJson | kOptConfig | kOptRounds | kOptExitZero | kOptTextfile | kOptLog,
     "call the configured items on their periods (the default)"},
    {"serve", ServeCommand, kOptLib | kOptConfig | kOptTextfile | kOptLog | kOptListen,
     "serve the items' last answers for Prometheus: serve [--listen ADDR:PORT] (127.0.0.1:9731)"},
    {"call", CallCommand, kOptLib | kOptJson | kOptLog,
     "call one item: call ITEM [Name=Value ...] (CPU items: two samples 1 s apart)"},
    {"items", ItemsCommand, kOptJson | kOptLog, "every item with its unit, parameters and meaning"},
    {"census", CensusCommand, kOptLib | kOptJson | kOptLog, "every user process by memory or CPU: census rss|cpu"},
};

// Every option but --help and --version, with the group a subcommand must
// take for it to be given (the first of a group names it in refusals).
struct Flag {
    const char* name;
    Option group;
    std::string Options::*text;  // its value goes here, or
    bool Options::*on;           // it sets this, or it is --rounds
};
const Flag kFlags[] = {
    {"lib", kOptLib, &Options::lib, nullptr},
    {"json", kOptJson, nullptr, &Options::json},
    {"config", kOptConfig, &Options::config, nullptr},
    {"rounds", kOptRounds, nullptr, nullptr},
    {"once", kOptRounds, nullptr, &Options::once},
    {"exit-zero", kOptExitZero, nullptr, &Options::exit_zero},
    {"textfile", kOptTextfile, &Options::textfile, nullptr},
    {"log-file", kOptLog, &Options::log_file, nullptr},
    {"plugin-log", kOptLog, nullptr, &Options::plugin_log},
    {"listen", kOptListen, &Options::listen, nullptr},
};
// getopt_long answers a flag with its index past kFirstFlag; '-' hands the
// arguments back in order, as kArgument.
enum Code { kArgument = 1, kHelp = 'h', kVersion = 255, kFirstFlag = 256 };

std::vector<struct option> LongOptions() {
    std::vector<struct option> options;
    for (const Flag& f : kFlags) {
        const bool takes_value = f.on == nullptr;
        options.push_back({f.name, takes_value ? required_argument : no_argument, nullptr,
                           kFirstFlag + static_cast<int>(options.size())});
    }
    options.push_back({"help", no_argument, nullptr, kHelp});
    options.push_back({"version", no_argument, nullptr, kVersion});
    options.push_back({nullptr, 0, nullptr, 0});
    return options;
}

void Usage() {
    printf(
        "usage: zadi_runner [OPTIONS] [SUBCOMMAND [ARGS]]\n"
        "  --lib PATH     plug-in library (default: %s)\n"
        "  --config FILE  item configuration, one item a line (default: built in, inspects\n"
        "                 this machine):  item=GetProcessMemory, period=5, ProcessName=/sbin/init\n"
        "                 period in seconds, default %u; every other key is a parameter of the item\n"
        "  --json         one JSON record a line (with time and host) instead of a table\n"
        "  --once         one round; --rounds N: N rounds (default: until SIGINT/SIGTERM)\n"
        "  --exit-zero    exit 0 even when an item failed or matched no process\n"
        "  --textfile DIR after every round write DIR/zadi.prom (Prometheus text format,\n"
        "                 for the node exporter's textfile collector)\n"
        "  --listen A:P   serve's address and port (default 127.0.0.1:9731; port 0: any free one)\n"
        "  --log-file F   the runner's own messages (all of standard error) to F\n"
        "  --plugin-log   also copy the plug-in's diagnostic (syslog) lines there\n"
        "  --version      the runner's version\n"
        "subcommands:\n",
        DefaultLibraryPath().c_str(), kDefaultPeriodS);
    for (const Subcommand& cmd : kSubcommands) {
        printf("  %-10s %s\n", cmd.name, cmd.summary);
    }
    printf(
        "states: ok, priming (first call of an item that measures since its previous call),\n"
        "        no_match (no process answers to ProcessName), failed (the item's reason follows)\n"
        "units:\n%s"
        "exit status: 0 every last call ok or priming, 1 setup failed (library, configuration),\n"
        "             2 usage, 3 an item failed, 4 an item matched no process (run: the last call\n"
        "             of each item; --exit-zero gives 0)\n",
        UnitLegend());
}

bool ParseRounds(const char* text, Options* opts) {
    if (opts->once) {
        return Complain(false, "--once and --rounds contradict each other");
    }
    char* end = nullptr;
    opts->rounds = strtol(text, &end, 10);
    if (*end != '\0' || opts->rounds <= 0) {
        return Complain(false, "--rounds needs a whole number above 0, not \"%s\"", text);
    }
    return true;
}

// Fills `opts` and `rest` (the subcommand and its arguments, in order).
// Returns -1 to go on, else the exit status.
int ParseOptions(int argc, char** argv, Options* opts, Args* rest) {
    const std::vector<struct option> options = LongOptions();
    opterr = 0;
    for (int code; (code = getopt_long(argc, argv, "-:h", options.data(), nullptr)) != -1;) {
        if (code == '?') {
            return Complain(kExitUsage, "unknown option %s (see --help)", argv[optind - 1]);
        }
        if (code == ':' || (code != kArgument && optarg != nullptr && *optarg == '\0')) {
            return Complain(kExitUsage, "%s needs a value (see --help)", argv[optind - 1]);
        }
        if (code == kHelp || code == kVersion) {
            code == kHelp ? Usage() : (void)printf("zadi_runner %s\n", ZADI_RUNNER_VERSION);
            return kExitOk;
        }
        if (code == kArgument) {
            rest->push_back(optarg);
            continue;
        }
        const Flag& flag = kFlags[code - kFirstFlag];
        opts->given |= flag.group;
        if (flag.text != nullptr) {
            opts->*flag.text = optarg;
        } else if (flag.on != nullptr) {
            opts->*flag.on = true;
        } else if (!ParseRounds(optarg, opts)) {
            return kExitUsage;
        }
    }
    if (opts->once && opts->rounds > 0) {
        return Complain(kExitUsage, "--once and --rounds contradict each other");
    }
    return -1;
}

// Refuses an option the subcommand would silently ignore.
bool OptionsApply(const Options& opts, const Subcommand& cmd) {
    for (const Flag& f : kFlags) {
        if ((opts.given & f.group & ~cmd.options) != 0) {
            return Complain(false, "--%s does not apply to %s", f.name, cmd.name);
        }
    }
    return true;
}

// With --log-file standard error itself goes to the file, so whatever
// writes there (the runner, the agent's stand-in, the copies below) lands in
// it. With --plugin-log the C library copies every syslog line of the
// process, the plug-in's diagnostics among them, to standard error.
bool RouteMessages(const Options& opts) {
    if (!opts.log_file.empty()) {
        kira::UniqueFd fd(open(opts.log_file.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0666));
        if (!fd.valid() || dup2(fd.get(), STDERR_FILENO) < 0) {
            return Complain(false, "cannot open %s: %s", opts.log_file.c_str(), strerror(errno));
        }
        if (fd.get() == STDERR_FILENO) {
            fd.release();
        }
    }
    if (opts.plugin_log) {
        openlog("plug-in", LOG_PERROR, 0);
    }
    return true;
}

// The items find processes by their command line, and the runner's own may
// hold the very name or pattern it was asked to look for ("*nginx*" would
// report the runner). So it empties its command line: it moves the start of
// its argument area onto the end (PR_SET_MM, which needs CAP_SYS_RESOURCE)
// and then reads like a kernel thread, which no item ever matches. Without
// the privilege it blanks the area: the text reads empty and only a pattern
// made of nothing but '*' still matches it.
void HideCommandLine(int argc, char** argv) {
    if (argc <= 0) {
        return;
    }
    char* start = argv[0];
    char* end = argv[argc - 1] + strlen(argv[argc - 1]) + 1;
    if (prctl(PR_SET_MM, PR_SET_MM_ARG_START, reinterpret_cast<unsigned long>(end), 0, 0) != 0) {
        memset(start, 0, static_cast<size_t>(end - start));
    }
}

}  // namespace

int Complain(int status, const char* fmt, ...) {
    // One write, so that the line stays whole beside the plug-in's copies.
    const std::string line = std::string("zadi_runner: ") + fmt + "\n";
    va_list ap;
    va_start(ap, fmt);
    vfprintf(stderr, line.c_str(), ap);
    va_end(ap);
    return status;
}

}  // namespace zadi_runner

int main(int argc, char** argv) {
    using namespace zadi_runner;
    RunnerEnv env;
    Args rest;
    const int status = ParseOptions(argc, argv, &env.options, &rest);
    if (status >= 0) {
        return status;
    }
    const std::string name = rest.empty() ? "run" : rest[0];
    const Subcommand* cmd = nullptr;
    for (const Subcommand& c : kSubcommands) {
        cmd = name == c.name ? &c : cmd;
    }
    if (cmd == nullptr) {
        return Complain(kExitUsage, "unknown subcommand \"%s\" (see --help)", name.c_str());
    }
    if (!OptionsApply(env.options, *cmd)) {
        return kExitUsage;
    }
    if (!RouteMessages(env.options)) {
        return kExitSetup;
    }
    if (!rest.empty()) {
        rest.erase(rest.begin());
    }
    HideCommandLine(argc, argv);
    return cmd->run(env, rest);
}
