// Tables of subcommands and after-call hooks, filled by static registrars
// from any source file of the runner.

#include "tools/runner/runner.h"

namespace zr {

namespace {

std::vector<Subcommand>& SubcommandTable() {
    static std::vector<Subcommand> table;
    return table;
}

std::vector<PostCallHook*>& HookTable() {
    static std::vector<PostCallHook*> table;
    return table;
}

}  // namespace

void AddSubcommand(const Subcommand& cmd) { SubcommandTable().push_back(cmd); }

const Subcommand* FindSubcommand(const std::string& name) {
    for (const Subcommand& cmd : SubcommandTable()) {
        if (name == cmd.name) {
            return &cmd;
        }
    }
    return nullptr;
}

const std::vector<Subcommand>& Subcommands() { return SubcommandTable(); }

void AddPostCallHook(PostCallHook* hook) { HookTable().push_back(hook); }

void RunPostCallHooks(RunnerEnv& env, const CallRecord& rec) {
    for (PostCallHook* hook : HookTable()) {
        hook->AfterCall(env, rec);
    }
}

}  // namespace zr
