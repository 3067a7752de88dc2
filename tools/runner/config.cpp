// The runner's configuration: one item a line, key=value fields separated by
// commas, blanks around '=' and ',' ignored ("item" and "period" are the
// runner's, every other field becomes an item parameter in order); lines
// holding '#' anywhere and blank lines are skipped. Then the parameter
// checks a file and `call` share, and the built-in set used without a file.

#include "tools/runner/config.h"

#include <errno.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>

#include <algorithm>
#include <fstream>
#include <sstream>

#include "plugin/linux/fi_types.h"
#include "tools/runner/item_catalog.h"

namespace zadi_runner {

namespace {

constexpr size_t kMaxName = sizeof(FI_PARAM_S::name) - 1;
constexpr size_t kMaxValue = sizeof(FI_PARAM_S::value) - 1;

std::string Trim(const std::string& text) {
    const size_t first = text.find_first_not_of(" \t\r\n");
    return first == std::string::npos ? "" : text.substr(first, text.find_last_not_of(" \t\r\n") - first + 1);
}

// Nine digits at most, so that the period never wraps.
bool ParsePeriod(const std::string& text, unsigned* out) {
    if (text.empty() || text.size() > 9 || text.find_first_not_of("0123456789") != std::string::npos) {
        return false;
    }
    *out = static_cast<unsigned>(strtoul(text.c_str(), nullptr, 10));
    return *out != 0;
}

// The message without its "line N: ", which the caller adds.
bool ParseConfigLine(const std::string& text, ConfiguredItem* item, std::string* error) {
    std::vector<Param> params;
    bool period_given = false;
    for (size_t start = 0, comma = 0; comma != std::string::npos; start = comma + 1) {
        comma = text.find(',', start);
        const std::string field = Trim(text.substr(start, comma - start));
        const size_t eq = field.find('=');
        const std::string key = eq == std::string::npos ? "" : Trim(field.substr(0, eq));
        const std::string value = key.empty() ? "" : Trim(field.substr(eq + 1));
        if (key.empty()) {
            *error = "malformed field \"" + field + "\" (expected key=value)";
            return false;
        }
        if ((key == "item" && !item->item.empty()) || (key == "period" && period_given)) {
            *error = "\"" + key + "\" given twice";
            return false;
        }
        if (key == "item") {
            item->item = value;
        } else if (key == "period") {
            period_given = true;
            if (!ParsePeriod(value, &item->period_s)) {
                *error = "period must be a whole number of seconds above 0: \"" + value + "\"";
                return false;
            }
        } else {
            params.push_back({key, value});
        }
    }
    if (item->item.empty()) {
        *error = "no item= field";
        return false;
    }
    if (FindItemInfo(item->item) == nullptr) {
        *error = "unknown item \"" + item->item + "\" (see zadi_runner items)";
        return false;
    }
    // Parameters are checked once the item is known, wherever item= stands.
    return std::all_of(params.begin(), params.end(),
                       [&](const Param& p) { return AddParam(item, p.name, p.value, error); });
}

// A process's command line as the items compare it: NULs read as spaces, up
// to an empty argument; "" when unreadable.
std::string CommandLineOf(const char* pid) {
    std::ifstream in(std::string("/proc/") + pid + "/cmdline", std::ios::binary);
    std::ostringstream raw;
    raw << in.rdbuf();
    std::string text = raw.str();
    text.resize(std::min(text.size(), text.find(std::string(2, '\0'))));
    if (!text.empty() && text.back() == '\0') {
        text.pop_back();
    }
    std::replace(text.begin(), text.end(), '\0', ' ');
    return text;
}

ConfiguredItem Item(const char* name, std::vector<Param> params = {}) {
    ConfiguredItem item;
    item.item = name;
    item.params = std::move(params);
    return item;
}

}  // namespace

bool AddParam(ConfiguredItem* item, const std::string& name, const std::string& value, std::string* error) {
    const ItemInfo* info = FindItemInfo(item->item);
    if (info != nullptr && !ReadsParam(*info, name)) {
        *error = item->item + " reads no parameter \"" + name + "\" (" +
                 (info->params.empty() ? "it reads none" : "it reads: " + info->params) + ")";
        return false;
    }
    // An empty name would match only a process whose command line reads
    // empty: the runner itself, which hides its own.
    if (name == "ProcessName" && value.empty()) {
        *error = "ProcessName is empty";
        return false;
    }
    if (std::any_of(item->params.begin(), item->params.end(), [&](const Param& p) { return p.name == name; })) {
        *error = "parameter \"" + name + "\" given twice";
        return false;
    }
    if (name.size() > kMaxName) {
        *error = "parameter name longer than " + std::to_string(kMaxName) + " characters: " + name;
        return false;
    }
    if (value.size() > kMaxValue) {
        *error = "value of " + name + " longer than " + std::to_string(kMaxValue) + " characters";
        return false;
    }
    item->params.push_back({name, value});
    return true;
}

bool ParseConfigText(const std::string& text, Config* out, std::string* error) {
    std::istringstream in(text);
    Config config;
    int line_no = 0;
    for (std::string line; std::getline(in, line);) {
        ++line_no;
        if (Trim(line).empty() || line.find('#') != std::string::npos) {
            continue;
        }
        config.items.emplace_back();
        config.items.back().line = line_no;
        if (!ParseConfigLine(line, &config.items.back(), error)) {
            *error = "line " + std::to_string(line_no) + ": " + *error;
            return false;
        }
    }
    if (config.items.empty()) {
        *error = "the configuration names no item";
        return false;
    }
    *out = config;
    return true;
}

bool LoadConfigFile(const std::string& path, Config* out, std::string* error) {
    struct stat st;
    if (stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode)) {
        *error = path + " is a directory, not a configuration file";
        return false;
    }
    std::ifstream in(path);
    if (!in) {
        *error = "cannot read configuration " + path + ": " + strerror(errno);
        return false;
    }
    std::ostringstream text;
    text << in.rdbuf();
    if (!ParseConfigText(text.str(), out, error)) {
        *error = path + ": " + *error;
        return false;
    }
    return true;
}

// init, which every machine runs, is the process items' target; the runner
// never aims at itself (it hides its own command line).
Config DefaultConfig() {
    Config config;
    for (const char* system : {"GetSysCPU", "GetSysUsrCPU", "GetSysMemory", "GetSysFreeMemory"}) {
        config.items.push_back(Item(system));
    }
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

}  // namespace zadi_runner
