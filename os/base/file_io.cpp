// Thin pass-throughs to the POSIX file calls: results and errno unchanged.

#include <fcntl.h>
#include <unistd.h>

#include "os/base/kira_file.h"

extern "C" {

KIRA_EXPORT int KIRA_open(const char* path, int oflag, mode_t mode) { return open(path, oflag, mode); }

KIRA_EXPORT int KIRA_close(int fd) { return close(fd); }

KIRA_EXPORT int KIRA_sync(int fd) { return fsync(fd); }

KIRA_EXPORT off_t KIRA_lseek(int fd, off_t offset, int whence) { return lseek(fd, offset, whence); }

KIRA_EXPORT ssize_t KIRA_read(int fd, void* buf, unsigned int len) { return read(fd, buf, len); }

KIRA_EXPORT ssize_t KIRA_write(int fd, const void* buf, unsigned int len) { return write(fd, buf, len); }

KIRA_EXPORT int KIRA_access(const char* name, int mode) { return access(name, mode); }

}  // extern "C"
