// Command line of zadi_runner: global options anywhere, then an optional
// subcommand (default "run") with its own arguments.

#include <stdlib.h>
#include <string.h>

#include "tools/runner/runner.h"

namespace {

void Usage(FILE* out) {
    fprintf(out,
            "usage: zadi_runner [--lib PATH] [--config FILE] [--json] [--once] [--rounds N] [SUBCOMMAND ...]\n"
            "  --lib PATH     plug-in library (default: %s)\n"
            "  --config FILE  item configuration, one item a line:\n"
            "                 item=GetProcessMemory,period=5,ProcessName=/sbin/init\n"
            "                 (default: a built-in one inspecting this machine)\n"
            "  --json         one JSON object per call instead of a table per round\n"
            "  --once         one round; --rounds N: N rounds (default: until interrupted)\n"
            "subcommands:\n",
            zr::DefaultLibraryPath().c_str());
    for (const zr::Subcommand& cmd : zr::Subcommands()) {
        fprintf(out, "  %-10s %s\n", cmd.name, cmd.summary);
    }
}

bool ParseCount(const char* text, long* out) {
    char* end = nullptr;
    const long v = strtol(text, &end, 10);
    if (end == text || *end != '\0' || v <= 0) {
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
        auto value = [&](const char* name, std::string* out) {
            if (arg.rfind(std::string(name) + "=", 0) == 0) {
                *out = arg.substr(strlen(name) + 1);
                return true;
            }
            if (arg == name && i + 1 < argc) {
                *out = argv[++i];
                return true;
            }
            return false;
        };
        std::string v;
        if (arg == "--help" || arg == "-h") {
            Usage(stdout);
            return 0;
        } else if (arg == "--json") {
            opts->json = true;
        } else if (arg == "--once") {
            opts->once = true;
        } else if (value("--lib", &opts->lib) || value("--config", &opts->config)) {
        } else if (value("--rounds", &v)) {
            if (!ParseCount(v.c_str(), &opts->rounds)) {
                fprintf(stderr, "zadi_runner: --rounds needs a whole number above 0, not \"%s\"\n", v.c_str());
                return 2;
            }
        } else if (arg.rfind("--", 0) == 0) {
            fprintf(stderr, "zadi_runner: unknown option %s (see --help)\n", arg.c_str());
            return 2;
        } else {
            rest->push_back(arg);
        }
    }
    return -1;
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
        return 2;
    }
    if (!rest.empty()) {
        rest.erase(rest.begin());
    }
    return cmd->run(env, rest);
}
