// The gate to the kernel module: one ioctl on its control file.

#include <fcntl.h>
#include <sys/ioctl.h>

#include "os/base/kira_file.h"
#include "os/base/kira_system.h"

namespace {

const char kSysCallPath[] = "/proc/nox/syscall";

}  // namespace

// The requests belong to the kernel side; they are passed through as given.
extern "C" KIRA_EXPORT int KIRA_SysCall(int32_t request, void* arg) {
    int fd = KIRA_open(kSysCallPath, O_RDWR, 0);
    if (fd < 0) {
        return -1;
    }
    int ret = ioctl(fd, static_cast<unsigned long>(static_cast<uint32_t>(request)), arg);
    (void)KIRA_close(fd);
    return ret == 0 ? 0 : -1;
}
