// What each process sets up once, and what it shares with the others,
// answering "what state did this process start logging from". In order:
// the once-per-process initialisation (both tables, the shared block, the
// kernel side's control file); the shared default-level block
// "/dev/shm/dbglog.cfg" (opening and mapping it, the default level read
// back from the file, changing it); the process identity printed at the end
// of every line.

#include <errno.h>
#include <fcntl.h>
#include <pthread.h>
#include <stddef.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <syslog.h>
#include <time.h>
#include <unistd.h>

#include "os/base/kira_file.h"
#include "os/base/kira_mmap.h"
#include "os/log/log_internal.h"
#include "safec/safec.h"

using kira_log::RelaxedLoad;
using kira_log::RelaxedStore;

// ---- the once-per-process initialisation ----

namespace {

pthread_once_t g_debugInitOnce = PTHREAD_ONCE_INIT;

void MapSharedCfg(gid_t gid);

}  // namespace

void KIRA_DebugInitialize(void) {
    const gid_t gid = getgid();
    load_gid_conf();
    load_pid_conf();
    MapSharedCfg(gid);
}

extern "C" {

KIRA_EXPORT void KIRA_DebugModuleInit(void) { pthread_once(&g_debugInitOnce, KIRA_DebugInitialize); }

}  // extern "C"

// ---- the shared default-level block ----

namespace {

constexpr uint8_t kFallbackLevel = DBG_LOG_INFO;
constexpr uint64_t kCfgMapLength = 16;
constexpr size_t kLevelOffset = offsetof(DBG_CFG_S, ucDefLevel);
constexpr size_t kInitialisedPart = 8;  // what DBG_SetDefaultCfg rewrites

// Published once by the initialisation; DBG_GetLogConfig may read it from
// another thread before that, hence the atomic accesses.
DBG_CFG_S* g_pstUsrDbgConfig = nullptr;

// Any process may shrink the block's file, and touching a mapped page past
// its end raises SIGBUS. No signal handler belongs in a host process, so the
// library never reads or writes the block through the mapping: it keeps the
// descriptor, a private copy of the level read back with one pread when the
// wall-clock second changes (a vDSO read, cheaper than the monotonic one),
// and writes with pwrite. The mapping itself exists for DBG_GetLogConfig.
int g_cfgFd = -1;
uint8_t g_cachedLevel = kFallbackLevel;
time_t g_cachedAt = 0;

DBG_CFG_S* LoadConfig() { return __atomic_load_n(&g_pstUsrDbgConfig, __ATOMIC_ACQUIRE); }

// The whole block, or false when the file is shorter (another process cut
// it): a short block is treated as no block.
bool ReadBlock(int fd, DBG_CFG_S* blk) {
    memset(blk, 0, sizeof(*blk));
    return pread(fd, blk, sizeof(*blk), 0) == static_cast<ssize_t>(sizeof(*blk));
}

void CacheLevel(uint8_t level, time_t at) {
    RelaxedStore(&g_cachedLevel, level);
    RelaxedStore(&g_cachedAt, at);
}

uint8_t RefreshLevel(time_t now) {
    DBG_CFG_S blk;
    const uint8_t level = ReadBlock(g_cfgFd, &blk) ? blk.ucDefLevel : kFallbackLevel;
    CacheLevel(level, now);
    return level;
}

// /dev/shm is writable by everyone: a link could make this process write
// into another file, a FIFO would block the open or the first read, and a
// second name would do the same through the back door. Only a plain file of
// one name is taken, and the open never blocks.
int OpenSharedCfg(gid_t gid) {
    const int flags = O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC;
    const int fd = gid == 0 ? KIRA_open(DBG_CFG_FILE, O_RDWR | O_CREAT | flags, 0664)
                            : KIRA_open(DBG_CFG_FILE, O_RDONLY | flags, 0);
    struct stat st;
    if (fd == -1 || (fstat(fd, &st) == 0 && S_ISREG(st.st_mode) && st.st_nlink == 1)) {
        return fd;
    }
    KIRA_close(fd);
    return -1;
}

// Only a root-group process grows the file, while mapping; everyone else
// maps it only when it holds a whole block.
bool TooShortToMap(int fd, gid_t gid) {
    struct stat st;
    return gid != 0 && fstat(fd, &st) == 0 && st.st_size < static_cast<off_t>(kCfgMapLength);
}

// The control file is opened only once the block is mapped: a process
// without the block works from the default level alone.
void MapSharedCfg(gid_t gid) {
    const int fd = OpenSharedCfg(gid);
    if (fd == -1) {
        syslog(LOG_INFO,
               "                                "
               "**************************************************************\n"
               "                                "
               "Can not open print level config file, log will not write/read to log file,gid=%d\n"
               "                                "
               "**************************************************************\n",
               static_cast<int>(gid));
        return;
    }
    const int prot = gid == 0 ? PROT_READ | PROT_WRITE : PROT_READ;
    void* addr = TooShortToMap(fd, gid) ? nullptr : KIRA_mmap(fd, prot, 0, kCfgMapLength);
    if (addr == nullptr || addr == MAP_FAILED) {
        KIRA_close(fd);
        return;
    }
    DBG_CFG_S blk;
    const bool whole = ReadBlock(fd, &blk);
    if (gid == 0 && (!whole || blk.uiMagic != DBG_CFG_MAGIC)) {
        DBG_SetDefaultCfg(&blk);
        (void)pwrite(fd, &blk, kInitialisedPart, 0);
    }
    g_cfgFd = fd;
    CacheLevel(whole || gid == 0 ? blk.ucDefLevel : kFallbackLevel, time(nullptr));
    __atomic_store_n(&g_pstUsrDbgConfig, static_cast<DBG_CFG_S*>(addr), __ATOMIC_RELEASE);

    kira_log::OpenControl();
}

// A block found cut short is rebuilt whole around the new level, as the
// set-up would have made it.
bool StoreLevel(uint8_t level) {
    DBG_CFG_S blk;
    ssize_t written;
    if (ReadBlock(g_cfgFd, &blk)) {
        written = pwrite(g_cfgFd, &level, 1, kLevelOffset) == 1 ? 0 : -1;
    } else {
        DBG_SetDefaultCfg(&blk);
        blk.ucDefLevel = level;
        written = pwrite(g_cfgFd, &blk, sizeof(blk), 0) == static_cast<ssize_t>(sizeof(blk)) ? 0 : -1;
    }
    if (written != 0) {
        syslog(LOG_INFO, "%s: KIRA_write fail, %d.\n", "DBG_SetDefLogLevel", errno);
        return false;
    }
    CacheLevel(level, time(nullptr));
    return true;
}

}  // namespace

uint8_t kira_log::DefaultLevel(void) {
    if (g_cfgFd < 0) {
        return kFallbackLevel;
    }
    const time_t now = time(nullptr);
    return now == RelaxedLoad(&g_cachedAt) ? RelaxedLoad(&g_cachedLevel) : RefreshLevel(now);
}

extern "C" {

KIRA_EXPORT int32_t DBG_SetDefLogLevel(uint8_t level) {
    KIRA_DebugModuleInit();
    const gid_t gid = getgid();
    if (level < DBG_LOG_EMERG || level > DBG_LOG_DEBUG || gid != 0) {
        syslog(LOG_INFO, "DBG_SetLogLevel error,v_iLogLevel (%d) gid (%d).\n", level, static_cast<int>(gid));
        return 0;
    }
    if (g_cfgFd < 0) {
        syslog(LOG_INFO, "Log Cfg file not opened.\n");
        return 0;
    }
    return StoreLevel(level) ? 1 : 0;
}

KIRA_EXPORT DBG_CFG_S* DBG_GetLogConfig(void) { return LoadConfig(); }

KIRA_EXPORT void DBG_SetDefaultCfg(DBG_CFG_S* cfg) {
    if (cfg == nullptr) {
        return;
    }
    memset(cfg, 0, 8);
    cfg->uiMagic = DBG_CFG_MAGIC;
    cfg->ucDefLevel = DBG_LOG_INFO;
}

}  // extern "C"

// ---- the process identity ----
// The executable's name, or the name and the process id. Both are worked
// out once and kept; a forked child keeps its parent's text.

namespace {

constexpr size_t kIdentitySize = 256;
constexpr size_t kExePathSize = 512;

char g_processName[kIdentitySize];
char g_processNameAndPid[kIdentitySize];
// Two threads logging their first lines together must not both write the
// caches, so each is filled under its own once-flag.
pthread_once_t g_nameOnce = PTHREAD_ONCE_INIT;
pthread_once_t g_nameAndPidOnce = PTHREAD_ONCE_INIT;

void FillProcessName() { __get_process_name(g_processName); }

void FillProcessNameAndPid() {
    __get_process_name(g_processNameAndPid);
    const size_t used = strlen(g_processNameAndPid);
    char pidText[11];
    if (snprintf_s(pidText, sizeof(pidText), sizeof(pidText) - 1, "%d", static_cast<int>(getpid())) < 0) {
        return;
    }
    (void)strcat_s(g_processNameAndPid + used, kIdentitySize - used, ",");
    (void)strcat_s(g_processNameAndPid + used, kIdentitySize - used, pidText);
}

}  // namespace

void __get_process_name(char* out) {
    char exePath[kExePathSize];
    memset(exePath, 0, sizeof(exePath));
    (void)snprintf_s(exePath, sizeof(exePath), 17, "/proc/%d/exe", static_cast<int>(getpid()));
    char target[kIdentitySize];
    memset(target, 0, sizeof(target));
    const ssize_t len = readlink(exePath, target, sizeof(target));
    if (len != -1 && len < static_cast<ssize_t>(sizeof(target))) {
        const char* slash = strrchr(target, '/');
        const char* base = slash == nullptr ? target : slash + 1;
        (void)strncpy_s(out, kIdentitySize, base, kIdentitySize - 1);
        out[kIdentitySize - 1] = '\0';
        return;
    }
    (void)snprintf_s(out, kIdentitySize, 9, "<%d>", static_cast<int>(getpid()));
}

const char* __get_process_info(int32_t mode) {
    if (mode == 0) {
        pthread_once(&g_nameOnce, FillProcessName);
        return g_processName;
    }
    if (mode == 1) {
        pthread_once(&g_nameAndPidOnce, FillProcessNameAndPid);
        return g_processNameAndPid;
    }
    return g_processName;
}
