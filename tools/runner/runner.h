#ifndef TOOLS_RUNNER_RUNNER_H
#define TOOLS_RUNNER_RUNNER_H

// zadi_runner: loads the plug-in as the agent does (dlopen, items by name),
// keeps one context per configured item and calls items on their periods.
//
// Extension points, each usable from a separate source file:
//  - subcommands: define `int Fn(RunnerEnv&, const std::vector<std::string>&)`
//    and register it with ZADI_RUNNER_SUBCOMMAND(ident, "name", "summary", Fn)
//    (a fifth argument lists the global options it accepts, see Option);
//  - after-call hooks: derive from PostCallHook and register an instance
//    with ZADI_RUNNER_POST_CALL_HOOK(ident, Type) (or AddPostCallHook).

#include <stdio.h>

#include <initializer_list>
#include <string>
#include <vector>

#include "plugin/linux/fi_types.h"

namespace zr {

// Exit statuses, the same for every subcommand.
enum ExitStatus {
    kExitOk = 0,          // every call answered (priming included)
    kExitSetup = 1,       // library, configuration or a system call failed
    kExitUsage = 2,       // bad option, argument or conflicting options
    kExitItemFailed = 3,  // an item answered result -1 (its last call)
    kExitNoMatch = 4,     // no process matched a process item (its last call)
};

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
enum class Match { kNone, kExact, kPrefix, kWildcard };
struct ItemInfo {
    const char* name;
    const char* unit;    // "%", "%core", "MB", "exists", "beats", ""
    const char* params;  // names it reads, space-separated; a trailing "..." accepts any more
    Match match;         // how ProcessName finds processes
    bool reports_pid;    // writes the pid field of the result
    bool primes;         // measures since its previous call: the first call only primes
    const char* meaning;
};
const ItemInfo* FindItemInfo(const std::string& name);
const std::vector<ItemInfo>& KnownItems();
// One line per unit, for --help and `items`.
const char* UnitLegend();

// ---- configuration ----
struct Param {
    std::string name;
    std::string value;
};
constexpr unsigned kDefaultPeriodS = 5;
struct ConfiguredItem {
    std::string item;
    unsigned period_s = kDefaultPeriodS;
    std::vector<Param> params;
    int line = 0;  // source line, 0 for built-in/ad-hoc items
};
struct Config {
    std::vector<ConfiguredItem> items;
};
// Appends a parameter, refusing names the item does not read, a name given
// twice, and names and values that do not fit FI_PARAM_S.
bool AddParam(ConfiguredItem* item, const std::string& name, const std::string& value, std::string* error);
// One configuration line (key=value fields separated by commas, blanks
// around both trimmed). False with a message naming the line when it is
// malformed or names no known item.
bool ParseConfigLine(const std::string& text, int line_no, ConfiguredItem* out, std::string* error);
// Whole file text; lines holding '#' anywhere and blank lines are skipped.
bool ParseConfigText(const std::string& text, Config* out, std::string* error);
bool LoadConfigFile(const std::string& path, Config* out, std::string* error);
// Inspects this machine: every system item, the root file system, and
// process items of each flavour aimed at init (pid 1).
Config DefaultConfig();

// ---- options and the environment handed to subcommands ----
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
    std::string lib;     // empty: DefaultLibraryPath()
    std::string config;  // empty: DefaultConfig()
    bool json = false;
    bool once = false;
    bool exit_zero = false;
    std::string textfile;  // directory for zadi.prom, empty: none
    std::string listen;    // serve's ADDR:PORT, empty: the default
    std::string log_file;  // the runner's own messages, empty: standard error
    bool plugin_log = false;
    long rounds = 0;     // 0: until interrupted
    unsigned given = 0;  // Option bits present on the command line
};
class Metrics;
struct RunnerEnv {
    Options options;
    PluginLibrary library;
    FILE* out = stdout;
    FILE* err = stderr;
    Metrics* metrics = nullptr;  // set while the items' answers are kept for Prometheus
};

// ---- one call of one item ----
enum class CallState { kOk, kPriming, kNoMatch, kFailed };
struct ItemState {
    ConfiguredItem config;
    const ItemInfo* info = nullptr;
    FI_ITEM_FN fn = nullptr;
    std::vector<FI_PARAM_S> argv;
    FI_CONTEXT_S context;  // zeroed once, kept across calls like the agent
    bool primed = false;   // a call since the last miss has stored a sample
    CallState last = CallState::kOk;
    long next_due_ms = 0;
};
struct CallRecord {
    unsigned long round;
    const ItemState* state;
    float value;
    FI_RESULT_S result;
    double elapsed_ms;
    CallState outcome;
};
// Resolves every configured item and builds its argument array. False with
// a message when an item is missing from the library.
bool PrepareItems(const Config& config, const PluginLibrary& lib, std::vector<ItemState>* states, std::string* error);
// Calls the item and tells a real zero from a miss: a process item that
// answers 0 is checked with the library's own pid lookup of the same flavour.
CallRecord CallItem(const PluginLibrary& lib, ItemState& state, unsigned long round);
// The run loop: rounds until --once/--rounds are done or a stop signal;
// `print` shows each call. Returns the exit status.
int RunItems(RunnerEnv& env, bool print);
// The exit status the items' last calls call for.
int StatusOfItems(const std::vector<ItemState>& states);
const char* StateName(CallState state);  // "ok", "priming", "no_match", "failed"

// ---- output ----
void PrintRoundHeader(FILE* out, unsigned long round);
void PrintTableHeader(FILE* out);
void PrintTableRow(FILE* out, const CallRecord& rec);
void PrintJson(FILE* out, const CallRecord& rec);
// A table row or a JSON line, as the options ask.
void PrintCall(RunnerEnv& env, const CallRecord& rec);
// The fault marker (ZADI_FAULT_MARKER_BITS) rather than a figure.
bool IsFaultMarker(float value);
std::string HostName();
// Prose for people: to standard output with a table, to standard error
// with --json so that standard output stays one JSON record a line.
void Say(RunnerEnv& env, const char* fmt, ...) __attribute__((format(printf, 2, 3)));

// One JSON object on one line, opened with the time and the host name and
// closed (with a newline) when the writer goes out of scope.
class JsonLine {
public:
    explicit JsonLine(FILE* out);
    ~JsonLine();
    JsonLine(const JsonLine&) = delete;
    JsonLine& operator=(const JsonLine&) = delete;
    JsonLine& Str(const char* key, const std::string& value);
    JsonLine& Num(const char* key, double value);
    JsonLine& Int(const char* key, long long value);
    JsonLine& Null(const char* key);
    JsonLine& Bool(const char* key, bool value);
    JsonLine& Params(const char* key, const std::vector<Param>& params);

private:
    void Key(const char* key);
    FILE* out_;
};

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
    unsigned options = kOptLib | kOptJson | kOptLog;  // global options it accepts
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

// With a stream, the plug-in's syslog lines are also copied there.
void CopyPluginLog(FILE* to);

// Handlers without SA_RESTART: a signal cuts sleeps and waits short.
void CatchSignals(void (*handler)(int), std::initializer_list<int> signals);

// Makes /proc/self/cmdline empty (or, without the privilege, blank) so that
// no process pattern, which may stand on the runner's own command line, can
// match the runner itself.
void HideCommandLine(int argc, char** argv);

}  // namespace zr

#define ZADI_RUNNER_SUBCOMMAND(ident, name, summary, ...) \
    static ::zr::SubcommandRegistrar ident##_subcommand({name, summary, __VA_ARGS__})
#define ZADI_RUNNER_POST_CALL_HOOK(ident, Type) static ::zr::PostCallHookRegistrar<Type> ident##_hook

#endif
