// Parsers of /proc lines on arbitrary bytes: the stat-line fields, status
// and limits rows, field stepping, and the cmdline-to-text conversion.

#include <stddef.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>

#include <vector>

#include "plugin/linux/plugin_internal.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    std::vector<char> line(data, data + size);
    line.push_back('\0');
    (void)zadi::ParseStatLineTicks(line.data());
    (void)zadi::ParseStatusKb(line.data());
    (void)zadi::ParseLimitSoft(line.data());
    for (int n = -1; n < 20; ++n) {
        const char* p = ZADI_Linux_Plugin::get_items(line.data(), n);
        if (p < line.data() || p > line.data() + strlen(line.data())) {
            abort();
        }
    }
    // The conversion never touches the last byte and never runs past it.
    std::vector<char> raw(data, data + size);
    if (!raw.empty()) {
        const char last = raw.back();
        ZADI_Linux_Plugin::change_cmdlie_to_str(raw.data(), static_cast<unsigned int>(raw.size()));
        if (raw.back() != last) {
            abort();
        }
    }
    return 0;
}
