#ifndef TOOLS_RUNNER_SUBCOMMANDS_H
#define TOOLS_RUNNER_SUBCOMMANDS_H

// What the runner can be asked to do: the handlers main's table names (each
// takes the arguments after its name and returns the exit status), and what
// one subcommand lends another.

#include <stddef.h>

#include <string>
#include <utility>
#include <vector>

#include "tools/runner/runner_env.h"

namespace zadi_runner {

using Args = std::vector<std::string>;
int RunCommand(RunnerEnv& env, const Args& args);     // run_cmd.cpp
int ServeCommand(RunnerEnv& env, const Args& args);   // serve_cmd.cpp
int CallCommand(RunnerEnv& env, const Args& args);    // item_cmds.cpp
int ItemsCommand(RunnerEnv& env, const Args& args);   // item_cmds.cpp
int CensusCommand(RunnerEnv& env, const Args& args);  // census_cmd.cpp

// The run loop, for run and serve: rounds until --once/--rounds are done or
// a stop signal; `print` shows each call. Returns the exit status.
int RunItems(RunnerEnv& env, bool print);
// The census's largest resident sets as (MB, pid), for the exposition.
bool TakeRssCensus(const PluginLibrary& lib, size_t top, std::vector<std::pair<int, int>>* out);

}  // namespace zadi_runner

#endif
