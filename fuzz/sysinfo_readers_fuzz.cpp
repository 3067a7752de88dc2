// The /proc readers' line array and parsers over arbitrary file contents:
// the first byte picks the processor asked for, the rest is the file. A
// loaded array must hold one line per new line read, every parser must run
// without reading outside a line, and a copied value must keep its first
// character and end without trailing blanks.

#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <string>

#include "os/sysinfo/sysinfo_internal.h"

using namespace kira_sysinfo;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 2) {
        return 0;
    }
    uint32_t processor = data[0] % 4;
    std::string file(reinterpret_cast<const char*>(data + 1), size - 1);
    FILE* fp = fmemopen(&file[0], file.size(), "r");
    if (fp == nullptr) {
        return 0;
    }
    FileLines loaded;
    if (read_file(fp, &loaded.lines, &loaded.count) != 0) {
        return 0;
    }
    for (uint32_t i = 0; i < loaded.count; i++) {
        if (loaded.lines[i] == nullptr) {
            abort();
        }
        char* value = copy_string_part_after_delim(loaded.lines[i], ": ");
        if (value != nullptr) {
            size_t len = strlen(value);
            if (len == 0 || (len > 1 && strchr(" \f\n\r\t\v", value[len - 1]) != nullptr)) {
                abort();
            }
            free(value);
        }
    }
    lscpu_t l = {};
    ParseLscpu(loaded.lines, loaded.count, &l);
    cpuinfo_t c = {};
    (void)ParseCpuinfo(loaded.lines, loaded.count, processor, &c);
    if (strnlen(c.modelName, sizeof(c.modelName)) == sizeof(c.modelName)) {
        abort();
    }
    netdev_info_t n = {};
    (void)ParseNetdev(loaded.lines, loaded.count, "lo", &n);
    disk_stats_t d = {};
    (void)ParseDiskstats(loaded.lines, loaded.count, "sda ", &d);
    processor_stat_t s = {};
    (void)ParseProcessorStats(loaded.lines[0], &s);
    return 0;
}
