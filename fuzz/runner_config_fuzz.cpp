// The runner's configuration parser (zr::ParseConfigText) on arbitrary text:
// it must end, and what it accepts must name known items with parameters
// that fit the item records and a period above 0.

#include <stddef.h>
#include <stdint.h>
#include <stdlib.h>

#include <string>

#include "tools/runner/runner.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    zr::Config config;
    std::string error;
    if (!zr::ParseConfigText(text, &config, &error)) {
        if (error.empty()) abort();
        return 0;
    }
    if (config.items.empty()) abort();
    for (const zr::ConfiguredItem& item : config.items) {
        if (zr::FindItemInfo(item.item) == nullptr || item.period_s == 0 || item.line <= 0) abort();
        for (const zr::Param& p : item.params) {
            if (p.name.empty() || p.name.size() >= sizeof(FI_PARAM_S::name) ||
                p.value.size() >= sizeof(FI_PARAM_S::value)) {
                abort();
            }
        }
    }
    return 0;
}
