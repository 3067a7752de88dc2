#ifndef OS_TIME_ZONE_INTERNAL_H
#define OS_TIME_ZONE_INTERNAL_H

// Helpers of the zone and daylight-saving code; never exported. The rules of
// a zone come from the text of "zdump -v", cached in a file per zone beside
// the directory "/var/run/timezone".

#include <stdint.h>
#include <time.h>

#include "os/base/kira_io.h"
#include "os/time/kira_timezone.h"

#define KIRA_ZONEINFO_DIR "/usr/share/zoneinfo/"
#define KIRA_ZDUMP_CACHE_DIR "/var/run/timezone"
#define KIRA_LOCALTIME_LINK "/etc/localtime"
#define KIRA_ZONE_NAME_SIZE 64
#define KIRA_TIME_PATH_SIZE 256
#define KIRA_TIME_CMD_SIZE 256
// Lines of the cache are read in pieces of at most this size less one.
#define KIRA_DST_LINE_SIZE 128

namespace kira_time {

// One line of "zdump -v": a transition's last second before it, or its first
// second.
typedef struct tagKIRA_DST_LINE_S {
    struct tm utc;
    struct tm local;  // advanced by one second
    char abbrev[32];
    int32_t isdst;
    int32_t gmtoff;
} KIRA_DST_LINE_S;

// False for a name the zone database cannot hold, which may reach a shell
// command line: characters outside letters, digits, "/_-+.", an empty or
// ".." component, a leading "/".
bool zone_name_is_valid(const char* zone);
// Fills path with the zone's file in the zone database; -1 after logging
// "file %s not exist" when the name is refused or the file is missing.
int zone_file_path(const char* zone, char* path, size_t size);
// The cache file of the zone, made by zdump when absent; 0 or -1. A failed
// dump's output is removed, so a partial cache is never read as the zone's.
int zdump_timezone(const char* zone, char* path, size_t size);
int month_name_to_index(const char* name);
// 0, or the count of fields scanned when the line does not match fully
// (negative when nothing could be scanned).
int read_dst_line(const char* line, KIRA_DST_LINE_S* rec);

time_t get_this_year_begin(int year);
time_t get_this_year_end(int year);
int get_dst_begin(kira::LineReader* reader, int year, KIRA_DST_PERIOD_S* period);
void get_dst_end(kira::LineReader* reader, int year, KIRA_DST_PERIOD_S* period);
int read_dst_file(const char* path, int year, KIRA_DST_CONFIG_S* config);

int get_this_year(void);
int32_t get_gmt_offset(const struct tm* tm);
int get_timezone_name(char* buffer, size_t size);
int read_timezone_file(const char* path, int64_t low, int64_t high, KIRA_TZ_TRANSITIONS_S* table);

}  // namespace kira_time

#endif
