// Once-per-process set-up of the logging subsystem: both tables, the shared
// default-level block "/dev/shm/dbglog.cfg" and the kernel side's control
// file; and the calls that read or change the shared default level.

#include <fcntl.h>
#include <pthread.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <syslog.h>
#include <unistd.h>

#include "os/base/kira_file.h"
#include "os/base/kira_mmap.h"
#include "os/log/log_internal.h"
#include "os/log/log_util_internal.h"

namespace {

constexpr uint8_t kFallbackLevel = DBG_LOG_INFO;
constexpr uint64_t kCfgMapLength = 16;

// Published once by the initialisation; DBG_GetLogConfig may read it from
// another thread before that, hence the atomic accesses.
DBG_CFG_S* g_pstUsrDbgConfig = nullptr;
int iFd_log_level = -1;
pthread_once_t g_debugInitOnce = PTHREAD_ONCE_INIT;

DBG_CFG_S* LoadConfig() { return __atomic_load_n(&g_pstUsrDbgConfig, __ATOMIC_ACQUIRE); }

// A root-group process creates and repairs the block; everyone else only
// reads it.
int OpenSharedCfg(gid_t gid) {
    return gid == 0 ? KIRA_open(DBG_CFG_FILE, O_RDWR | O_CREAT, 0664) : KIRA_open(DBG_CFG_FILE, O_RDONLY, 0);
}

// An empty file cannot be read through a mapping (the access would fault);
// only a root-group process grows it, while mapping.
bool TooShortToMap(int fd, gid_t gid) {
    struct stat st;
    return gid != 0 && fstat(fd, &st) == 0 && st.st_size == 0;
}

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
    auto* cfg = static_cast<DBG_CFG_S*>(addr);
    if (cfg->uiMagic != DBG_CFG_MAGIC && gid == 0) DBG_SetDefaultCfg(cfg);
    __atomic_store_n(&g_pstUsrDbgConfig, cfg, __ATOMIC_RELEASE);

    iFd_log_level = KIRA_open(DBG_LEVEL_CTL_FILE, O_RDWR, 0);
    if (iFd_log_level == -1) syslog(LOG_INFO, "open /proc/nox/log_level fail\n");
}

}  // namespace

void KIRA_DebugInitialize(void) {
    const gid_t gid = getgid();
    load_gid_conf();
    load_pid_conf();
    MapSharedCfg(gid);
}

uint8_t DbgDefaultLevel(void) {
    DBG_CFG_S* cfg = LoadConfig();
    return cfg == nullptr ? kFallbackLevel : RelaxedLoad(&cfg->ucDefLevel);
}

int DbgControlFd(void) { return iFd_log_level; }

extern "C" {

KIRA_EXPORT void KIRA_DebugModuleInit(void) { pthread_once(&g_debugInitOnce, KIRA_DebugInitialize); }

KIRA_EXPORT int32_t DBG_SetDefLogLevel(uint8_t level) {
    KIRA_DebugModuleInit();
    const gid_t gid = getgid();
    if (level < DBG_LOG_EMERG || level > DBG_LOG_DEBUG || gid != 0) {
        syslog(LOG_INFO, "DBG_SetLogLevel error,v_iLogLevel (%d) gid (%d).\n", level, static_cast<int>(gid));
        return 0;
    }
    DBG_CFG_S* cfg = LoadConfig();
    if (cfg == nullptr) {
        syslog(LOG_INFO, "Log Cfg file not opened.\n");
        return 0;
    }
    RelaxedStore(&cfg->ucDefLevel, level);
    return 1;
}

KIRA_EXPORT DBG_CFG_S* DBG_GetLogConfig(void) { return LoadConfig(); }

KIRA_EXPORT void DBG_SetDefaultCfg(DBG_CFG_S* cfg) {
    if (cfg == nullptr) return;
    memset(cfg, 0, 8);
    cfg->uiMagic = DBG_CFG_MAGIC;
    cfg->ucDefLevel = DBG_LOG_INFO;
}

}  // extern "C"
