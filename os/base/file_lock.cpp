// POSIX record locks over a byte range counted from the start of the file.

#include <errno.h>
#include <fcntl.h>
#include <syslog.h>

#include "os/base/kira_file.h"

namespace {

bool LockArgsOk(int vfd, const KIRA_LOCK_S* vlock) {
    // Only -1 is refused; other negative descriptors reach fcntl (EBADF).
    if (vfd == -1 || vlock == nullptr) {
        syslog(LOG_INFO, "Input param error, vfd = (%d), vlock= (%p).\n", vfd, static_cast<const void*>(vlock));
        return false;
    }
    return true;
}

struct flock RangeOf(const KIRA_LOCK_S* vlock, short type) {
    struct flock fl = {};
    fl.l_type = type;
    fl.l_whence = SEEK_SET;
    fl.l_start = vlock->start;
    fl.l_len = vlock->len;
    return fl;
}

}  // namespace

extern "C" {

KIRA_EXPORT int KIRA_LockFile(int vfd, KIRA_LOCK_S* vlock) {
    if (!LockArgsOk(vfd, vlock)) {
        return -1;
    }
    uint64_t mode = vlock->lockMode;
    struct flock fl = RangeOf(vlock, (mode == 1 || mode == 3) ? F_WRLCK : F_RDLCK);
    int cmd = (mode == 2 || mode == 3) ? F_SETLK : F_SETLKW;
    int ret = fcntl(vfd, cmd, &fl);
    while (ret != 0 && errno == EINTR && cmd == F_SETLKW) {
        ret = fcntl(vfd, cmd, &fl);
    }
    return ret == 0 ? 0 : -1;
}

KIRA_EXPORT int KIRA_UnLockFile(int vfd, KIRA_LOCK_S* vlock) {
    if (!LockArgsOk(vfd, vlock)) {
        return -1;
    }
    struct flock fl = RangeOf(vlock, F_UNLCK);
    return fcntl(vfd, F_SETLK, &fl) == 0 ? 0 : -1;
}

}  // extern "C"
