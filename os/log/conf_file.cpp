// Configuration file plumbing shared by the group and module tables:
// line skipping, the comma rule, reading a file line by line, walking the
// configuration directory, and saving through a ".new" file and "mv -f".

#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <syslog.h>

#include "os/base/kira_file.h"
#include "os/base/kira_io.h"
#include "os/base/kira_raii.h"
#include "os/base/kira_system.h"
#include "os/log/log_internal.h"
#include "os/log/log_util_internal.h"
#include "safec/safec.h"

namespace {

constexpr size_t kPathSize = 256;
// Lines read from one file at most: a file of endless lines must not hold
// every logging thread in the set-up.
constexpr uint32_t kMaxConfLines = 100000;
constexpr size_t kCommandSize = 256;

// Keeps the descriptor's owner from closing through KIRA_close twice.
void CloseConf(kira::UniqueFd& fd) { KIRA_close(fd.release()); }

// readdir_r with one entry buffer per walk: a reset on another thread may
// walk the same directory at the same time.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
int ReadEntry(DIR* dir, struct dirent* entry, struct dirent** result) { return readdir_r(dir, entry, result); }
#pragma GCC diagnostic pop

}  // namespace

bool DbgIsIgnoredConfLine(const char* line) {
    return line == nullptr || line[0] == '\n' || strchr(line, '#') != nullptr;
}

void DbgCommasToBlanks(char* line) {
    for (char* p = strchr(line, ','); p != nullptr; p = strchr(p + 1, ',')) *p = ' ';
}

void DbgReadConfFile(const char* path, const char* reader, const char* parser,
                     int32_t (*parse)(char* line, uint32_t arg), uint32_t arg) {
    kira::LineReader file;
    if (!file.OpenPlain(path)) return;
    char line[DBG_CONF_LINE_SIZE];
    for (uint32_t count = 0; file.ReadLine(line, sizeof(line)); ++count) {
        if (count == kMaxConfLines) {
            syslog(LOG_INFO, "%s: %s has more than %u lines, the rest is ignored\n", reader, path, kMaxConfLines);
            break;
        }
        if (parse(line, arg) < 0) syslog(LOG_INFO, "%s: %s %s fail, (%s)\n", reader, path, parser, line);
    }
}

void DbgReadPrefixedConf(const char* name, const char* prefix, void (*reader)(const char* path)) {
    if (strlen(name) <= 3 || strncmp(name, prefix, strlen(prefix)) != 0) return;
    char path[kPathSize];
    if (snprintf_s(path, sizeof(path), sizeof(path) - 1, DBG_CONF_DIR "%s", name) < 0) return;
    reader(path);
}

bool DbgForEachConfEntry(const char* caller, pthread_mutex_t* mutex, void (*fn)(const char* name)) {
    kira::UniqueDir dir(opendir(DBG_CONF_DIR));
    if (!dir) return false;
    MutexGuard hold(mutex);
    struct dirent entry;
    struct dirent* result = nullptr;
    for (;;) {
        if (ReadEntry(dir.get(), &entry, &result) != 0) {
            syslog(LOG_INFO, "%s: readdir_r fail, %d\n", caller, errno);
            break;
        }
        if (result == nullptr) break;
        fn(result->d_name);
    }
    return true;
}

int32_t DbgSaveConf(const char* caller, const char* finalPath, pthread_mutex_t* mutex, DbgSaveLineFn next) {
    char newPath[kPathSize];
    char command[kCommandSize];
    if (snprintf_s(newPath, sizeof(newPath), sizeof(newPath) - 1, "%s.new", finalPath) < 0) return -1;
    if (snprintf_s(command, sizeof(command), sizeof(command) - 1, "mv -f %s %s 2>/dev/kmsg", newPath, finalPath) < 0) {
        return -1;
    }
    MutexGuard hold(mutex);
    kira::UniqueFd fd(KIRA_open(newPath, O_WRONLY | O_CREAT | O_TRUNC | O_SYNC, 0777));
    if (!fd.valid()) {
        syslog(LOG_INFO, "%s: KIRA_open fail, %d.\n", caller, fd.get());
        return fd.get();
    }
    char line[DBG_CONF_LINE_SIZE];
    void* cursor = nullptr;
    while (next(&cursor, line, sizeof(line))) {
        const unsigned int len = static_cast<unsigned int>(strlen(line));
        const ssize_t written = KIRA_write(fd.get(), line, len);
        if (written != static_cast<ssize_t>(len)) {
            syslog(LOG_INFO, "%s: KIRA_write fail, %d.\n", caller, static_cast<int>(written));
            CloseConf(fd);
            return static_cast<int32_t>(written);
        }
    }
    CloseConf(fd);
    syslog(LOG_INFO, "<6>%s\n", command);
    return KIRA_Execute(command);
}
