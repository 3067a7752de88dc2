#ifndef OS_BASE_KIRA_FILE_H
#define OS_BASE_KIRA_FILE_H

// Lowest layer of the OS abstraction: sleeping, detached threads, thin file
// pass-throughs, a line reader, a file copy, the path length check, the
// cp/rm/tar/touch/mv/mkdir command wrappers and record locks.
// Faults go to syslog (priority 6), never through DBG_Log.

#include <pthread.h>
#include <stdint.h>
#include <sys/types.h>

#include "os/base/kira_export.h"

#ifdef __cplusplus
extern "C" {
#endif

// Record lock request. lockMode: 0 shared+wait, 1 exclusive+wait,
// 2 shared+no wait, 3 exclusive+no wait; others behave like 0.
// len 0 locks up to the end of the file and beyond.
typedef struct tagKIRA_LOCK_S {
    uint64_t lockMode;
    int64_t start;
    int64_t len;
} KIRA_LOCK_S;

// Sleeps in hundredths of a second (a 10 ms tick): KIRA_sleep(100) is 1 s.
KIRA_EXPORT int KIRA_sleep(unsigned int ticks);
KIRA_EXPORT int KIRA_msleep(unsigned int ms);

// Starts a detached thread; tid may be null.
KIRA_EXPORT int KIRA_CreateThread(void* (*routine)(void*), void* arg, pthread_t* tid);
KIRA_EXPORT void KIRA_SetCurThrdPriority(int priority);
KIRA_EXPORT pthread_t KIRA_GetTid(void);
KIRA_EXPORT pid_t KIRA_GetPid(void);

KIRA_EXPORT int KIRA_open(const char* path, int oflag, mode_t mode);
KIRA_EXPORT int KIRA_close(int fd);
KIRA_EXPORT int KIRA_sync(int fd);
KIRA_EXPORT off_t KIRA_lseek(int fd, off_t offset, int whence);
KIRA_EXPORT ssize_t KIRA_read(int fd, void* buf, unsigned int len);
KIRA_EXPORT ssize_t KIRA_write(int fd, const void* buf, unsigned int len);
KIRA_EXPORT int KIRA_access(const char* name, int mode);

// One line (newline kept, carriage returns dropped), or the next
// size - 1 characters of a longer one; null at end of file. Reads one byte
// at a time, so nothing past the line is consumed.
KIRA_EXPORT char* KIRA_readline(int fd, char* buf, int size);
KIRA_EXPORT int KIRA_copy(const char* src, const char* dst);
// 0 when the basename is shorter than 256 and the dirname at most 4096.
KIRA_EXPORT int KIRA_name_lenth_check(const char* path);

// Shell command wrappers; the unused arguments are part of the interface
// (callers pass 0). Paths are not quoted (except by mkdir).
KIRA_EXPORT int KIRA_CmdCp(const char* src, const char* dst, int unused);
KIRA_EXPORT int KIRA_CmdRm(const char* path, int unused);
KIRA_EXPORT int KIRA_CmdTar(const char* archive, const char* path, int extract);
KIRA_EXPORT int KIRA_CmdTouch(const char* path, int unused);
KIRA_EXPORT int KIRA_CmdMv(const char* src, const char* dst, int unused);
KIRA_EXPORT int KIRA_CmdMkdir(const char* path);

KIRA_EXPORT int KIRA_LockFile(int vfd, KIRA_LOCK_S* vlock);
KIRA_EXPORT int KIRA_UnLockFile(int vfd, KIRA_LOCK_S* vlock);

#ifdef __cplusplus
}
#endif

#endif
