#ifndef TOOLS_RUNNER_RUNNER_ENV_H
#define TOOLS_RUNNER_RUNNER_ENV_H

// What main hands every subcommand: the exit statuses they share, the
// options as parsed (and the groups main checks against what a subcommand
// takes), and the plug-in once a subcommand has loaded it. Then the
// subcommands main's table names (each takes the arguments after its name
// and returns the exit status), and what they lend one another.

#include <stddef.h>

#include <string>
#include <utility>
#include <vector>

#include "tools/runner/plugin_library.h"

namespace zadi_runner {

enum ExitStatus {
    kExitOk = 0,          // every call answered (priming included)
    kExitSetup = 1,       // library, configuration or a system call failed
    kExitUsage = 2,       // bad option, argument or conflicting options
    kExitItemFailed = 3,  // an item answered result -1 (its last call)
    kExitNoMatch = 4,     // no process matched a process item (its last call)
};

enum Option : unsigned {
    kOptLib = 1u << 0,
    kOptJson = 1u << 1,
    kOptConfig = 1u << 2,
    kOptRounds = 1u << 3,  // --once, --rounds
    kOptExitZero = 1u << 4,
    kOptTextfile = 1u << 5,
    kOptLog = 1u << 6,  // --log-file, --plugin-log
    kOptListen = 1u << 7,
};

struct Options {
    std::string lib;       // empty: DefaultLibraryPath()
    std::string config;    // empty: DefaultConfig()
    std::string textfile;  // directory for zadi.prom, empty: none
    std::string listen;    // serve's ADDR:PORT, empty: the default
    std::string log_file;  // standard error goes there, empty: it stays
    bool json = false;
    bool once = false;
    bool exit_zero = false;
    bool plugin_log = false;
    long rounds = 0;     // 0: until interrupted
    unsigned given = 0;  // the Option groups given
};

// "zadi_runner: " and the message, a line on standard error; returns
// `status`, so that a refusal is one statement.
int Complain(int status, const char* fmt, ...) __attribute__((format(printf, 2, 3)));

class Metrics;
struct RunnerEnv {
    Options options;
    PluginLibrary library;
    Metrics* metrics = nullptr;  // set while the items' answers are kept for Prometheus
};

using Args = std::vector<std::string>;
int RunCommand(RunnerEnv& env, const Args& args);     // run_cmd.cpp
int ServeCommand(RunnerEnv& env, const Args& args);   // run_cmd.cpp
int CallCommand(RunnerEnv& env, const Args& args);    // item_cmds.cpp
int ItemsCommand(RunnerEnv& env, const Args& args);   // item_cmds.cpp
int CensusCommand(RunnerEnv& env, const Args& args);  // item_cmds.cpp

// The census's largest resident sets as (MB, pid), for the exposition.
bool TakeRssCensus(const PluginLibrary& lib, size_t top, std::vector<std::pair<int, int>>* out);

}  // namespace zadi_runner

#endif
