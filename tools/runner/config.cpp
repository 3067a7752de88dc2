// The runner's configuration: one item a line, key=value fields separated by
// commas ("item" and "period" are the runner's, every other field becomes an
// item parameter in order); lines holding '#' anywhere or empty are skipped.
// Also the built-in configuration that inspects this machine.

#include <stdlib.h>

#include <fstream>
#include <sstream>

#include "tools/runner/runner.h"

namespace zr {

namespace {

constexpr size_t kMaxName = sizeof(((FI_PARAM_S*)nullptr)->name) - 1;
constexpr size_t kMaxValue = sizeof(((FI_PARAM_S*)nullptr)->value) - 1;

std::string Where(int line_no) { return line_no > 0 ? "line " + std::to_string(line_no) + ": " : ""; }

bool ParsePeriod(const std::string& text, unsigned* out) {
    if (text.empty() || text.size() > 9) {
        return false;
    }
    for (char c : text) {
        if (c < '0' || c > '9') {
            return false;
        }
    }
    const unsigned long v = strtoul(text.c_str(), nullptr, 10);
    if (v == 0) {
        return false;
    }
    *out = static_cast<unsigned>(v);
    return true;
}

std::vector<std::string> SplitFields(const std::string& text) {
    std::vector<std::string> fields;
    size_t start = 0;
    for (;;) {
        const size_t comma = text.find(',', start);
        fields.push_back(text.substr(start, comma == std::string::npos ? std::string::npos : comma - start));
        if (comma == std::string::npos) {
            return fields;
        }
        start = comma + 1;
    }
}

}  // namespace

bool AddParam(ConfiguredItem* item, const std::string& name, const std::string& value, std::string* error) {
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

bool ParseConfigLine(const std::string& raw, int line_no, ConfiguredItem* out, std::string* error) {
    std::string text = raw;
    while (!text.empty() && (text.back() == '\n' || text.back() == '\r')) {
        text.pop_back();
    }
    ConfiguredItem item;
    item.line = line_no;
    for (const std::string& field : SplitFields(text)) {
        const size_t eq = field.find('=');
        if (eq == std::string::npos || eq == 0) {
            *error = Where(line_no) + "malformed field \"" + field + "\" (expected key=value)";
            return false;
        }
        const std::string key = field.substr(0, eq);
        const std::string value = field.substr(eq + 1);
        std::string why;
        if (key == "item") {
            item.item = value;
        } else if (key == "period") {
            if (!ParsePeriod(value, &item.period_s)) {
                *error = Where(line_no) + "period must be a whole number of seconds above 0: \"" + value + "\"";
                return false;
            }
        } else if (!AddParam(&item, key, value, &why)) {
            *error = Where(line_no) + why;
            return false;
        }
    }
    if (item.item.empty()) {
        *error = Where(line_no) + "no item= field";
        return false;
    }
    if (FindItemInfo(item.item) == nullptr) {
        *error = Where(line_no) + "unknown item \"" + item.item + "\"";
        return false;
    }
    *out = item;
    return true;
}

bool ParseConfigText(const std::string& text, Config* out, std::string* error) {
    std::istringstream in(text);
    std::string line;
    int line_no = 0;
    Config config;
    while (std::getline(in, line)) {
        ++line_no;
        if (line.empty() || line == "\r" || line.find('#') != std::string::npos) {
            continue;
        }
        ConfiguredItem item;
        if (!ParseConfigLine(line, line_no, &item, error)) {
            return false;
        }
        config.items.push_back(item);
    }
    if (config.items.empty()) {
        *error = "the configuration names no item";
        return false;
    }
    *out = config;
    return true;
}

bool LoadConfigFile(const std::string& path, Config* out, std::string* error) {
    std::ifstream in(path);
    if (!in) {
        *error = "cannot read configuration " + path;
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

namespace {

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

    // The runner itself: an exact name when its command line fits a
    // parameter, otherwise its leading part as a prefix.
    const std::string self = CommandLineOf("self");
    if (!self.empty() && self.size() <= kMaxValue) {
        config.items.push_back(Item("GetProcessCoreCPU", {{"ProcessName", self}}));
        config.items.push_back(Item("GetProcessMemory", {{"ProcessName", self}}));
        config.items.push_back(Item("GetProcessHandle", {{"ProcessName", self}}));
    } else if (!self.empty()) {
        const std::string prefix = self.substr(0, kMaxValue);
        config.items.push_back(Item("GetProcessMemoryExtern", {{"ProcessName", prefix}}));
        config.items.push_back(Item("GetProcessHandleExtern", {{"ProcessName", prefix}}));
    }
    config.items.push_back(Item("GetProcessMemoryFuzzyMatch", {{"ProcessName", "*zadi_runner*"}}));

    std::string init = CommandLineOf("1");
    if (init.empty() || init.size() > kMaxValue) {
        init = "/sbin/init";
    }
    config.items.push_back(Item("IsExistProcess", {{"ProcessName", init}}));
    config.items.push_back(Item("GetProcessMemory", {{"ProcessName", init}}));
    const std::string init_prog = init.substr(0, init.find(' '));
    config.items.push_back(Item("IsExistProcessExtern", {{"ProcessName", init_prog}}));
    return config;
}

}  // namespace zr
