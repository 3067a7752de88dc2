// Group limit lines, with or without the local flag (first input byte).

#include "fuzz/log_conf_fuzz.h"

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    InitLogConfFuzz();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0) {
        return 0;
    }
    char line[DBG_CONF_LINE_SIZE];
    CopyConfLine(data, size, line);
    (void)read_gid_conf_line(line, data[0] & 1u);
    return 0;
}
