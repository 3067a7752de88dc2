// Per-process and system /proc files: opening by pid, the first line of a
// file, one pass over a status file for its name and resident memory, and
// the parsers of single stat, status and limits lines.

#include <string.h>

#include "plugin/linux/proc_read_internal.h"
#include "safec/safec.h"

namespace zadi {

bool OpenPidFile(kira::LineReader& reader, char (&path)[kPidPathSize], long long pid, const char* leaf) {
    if (!kira::ProcPidPath(path, kPidPathSize, pid, leaf)) {
        return false;
    }
    return reader.Open(path, kira::ReadEnd::kShortRead);
}

FirstLine ReadFirstLine(const char* path, char* buf, int size) {
    kira::LineReader reader;
    if (!reader.Open(path, kira::ReadEnd::kShortRead)) {
        return FirstLine::kOpenFailed;
    }
    return reader.Gets(buf, size) ? FirstLine::kOk : FirstLine::kEmpty;
}

void ScanStatus(kira::LineReader& reader, StatusScan* scan) {
    const bool wantName = scan->name != nullptr;
    const bool wantRss = scan->rssKb != nullptr;
    if (wantRss) {
        *scan->rssKb = 0;
    }
    char line[kStatusLineSize];
    while ((wantName && !scan->nameFound) || (wantRss && !scan->rssFound)) {
        if (!reader.Gets(line, sizeof(line))) {
            return;
        }
        if (wantName && !scan->nameFound && strstr(line, "Name:") != nullptr) {
            // A name with a space keeps only its first word.
            (void)sscanf_s(line, "%*s %s", scan->name, static_cast<unsigned int>(scan->nameSize));
            scan->nameFound = true;
        }
        if (wantRss && !scan->rssFound && strstr(line, "VmRSS:") != nullptr) {
            *scan->rssKb = ParseStatusKb(line);
            scan->rssFound = true;
        }
    }
}

unsigned long long ParseStatLineTicks(const char* line) {
    unsigned long long utime = 0;
    unsigned long long stime = 0;
    const char* fields = ZADI_Linux_Plugin::get_items(line, 14);
    if (fields != nullptr) {
        (void)sscanf_s(fields, "%llu %llu", &utime, &stime);
    }
    return utime + stime;
}

int ParseStatusKb(const char* line) {
    int kb = 0;
    (void)sscanf_s(line, "%*s %d", &kb);
    return kb;
}

int ParseLimitSoft(const char* line) {
    int soft = 0;
    (void)sscanf_s(line, "%*s %*s %*s %d", &soft);
    return soft;
}

}  // namespace zadi

const char* ZADI_Linux_Plugin::get_items(const char* str, int n) {
    if (str == nullptr) {
        return nullptr;
    }
    if (n < 2) {
        return str;
    }
    // Single spaces are counted; runs of spaces are not merged.
    int spaces = 0;
    const char* p = str;
    for (; *p != '\0'; ++p) {
        if (*p == ' ' && ++spaces == n - 1) {
            return p + 1;
        }
    }
    return p;
}
