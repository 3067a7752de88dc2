// The configuration files, answering "what did my file say, and why was a
// line not taken". In order: the line rules (skipped lines, the comma
// rule); reading a file line by line and walking the configuration
// directory; saving a table through a ".new" file and "mv -f"; the group
// files and the order they are loaded in; the module files and theirs.
// The local level file's lines are module levels' own (levels_and_limits.cpp).

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
#include "safec/safec.h"

using kira_log::CommasToBlanks;
using kira_log::IsIgnoredConfLine;
using kira_log::MutexGuard;
using kira_log::ReadConfFile;

namespace {

constexpr size_t kPathSize = 256;
// Lines read from one file at most: a file of endless lines must not hold
// every logging thread in the set-up.
constexpr uint32_t kMaxConfLines = 100000;
constexpr size_t kCommandSize = 256;

}  // namespace

// ---- line rules ----

bool kira_log::IsIgnoredConfLine(const char* line) {
    return line == nullptr || line[0] == '\n' || strchr(line, '#') != nullptr;
}

void kira_log::CommasToBlanks(char* line) {
    for (char* p = strchr(line, ','); p != nullptr; p = strchr(p + 1, ',')) {
        *p = ' ';
    }
}

// ---- reading files and the directory ----

void kira_log::ReadConfFile(const char* path, const char* reader, const char* parser,
                            int32_t (*parse)(char* line, uint32_t arg), uint32_t arg) {
    kira::LineReader file;
    if (!file.OpenPlain(path)) {
        return;
    }
    char line[DBG_CONF_LINE_SIZE];
    for (uint32_t count = 0; file.ReadLine(line, sizeof(line)); ++count) {
        if (count == kMaxConfLines) {
            syslog(LOG_INFO, "%s: %s has more than %u lines, the rest is ignored\n", reader, path, kMaxConfLines);
            break;
        }
        if (parse(line, arg) < 0) {
            syslog(LOG_INFO, "%s: %s %s fail, (%s)\n", reader, path, parser, line);
        }
    }
}

namespace {

// Reads DBG_CONF_DIR/name with reader when name begins with prefix.
void ReadPrefixedConf(const char* name, const char* prefix, void (*reader)(const char* path)) {
    if (strlen(name) <= 3 || strncmp(name, prefix, strlen(prefix)) != 0) {
        return;
    }
    char path[kPathSize];
    if (snprintf_s(path, sizeof(path), sizeof(path) - 1, DBG_CONF_DIR "%s", name) < 0) {
        return;
    }
    reader(path);
}

// readdir_r with one entry buffer per walk: a reset on another thread may
// walk the same directory at the same time.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
int ReadEntry(DIR* dir, struct dirent* entry, struct dirent** result) { return readdir_r(dir, entry, result); }
#pragma GCC diagnostic pop

// Hands every entry name of DBG_CONF_DIR to fn while holding mutex. False
// when the directory cannot be opened.
bool ForEachConfEntry(const char* caller, pthread_mutex_t* mutex, void (*fn)(const char* name)) {
    kira::UniqueDir dir(opendir(DBG_CONF_DIR));
    if (!dir) {
        return false;
    }
    MutexGuard hold(mutex);
    struct dirent entry;
    struct dirent* result = nullptr;
    for (;;) {
        if (ReadEntry(dir.get(), &entry, &result) != 0) {
            syslog(LOG_INFO, "%s: readdir_r fail, %d\n", caller, errno);
            break;
        }
        if (result == nullptr) {
            break;
        }
        fn(result->d_name);
    }
    return true;
}

}  // namespace

// ---- saving ----

namespace {

// Keeps the descriptor's owner from closing through KIRA_close twice.
void CloseConf(kira::UniqueFd& fd) { KIRA_close(fd.release()); }

}  // namespace

int32_t kira_log::SaveConf(const char* caller, const char* finalPath, pthread_mutex_t* mutex, SaveLineFn next) {
    char newPath[kPathSize];
    char command[kCommandSize];
    if (snprintf_s(newPath, sizeof(newPath), sizeof(newPath) - 1, "%s.new", finalPath) < 0) {
        return -1;
    }
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

// ---- group files ----
// The product file, the "log_" files of the configuration directory, then
// the local override. A later file overrides an earlier one group by group;
// only the product's files set the default count that scaling starts from.

namespace {

constexpr uint32_t kDefaultResume = 86400;

}  // namespace

int32_t read_gid_conf_line(char* line, uint32_t localFlag) {
    if (IsIgnoredConfLine(line)) {
        return 0;
    }
    uint32_t gid = 0;
    uint32_t num = 0;
    uint32_t interval = 0;
    uint32_t burst = 0;
    uint32_t resume = kDefaultResume;
    const int fields =
        sscanf_s(line, "gid=%u,num=%u,interval=%u,burst=%u,resume=%u\n", &gid, &num, &interval, &burst, &resume);
    if (fields != 5 && fields != 3) {
        return -22;
    }
    if (gid == 0 || gid == DBG_ALL_GID) {
        return -22;
    }
    return replace_or_add_gid(gid, num, interval, burst, resume, static_cast<int32_t>(localFlag));
}

void read_gid_conf(const char* path) {
    const uint32_t localFlag = strcmp(path, DBG_GID_LOCAL_CONF) == 0 ? 1 : 0;
    ReadConfFile(path, "read_gid_conf", "read_gid_conf_line", read_gid_conf_line, localFlag);
}

void read_gid_conf_filename(const char* name) { ReadPrefixedConf(name, "log_", read_gid_conf); }

void __load_gid_conf(void) {
    (void)ForEachConfEntry("__load_gid_conf", &kira_log::gid_tree_mutex, read_gid_conf_filename);
}

void load_gid_conf(void) {
    pthread_spin_init(&kira_log::gid_tree_lock, PTHREAD_PROCESS_PRIVATE);
    read_gid_conf(DBG_GID_PRODUCT_CONF);
    __load_gid_conf();
    read_gid_conf(DBG_GID_LOCAL_CONF);
}

// ---- module files ----
// The obsolete and current module files, the "pid_" files of the
// configuration directory, then the local level file. The first file to
// name a module fixes its name; later lines only move it to another group.

namespace {

int32_t ParsePidLine(char* line, uint32_t) { return read_pid_conf_line(line); }

// Scans a module line into rec and gid. A named line needs a group other
// than 0; a line with the number alone must carry a group; a named line
// without a group is taken as it is (the product's files rely on that).
bool ScanPidLine(const char* line, DBG_PID_CONF_S* rec, uint32_t* gid) {
    memset(rec, 0, sizeof(*rec));
    *gid = 0;
    const int fields = sscanf_s(line, "pid=%u pid_name=%31s gid=%u\n", &rec->pid, rec->pid_name,
                                static_cast<unsigned>(sizeof(rec->pid_name)), gid);
    if (fields == 3) {
        return *gid != 0;
    }
    if (fields == 1) {
        memset(rec, 0, sizeof(*rec));
        *gid = 0;
        return sscanf_s(line, "pid=%u gid=%u\n", &rec->pid, gid) == 2;
    }
    return fields == 2;
}

}  // namespace

int32_t read_pid_conf_line(char* line) {
    if (IsIgnoredConfLine(line)) {
        return 0;
    }
    CommasToBlanks(line);
    DBG_PID_CONF_S rec;
    uint32_t gid = 0;
    if (!ScanPidLine(line, &rec, &gid) || rec.pid == 0) {
        return -22;
    }
    (void)replace_or_add_pid(&rec, gid);
    return 0;
}

void read_pid_conf(const char* path) { ReadConfFile(path, "read_pid_conf", "read_pid_conf_line", ParsePidLine, 0); }

void read_pid_conf_filename(const char* name) { ReadPrefixedConf(name, "pid_", read_pid_conf); }

void __load_pid_conf(void) {
    if (!ForEachConfEntry("__load_pid_conf", &kira_log::pid_tree_mutex, read_pid_conf_filename)) {
        return;
    }
    read_log_level_conf(DBG_PID_LEVEL_CONF);
}

void load_pid_conf(void) {
    pthread_spin_init(&kira_log::pid_tree_lock, PTHREAD_PROCESS_PRIVATE);
    read_pid_conf(DBG_PID_OBSOLETE_CONF);
    read_pid_conf(DBG_PID_GID_CONF);
    __load_pid_conf();
}
