// Command line of zadi_runner: global options anywhere, then an optional
// subcommand (default "run") with its own arguments. Options a subcommand
// does not use, and options that contradict each other, are refused.

#include <errno.h>
#include <stdlib.h>
#include <string.h>

#include "tools/runner/runner.h"

#ifndef ZADI_RUNNER_VERSION
#define ZADI_RUNNER_VERSION "unknown"
#endif

namespace {

struct OptionName {
    zr::Option bit;
    const char* name;
};
const OptionName kOptionNames[] = {
    {zr::kOptLib, "--lib"},       {zr::kOptJson, "--json"},          {zr::kOptConfig, "--config"},
    {zr::kOptRounds, "--rounds"}, {zr::kOptExitZero, "--exit-zero"}, {zr::kOptTextfile, "--textfile"},
    {zr::kOptLog, "--log-file"},  {zr::kOptListen, "--listen"},
};

void Usage(FILE* out) {
    fprintf(out,
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
            "  --log-file F   the runner's own messages to F instead of standard error\n"
            "  --plugin-log   also copy the plug-in's diagnostic (syslog) lines there\n"
            "  --version      the runner's version\n"
            "subcommands:\n",
            zr::DefaultLibraryPath().c_str(), zr::kDefaultPeriodS);
    for (const zr::Subcommand& cmd : zr::Subcommands()) {
        fprintf(out, "  %-10s %s\n", cmd.name, cmd.summary);
    }
    fprintf(out,
            "states: ok, priming (first call of an item that measures since its previous call),\n"
            "        no_match (no process answers to ProcessName), failed (the item's reason follows)\n"
            "units:\n%s"
            "exit status: 0 every last call ok or priming, 1 setup failed (library, configuration),\n"
            "             2 usage, 3 an item failed, 4 an item matched no process (run: the last call\n"
            "             of each item; --exit-zero gives 0)\n",
            zr::UnitLegend());
}

bool ParseCount(const std::string& text, long* out) {
    char* end = nullptr;
    const long v = strtol(text.c_str(), &end, 10);
    if (text.empty() || *end != '\0' || v <= 0) {
        return false;
    }
    *out = v;
    return true;
}

// Takes the global options out of argv; the rest are the subcommand and its
// arguments. Returns -1 to go on, else an exit status.
int ParseOptions(int argc, char** argv, zr::Options* opts, std::vector<std::string>* rest) {
    for (int i = 1; i < argc; ++i) {
        const std::string arg = argv[i];
        bool missing = false;
        auto value = [&](const char* name, std::string* out) {
            if (arg.rfind(std::string(name) + "=", 0) == 0) {
                *out = arg.substr(strlen(name) + 1);
            } else if (arg == name) {
                *out = i + 1 < argc ? argv[++i] : "";
            } else {
                return false;
            }
            missing = out->empty();
            return true;
        };
        std::string v;
        if (arg == "--help" || arg == "-h") {
            Usage(stdout);
            return zr::kExitOk;
        } else if (arg == "--version") {
            printf("zadi_runner %s\n", ZADI_RUNNER_VERSION);
            return zr::kExitOk;
        } else if (arg == "--json") {
            opts->json = true;
            opts->given |= zr::kOptJson;
        } else if (arg == "--once") {
            opts->once = true;
            opts->given |= zr::kOptRounds;
        } else if (arg == "--exit-zero") {
            opts->exit_zero = true;
            opts->given |= zr::kOptExitZero;
        } else if (arg == "--plugin-log") {
            opts->plugin_log = true;
            opts->given |= zr::kOptLog;
        } else if (value("--listen", &opts->listen)) {
            opts->given |= zr::kOptListen;
        } else if (value("--textfile", &opts->textfile)) {
            opts->given |= zr::kOptTextfile;
        } else if (value("--log-file", &opts->log_file)) {
            opts->given |= zr::kOptLog;
        } else if (value("--lib", &opts->lib)) {
            opts->given |= zr::kOptLib;
        } else if (value("--config", &opts->config)) {
            opts->given |= zr::kOptConfig;
        } else if (value("--rounds", &v)) {
            if (opts->once || !ParseCount(v, &opts->rounds)) {
                fprintf(stderr, "zadi_runner: %s\n",
                        opts->once ? "--once and --rounds contradict each other"
                                   : ("--rounds needs a whole number above 0, not \"" + v + "\"").c_str());
                return zr::kExitUsage;
            }
            opts->given |= zr::kOptRounds;
        } else if (arg.rfind("--", 0) == 0) {
            fprintf(stderr, "zadi_runner: unknown option %s (see --help)\n", arg.c_str());
            return zr::kExitUsage;
        } else {
            rest->push_back(arg);
        }
        if (missing) {
            fprintf(stderr, "zadi_runner: %s needs a value (see --help)\n", arg.c_str());
            return zr::kExitUsage;
        }
    }
    if (opts->once && opts->rounds > 0) {
        fprintf(stderr, "zadi_runner: --once and --rounds contradict each other\n");
        return zr::kExitUsage;
    }
    return -1;
}

// Refuses an option the subcommand would silently ignore.
bool OptionsApply(const zr::Options& opts, const zr::Subcommand& cmd) {
    for (const OptionName& o : kOptionNames) {
        if ((opts.given & o.bit) != 0 && (cmd.options & o.bit) == 0) {
            fprintf(stderr, "zadi_runner: %s does not apply to %s\n", o.name, cmd.name);
            return false;
        }
    }
    return true;
}

}  // namespace

int main(int argc, char** argv) {
    zr::RunnerEnv env;
    std::vector<std::string> rest;
    const int status = ParseOptions(argc, argv, &env.options, &rest);
    if (status >= 0) {
        return status;
    }
    const std::string name = rest.empty() ? "run" : rest[0];
    const zr::Subcommand* cmd = zr::FindSubcommand(name);
    if (cmd == nullptr) {
        fprintf(stderr, "zadi_runner: unknown subcommand \"%s\" (see --help)\n", name.c_str());
        return zr::kExitUsage;
    }
    if (!OptionsApply(env.options, *cmd)) {
        return zr::kExitUsage;
    }
    if (!rest.empty()) {
        rest.erase(rest.begin());
    }
    if (!env.options.log_file.empty()) {
        env.err = fopen(env.options.log_file.c_str(), "a");
        if (env.err == nullptr) {
            fprintf(stderr, "zadi_runner: cannot open %s: %s\n", env.options.log_file.c_str(), strerror(errno));
            return zr::kExitSetup;
        }
        setvbuf(env.err, nullptr, _IOLBF, 0);
    }
    if (env.options.plugin_log) {
        zr::CopyPluginLog(env.err);
    }
    zr::HideCommandLine(argc, argv);
    const int result = cmd->run(env, rest);
    if (env.err != stderr) {
        fclose(env.err);
    }
    return result;
}
