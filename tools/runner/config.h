#ifndef TOOLS_RUNNER_CONFIG_H
#define TOOLS_RUNNER_CONFIG_H

// Which items run, on which periods, with which parameters: a configuration
// file, or the built-in set that inspects this machine.

#include <string>
#include <vector>

namespace zadi_runner {

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
// False with a message naming the line when a line is malformed or names
// no known item.
bool ParseConfigText(const std::string& text, Config* out, std::string* error);
bool LoadConfigFile(const std::string& path, Config* out, std::string* error);
// Every system item, the root file system, and process items of each
// flavour aimed at init (pid 1).
Config DefaultConfig();

}  // namespace zadi_runner

#endif
