// The built-in configuration: every system item, the root file system, and
// one process item of each flavour aimed at init (pid 1), which every
// machine runs. The runner never aims at itself: it hides its own command
// line (see HideCommandLine).

#include <algorithm>
#include <fstream>
#include <iterator>

#include "tools/runner/runner.h"

namespace zr {

namespace {

constexpr size_t kMaxValue = sizeof(((FI_PARAM_S*)nullptr)->value) - 1;

// A process's command line as the items compare it (NULs to spaces, ending
// at an empty argument), or "" when unreadable.
std::string CommandLineOf(const char* pid) {
    std::ifstream in(std::string("/proc/") + pid + "/cmdline", std::ios::binary);
    std::string raw((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    std::string text;
    for (size_t i = 0; i < raw.size(); ++i) {
        if (raw[i] != '\0') {
            text += raw[i];
        } else if (i + 1 < raw.size() && raw[i + 1] != '\0') {
            text += ' ';
        } else {
            break;
        }
    }
    return text;
}

ConfiguredItem Item(const char* name, std::vector<Param> params = {}) {
    ConfiguredItem item;
    item.item = name;
    item.params = std::move(params);
    return item;
}

}  // namespace

Config DefaultConfig() {
    Config config;
    config.items.push_back(Item("GetSysCPU"));
    config.items.push_back(Item("GetSysUsrCPU"));
    config.items.push_back(Item("GetSysMemory"));
    config.items.push_back(Item("GetSysFreeMemory"));
    config.items.push_back(Item("GetDiskUsage", {{"Path", "/"}}));

    // Exact items need init's whole command line to fit a parameter; the
    // prefix and wildcard ones take its leading part. Unreadable: none.
    const std::string init = CommandLineOf("1");
    if (init.empty()) {
        return config;
    }
    if (init.size() <= kMaxValue) {
        for (const char* exact : {"IsExistProcess", "GetProcessCoreCPU", "GetProcessMemory", "GetProcessHandle"}) {
            config.items.push_back(Item(exact, {{"ProcessName", init}}));
        }
    }
    const std::string init_prog = init.substr(0, std::min(init.find(' '), kMaxValue - 1));
    config.items.push_back(Item("GetProcessMemoryExtern", {{"ProcessName", init_prog}}));
    config.items.push_back(Item("GetProcessMemoryFuzzyMatch", {{"ProcessName", init_prog + "*"}}));
    return config;
}

}  // namespace zr
