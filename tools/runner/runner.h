#ifndef TOOLS_RUNNER_RUNNER_H
#define TOOLS_RUNNER_RUNNER_H

// zadi_runner: loads the plug-in as the agent does (dlopen, items by name),
// keeps one context per configured item and calls items on their periods.
//
// Extension points, each usable from a separate source file:
//  - subcommands: define `int Fn(RunnerEnv&, const std::vector<std::string>&)`
//    and register it with ZADI_RUNNER_SUBCOMMAND(ident, "name", "summary", Fn);
//  - after-call hooks: derive from PostCallHook and register an instance
//    with ZADI_RUNNER_POST_CALL_HOOK(ident, Type) (or AddPostCallHook).

#include <stdio.h>

#include <string>
#include <vector>

#include "plugin/linux/fi_types.h"

namespace zr {

// ---- the loaded plug-in ----
class PluginLibrary {
public:
    PluginLibrary() = default;
    ~PluginLibrary();
    PluginLibrary(const PluginLibrary&) = delete;
    PluginLibrary& operator=(const PluginLibrary&) = delete;

    // False with a message in error() when the library cannot be loaded.
    bool Load(const std::string& path);
    // Any exported symbol by name (items, census functions, ...); null when
    // absent.
    void* Symbol(const char* name) const;
    FI_ITEM_FN Item(const std::string& name) const;
    const std::string& path() const { return path_; }
    const std::string& error() const { return error_; }

private:
    void* handle_ = nullptr;
    std::string path_;
    std::string error_;
};

// The library used when --lib is not given: next to the build tree, then
// relative to the executable, then the installed one.
std::string DefaultLibraryPath();

// ---- items the runner knows how to show ----
struct ItemInfo {
    const char* name;
    const char* unit;  // "%", "MB", "" ...
    bool reports_pid;  // writes the pid field of the result
};
const ItemInfo* FindItemInfo(const std::string& name);
const std::vector<ItemInfo>& KnownItems();

// ---- configuration ----
struct Param {
    std::string name;
    std::string value;
};
struct ConfiguredItem {
    std::string item;
    unsigned period_s = 5;
    std::vector<Param> params;
    int line = 0;  // source line, 0 for built-in/ad-hoc items
};
struct Config {
    std::vector<ConfiguredItem> items;
};
// Appends a parameter, refusing names and values that do not fit FI_PARAM_S.
bool AddParam(ConfiguredItem* item, const std::string& name, const std::string& value, std::string* error);
// One configuration line (key=value fields separated by commas). False with
// a message naming the line when it is malformed or names no known item.
bool ParseConfigLine(const std::string& text, int line_no, ConfiguredItem* out, std::string* error);
// Whole file text; lines holding '#' anywhere and empty lines are skipped.
bool ParseConfigText(const std::string& text, Config* out, std::string* error);
bool LoadConfigFile(const std::string& path, Config* out, std::string* error);
// Inspects this machine: every system item, the root file system, and
// process items aimed at the runner itself and at init.
Config DefaultConfig();

// ---- options and the environment handed to subcommands ----
struct Options {
    std::string lib;     // empty: DefaultLibraryPath()
    std::string config;  // empty: DefaultConfig()
    bool json = false;
    bool once = false;
    long rounds = 0;  // 0: until interrupted
};
struct RunnerEnv {
    Options options;
    PluginLibrary library;
    FILE* out = stdout;
    FILE* err = stderr;
};

// ---- one call of one item ----
struct ItemState {
    ConfiguredItem config;
    FI_ITEM_FN fn = nullptr;
    std::vector<FI_PARAM_S> argv;
    FI_CONTEXT_S context;  // zeroed once, kept across calls like the agent
    long next_due_ms = 0;
};
struct CallRecord {
    unsigned long round;
    const ItemState* state;
    float value;
    FI_RESULT_S result;
    double elapsed_ms;
};
// Resolves every configured item and builds its argument array. False with
// a message when an item is missing from the library.
bool PrepareItems(const Config& config, const PluginLibrary& lib, std::vector<ItemState>* states, std::string* error);
CallRecord CallItem(ItemState& state, unsigned long round);

// ---- output ----
void PrintRoundHeader(FILE* out, unsigned long round);
void PrintTableHeader(FILE* out);
void PrintTableRow(FILE* out, const CallRecord& rec);
void PrintJson(FILE* out, const CallRecord& rec);
// The fault marker (bits 0x00800000) rather than a figure.
bool IsFaultMarker(float value);

// ---- after-call hooks ----
class PostCallHook {
public:
    virtual ~PostCallHook() = default;
    virtual void AfterCall(RunnerEnv& env, const CallRecord& rec) = 0;
};
void AddPostCallHook(PostCallHook* hook);
void RunPostCallHooks(RunnerEnv& env, const CallRecord& rec);

// ---- subcommands ----
using SubcommandFn = int (*)(RunnerEnv& env, const std::vector<std::string>& args);
struct Subcommand {
    const char* name;
    const char* summary;
    SubcommandFn run;
};
void AddSubcommand(const Subcommand& cmd);
const Subcommand* FindSubcommand(const std::string& name);
const std::vector<Subcommand>& Subcommands();

struct SubcommandRegistrar {
    explicit SubcommandRegistrar(const Subcommand& cmd) { AddSubcommand(cmd); }
};
template <typename Hook>
struct PostCallHookRegistrar {
    PostCallHookRegistrar() { AddPostCallHook(&hook); }
    Hook hook;
};

// Loads env.library from env.options.lib (or the default), printing a
// message on failure. Subcommands call it when they need the plug-in.
bool LoadLibrary(RunnerEnv& env);

}  // namespace zr

#define ZADI_RUNNER_SUBCOMMAND(ident, name, summary, fn) \
    static ::zr::SubcommandRegistrar ident##_subcommand({name, summary, fn})
#define ZADI_RUNNER_POST_CALL_HOOK(ident, Type) static ::zr::PostCallHookRegistrar<Type> ident##_hook

#endif
