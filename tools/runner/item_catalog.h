#ifndef TOOLS_RUNNER_ITEM_CATALOG_H
#define TOOLS_RUNNER_ITEM_CATALOG_H

// What the runner knows of each item, from the plug-in's one list of items
// (plugin/linux/zadi_item_list.h), and the parameters the runner reads
// itself on an item's line.

#include <string>
#include <vector>

namespace zadi_runner {

enum class Match { kNone, kExact, kPrefix, kWildcard };
struct ItemInfo {
    const char* name;
    const char* unit;    // "%", "%core", "MB", "exists", "beats", ""
    std::string params;  // names it reads, space-separated; a trailing "..." accepts any more
    Match match;         // how ProcessName finds processes
    bool reports_pid;    // writes the pid field of the result
    bool primes;         // measures since its previous call: the first call only primes
    const char* meaning;
};
const std::vector<ItemInfo>& KnownItems();
const ItemInfo* FindItemInfo(const std::string& name);
bool ReadsParam(const ItemInfo& info, const std::string& name);
// ErrRpt and ErrRptUserData: the heartbeat report's switches, not the item's.
bool IsRunnerParam(const std::string& name);
// One line per unit, for --help and `items`.
const char* UnitLegend();

}  // namespace zadi_runner

#endif
