// Module lines and level lines; the first input byte picks the parser.

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
    if (data[0] & 1u) {
        (void)read_log_level_conf_line(line);
    } else {
        (void)read_pid_conf_line(line);
    }
    return 0;
}
