// The IPv4 and IPv6 parsers against the C library's inet_pton: any
// difference other than the listed ones aborts. The input, cut at its first
// NUL, is the text, in a block of exactly its size so that a read past the
// terminator is caught.

#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>

#include <string>

#include "tests/os/net/inet_diff.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const size_t len = strnlen(reinterpret_cast<const char*>(data), size);
    char* text = static_cast<char*>(malloc(len + 1));
    memcpy(text, data, len);
    text[len] = '\0';
    const std::string diff = inet_diff::Compare(text);
    if (!diff.empty()) {
        fprintf(stderr, "\"%s\": %s\n", text, diff.c_str());
        abort();
    }
    free(text);
    return 0;
}
