// The catalogue: the plug-in's list of items expanded once, with the
// heartbeat report's switches added to ProcessHeartBeat's parameters (the
// item receives them too and ignores them), and the legend of the units.

#include "tools/runner/item_catalog.h"

#include <sstream>

#include "plugin/linux/zadi_item_list.h"

namespace zadi_runner {

namespace {

constexpr char kReportSwitches[] = " ErrRpt ErrRptUserData";

std::string ParamsOf(const std::string& item, const char* params) {
    return item == "ProcessHeartBeat" ? params + std::string(kReportSwitches) : params;
}

}  // namespace

const std::vector<ItemInfo>& KnownItems() {
#define ZADI_RUNNER_ITEM_INFO(name, unit, params, match, reports_pid, primes, meaning) \
    {#name, unit, ParamsOf(#name, params), Match::k##match, reports_pid != 0, primes != 0, meaning},
    static const std::vector<ItemInfo> items = {ZADI_ITEM_LIST(ZADI_RUNNER_ITEM_INFO)};
#undef ZADI_RUNNER_ITEM_INFO
    return items;
}

const ItemInfo* FindItemInfo(const std::string& name) {
    for (const ItemInfo& info : KnownItems()) {
        if (name == info.name) {
            return &info;
        }
    }
    return nullptr;
}

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

bool IsRunnerParam(const std::string& name) {
    return (kReportSwitches + std::string(" ")).find(" " + name + " ") != std::string::npos;
}

const char* UnitLegend() {
    return "  %       percent: of all processors together (CPU), of the file system (disk),\n"
           "          of memory, or of the process's open-files limit (handles)\n"
           "  %core   percent of one processor: 100 is one processor busy, 200 two\n"
           "  MB      whole megabytes (resident or free memory)\n"
           "  exists  1 running, 0 not running;  beats: 1 beating, 0 hung\n";
}

}  // namespace zadi_runner
