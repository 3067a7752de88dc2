// The period conversion on arbitrary text: always within [0.5 s, 240 s].

#include <stddef.h>
#include <stdint.h>
#include <stdlib.h>

#include <string>

#include "plugin/linux/zadi_linux_plugin.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    const int us = ConvertStr2PeriodUS(text.c_str());
    if (us < 500000 || us > 240000000) {
        abort();
    }
    return 0;
}
