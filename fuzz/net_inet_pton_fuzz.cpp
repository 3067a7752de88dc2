// The IPv4 and IPv6 parsers against the C library's inet_pton: any
// difference other than the listed ones aborts. The input, cut at its first
// NUL, is the text.

#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>

#include <string>

#include "tests/os/net/inet_diff.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), strnlen(reinterpret_cast<const char*>(data), size));
    const std::string diff = inet_diff::Compare(text);
    if (!diff.empty()) {
        fprintf(stderr, "\"%s\": %s\n", text.c_str(), diff.c_str());
        abort();
    }
    return 0;
}
