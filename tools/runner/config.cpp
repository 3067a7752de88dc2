// The runner's configuration: one item a line, key=value fields separated by
// commas, blanks around '=' and ',' ignored ("item" and "period" are the
// runner's, every other field becomes an item parameter in order); lines
// holding '#' anywhere and blank lines are skipped.

#include <errno.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>

#include <fstream>
#include <sstream>

#include "tools/runner/runner.h"

namespace zr {

namespace {

constexpr size_t kMaxName = sizeof(((FI_PARAM_S*)nullptr)->name) - 1;
constexpr size_t kMaxValue = sizeof(((FI_PARAM_S*)nullptr)->value) - 1;

std::string Where(int line_no) { return line_no > 0 ? "line " + std::to_string(line_no) + ": " : ""; }

std::string Trim(const std::string& text) {
    const char* blanks = " \t\r\n";
    const size_t first = text.find_first_not_of(blanks);
    if (first == std::string::npos) {
        return "";
    }
    return text.substr(first, text.find_last_not_of(blanks) - first + 1);
}

bool ParsePeriod(const std::string& text, unsigned* out) {
    if (text.empty() || text.size() > 9 || text.find_first_not_of("0123456789") != std::string::npos) {
        return false;
    }
    const unsigned long v = strtoul(text.c_str(), nullptr, 10);
    *out = static_cast<unsigned>(v);
    return v != 0;
}

std::vector<std::string> SplitFields(const std::string& text) {
    std::vector<std::string> fields;
    std::istringstream in(text);
    std::string field;
    while (std::getline(in, field, ',')) {
        fields.push_back(Trim(field));
    }
    if (!text.empty() && text.back() == ',') {
        fields.emplace_back();
    }
    return fields;
}

// Whether `name` is one of the item's space-separated parameter names (or
// the list ends in "...", which takes any).
bool ReadsParam(const ItemInfo& info, const std::string& name) {
    std::istringstream names(info.params);
    std::string known;
    while (names >> known) {
        if (known == name || known == "...") {
            return true;
        }
    }
    return false;
}

}  // namespace

bool AddParam(ConfiguredItem* item, const std::string& name, const std::string& value, std::string* error) {
    const ItemInfo* info = FindItemInfo(item->item);
    if (info != nullptr && !ReadsParam(*info, name)) {
        *error = item->item + " reads no parameter \"" + name + "\" (" +
                 (*info->params != '\0' ? std::string("it reads: ") + info->params : "it reads none") + ")";
        return false;
    }
    // An empty name would match only a process whose command line reads
    // empty: the runner itself, which hides its own.
    if (name == "ProcessName" && value.empty()) {
        *error = "ProcessName is empty";
        return false;
    }
    for (const Param& p : item->params) {
        if (p.name == name) {
            *error = "parameter \"" + name + "\" given twice";
            return false;
        }
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

bool ParseConfigLine(const std::string& text, int line_no, ConfiguredItem* out, std::string* error) {
    std::vector<std::pair<std::string, std::string>> fields;
    ConfiguredItem item;
    item.line = line_no;
    bool period_given = false;
    for (const std::string& field : SplitFields(text)) {
        const size_t eq = field.find('=');
        const std::string key = eq == std::string::npos ? "" : Trim(field.substr(0, eq));
        if (key.empty()) {
            *error = Where(line_no) + "malformed field \"" + field + "\" (expected key=value)";
            return false;
        }
        const std::string value = Trim(field.substr(eq + 1));
        if ((key == "item" && !item.item.empty()) || (key == "period" && period_given)) {
            *error = Where(line_no) + "\"" + key + "\" given twice";
            return false;
        }
        if (key == "item") {
            item.item = value;
        } else if (key == "period") {
            period_given = true;
            if (!ParsePeriod(value, &item.period_s)) {
                *error = Where(line_no) + "period must be a whole number of seconds above 0: \"" + value + "\"";
                return false;
            }
        } else {
            fields.emplace_back(key, value);
        }
    }
    if (item.item.empty()) {
        *error = Where(line_no) + "no item= field";
        return false;
    }
    if (FindItemInfo(item.item) == nullptr) {
        *error = Where(line_no) + "unknown item \"" + item.item + "\" (see zadi_runner items)";
        return false;
    }
    // Parameters are checked once the item is known, wherever item= stands.
    for (const auto& f : fields) {
        std::string why;
        if (!AddParam(&item, f.first, f.second, &why)) {
            *error = Where(line_no) + why;
            return false;
        }
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
        if (Trim(line).empty() || line.find('#') != std::string::npos) {
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

}  // namespace zr
