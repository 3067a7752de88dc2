// The wildcard matcher on arbitrary text and patterns: must end, never read
// outside either string, and agree with the properties every caller relies on.

#include <stddef.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>

#include <string>

#include "plugin/linux/zadi_linux_plugin.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    // First byte splits the input into text and pattern.
    if (size < 1) {
        return 0;
    }
    const size_t cut = data[0] % (size);
    std::string text(reinterpret_cast<const char*>(data + 1), cut > 0 ? cut - 1 : 0);
    std::string pattern(reinterpret_cast<const char*>(data + 1 + text.size()), size - 1 - text.size());
    text = text.c_str();  // up to an embedded NUL, as the callers see it
    pattern = pattern.c_str();
    const bool m = ZADI_Linux_Plugin::str_fuzzy_match(text.c_str(), pattern.c_str());
    // A text always matches itself when it holds no wildcard.
    if (text.find_first_of("*?") == std::string::npos &&
        !ZADI_Linux_Plugin::str_fuzzy_match(text.c_str(), text.c_str())) {
        abort();
    }
    // A trailing '*' only widens a match.
    if (m && !ZADI_Linux_Plugin::str_fuzzy_match(text.c_str(), (pattern + "*").c_str())) {
        abort();
    }
    return 0;
}
