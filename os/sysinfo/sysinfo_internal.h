#ifndef OS_SYSINFO_SYSINFO_INTERNAL_H
#define OS_SYSINFO_SYSINFO_INTERNAL_H

// Internals of the system information layer shared by its files and its
// tests: the sampler's steps, the line array, the parsers the readers run
// over loaded lines, and the pool's counters. Nothing here is exported.

#include <stdint.h>
#include <stdio.h>

#include "os/base/kira_atomic.h"
#include "os/sysinfo/kira_sysinfo.h"

namespace kira_sysinfo {

// ---- CPU usage sampler ----
// 1 with the idle and total ticks of the first /proc/stat line, 0 when it
// cannot be read or holds fewer than 4 counters.
int KIRA_GetSystemTimes(uint64_t* idle, uint64_t* total);
// A zero total leaves the figure unchanged.
void KIRA_UpdateCpuUsage(uint64_t idleDelta, uint64_t totalDelta);
void* KIRA_CalcCpuUsageThread(void* unused);
// The stop flag: 0 running, 1 stop asked; the sampler resets it on leaving.
int32_t KIRA_SysInfoExitFlag(void);

// ---- line array ----
// Every line of the stream, each allocated separately with its new line;
// 0, -1 or -22. The count is that of new lines seen in a first pass, so a
// last line without one makes the read fail ("too much lines to read!").
int read_fp_to_2d_buffer(FILE* fp, char*** lines, uint32_t* count);
// As above but always closes fp; 0 or -1.
int read_file(FILE* fp, char*** lines, uint32_t* count);
void free_2d_buffer(char** lines, uint32_t count);
// A new copy of what follows the first occurrence of key in line, trailing
// blanks removed (never the first character); null when absent or empty.
char* copy_string_part_after_delim(const char* line, const char* key);
// Where the text after the first occurrence of key in line starts; null when
// key is absent or nothing follows it (the match rule of every reader).
const char* ValueAfter(const char* line, const char* key);

// A loaded file, freed with its owner.
struct FileLines {
    char** lines = nullptr;
    uint32_t count = 0;
    FileLines() = default;
    FileLines(const FileLines&) = delete;
    FileLines& operator=(const FileLines&) = delete;
    ~FileLines() { free_2d_buffer(lines, count); }
};
// fopen and read_file with the readers' messages ("Failed to open %s
// file.", "Failed to read %s!"); 0 or -1.
int LoadLines(const char* path, FileLines* out);

// ---- parsers over loaded lines (slots may be null) ----
void ParseLscpu(char* const* lines, uint32_t count, lscpu_t* info);
int ParseCpuinfo(char* const* lines, uint32_t count, uint32_t processor, cpuinfo_t* desc);
int ParseNetdev(char* const* lines, uint32_t count, const char* name, netdev_info_t* stat);
int ParseDiskstats(char* const* lines, uint32_t count, const char* key, disk_stats_t* stat);
// Ten counters from the sixth character of the first /proc/stat line
// when it holds "cpu  "; 0 or -1.
int ParseProcessorStats(const char* firstLine, processor_stat_t* counters);

// ---- scheduled work pool ----
extern atomic64_t g_stSchedWorkAlive;  // threads alive
extern atomic64_t g_stSchedWorkSpare;  // threads waiting for work or being started to wait

}  // namespace kira_sysinfo

#endif
