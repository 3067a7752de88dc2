// The runner's configuration parser (zadi_runner::ParseConfigText) on arbitrary text:
// it must end, and what it accepts must name known items with parameters
// that fit the item records and a period above 0.

#include <stddef.h>
#include <stdint.h>
#include <stdlib.h>

#include <string>

#include "plugin/linux/fi_types.h"
#include "tools/runner/config.h"
#include "tools/runner/item_catalog.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    zadi_runner::Config config;
    std::string error;
    if (!zadi_runner::ParseConfigText(text, &config, &error)) {
        if (error.empty()) {
            abort();
        }
        return 0;
    }
    if (config.items.empty()) {
        abort();
    }
    for (const zadi_runner::ConfiguredItem& item : config.items) {
        if (zadi_runner::FindItemInfo(item.item) == nullptr || item.period_s == 0 || item.line <= 0) {
            abort();
        }
        for (const zadi_runner::Param& p : item.params) {
            if (p.name.empty() || p.name.size() >= sizeof(FI_PARAM_S::name) ||
                p.value.size() >= sizeof(FI_PARAM_S::value)) {
                abort();
            }
        }
    }
    return 0;
}
