// The line array the /proc readers load whole files into: a counting pass,
// then one getline allocation per line into exactly that many slots.

#include <stdlib.h>
#include <string.h>
#include <syslog.h>

#include "os/base/kira_raii.h"
#include "os/sysinfo/sysinfo_internal.h"
#include "safec/safec.h"

namespace kira_sysinfo {
namespace {

constexpr size_t kCountBufferSize = 1024;
constexpr int kCountPieceSize = 1023;

// Counts the fgets pieces that end with a new line: a long line counts once,
// a last line without a new line not at all, and a piece whose text stops
// at a NUL byte before its new line not at all. -1 when the scratch buffer
// cannot be had.
long CountLines(FILE* fp) {
    kira::UniqueBlock scratch(calloc(1, kCountBufferSize));
    if (!scratch) {
        syslog(LOG_INFO, "Failed to allocate memory for pre_line_buffer.\n");
        return -1;
    }
    char* piece = static_cast<char*>(scratch.get());
    long count = 0;
    while (fgets(piece, kCountPieceSize, fp) != nullptr) {
        size_t len = strlen(piece);
        if (len > 0 && piece[len - 1] == '\n') {
            count++;
        }
    }
    return count;
}

void ClearOutputs(char*** lines, uint32_t* count) {
    *lines = nullptr;
    *count = 0;
}

}  // namespace

int read_fp_to_2d_buffer(FILE* fp, char*** lines, uint32_t* count) {
    if (fp == nullptr) {
        syslog(LOG_INFO, "Given file pointer is NULL.\n");
        return -22;
    }
    if (lines == nullptr || count == nullptr) {
        return -22;
    }
    long counted = CountLines(fp);
    if (counted < 0) {
        return -1;
    }
    if (counted == 0) {
        syslog(LOG_INFO, "Given file empty, exit.\n");
        return -1;
    }
    rewind(fp);
    char** slots = static_cast<char**>(calloc(static_cast<size_t>(counted), sizeof(char*)));
    if (slots == nullptr) {
        syslog(LOG_INFO, "Failed to allocate memory.\n");
        return -1;
    }
    uint32_t stored = 0;
    char* line = nullptr;
    size_t capacity = 0;
    while (getline(&line, &capacity, fp) != -1) {
        // The array has exactly `counted` slots: an extra line is refused
        // before it would be stored.
        if (stored == static_cast<uint32_t>(counted)) {
            free(line);
            free_2d_buffer(slots, stored);
            ClearOutputs(lines, count);
            syslog(LOG_INFO, "too much lines to read!\n");
            return -1;
        }
        slots[stored++] = line;
        line = nullptr;
        capacity = 0;
    }
    free(line);
    // getline gives up the same way at the end and when it cannot allocate;
    // a half-read file must not pass for the whole.
    if (!feof(fp)) {
        free_2d_buffer(slots, stored);
        ClearOutputs(lines, count);
        syslog(LOG_INFO, "Failed to allocate memory.\n");
        return -1;
    }
    if (stored == 0) {
        free(slots);
        ClearOutputs(lines, count);
        syslog(LOG_INFO, "No data read from given source.\n");
        return -1;
    }
    *lines = slots;
    *count = static_cast<uint32_t>(counted);
    return 0;
}

int read_file(FILE* fp, char*** lines, uint32_t* count) {
    if (fp == nullptr) {
        syslog(LOG_INFO, "read_file fp is NULL.\n");
        return -1;
    }
    kira::UniqueFile owned(fp);
    return read_fp_to_2d_buffer(owned.get(), lines, count) == 0 ? 0 : -1;
}

void free_2d_buffer(char** lines, uint32_t count) {
    if (lines == nullptr) {
        return;
    }
    for (uint32_t i = 0; i < count; i++) {
        free(lines[i]);
    }
    free(lines);
}

const char* ValueAfter(const char* line, const char* key) {
    if (line == nullptr || key == nullptr || line[0] == '\0' || key[0] == '\0') {
        return nullptr;
    }
    const char* found = strstr(line, key);
    if (found == nullptr) {
        return nullptr;
    }
    const char* rest = found + strlen(key);
    return rest[0] == '\0' ? nullptr : rest;
}

int LoadLines(const char* path, FileLines* out) {
    FILE* fp = fopen(path, "r");
    if (fp == nullptr) {
        syslog(LOG_INFO, "Failed to open %s file.\n", path);
        return -1;
    }
    if (read_file(fp, &out->lines, &out->count) != 0) {
        syslog(LOG_INFO, "Failed to read %s!\n", path);
        return -1;
    }
    return 0;
}

char* copy_string_part_after_delim(const char* line, const char* key) {
    const char* rest = ValueAfter(line, key);
    if (rest == nullptr) {
        return nullptr;
    }
    size_t len = strlen(rest);
    while (len > 1 && strchr(" \f\n\r\t\v", rest[len - 1]) != nullptr) {
        len--;
    }
    char* copy = static_cast<char*>(malloc(len + 1));
    if (copy == nullptr || memcpy_s(copy, len + 1, rest, len) != 0) {
        free(copy);
        return nullptr;
    }
    copy[len] = '\0';
    return copy;
}

}  // namespace kira_sysinfo
