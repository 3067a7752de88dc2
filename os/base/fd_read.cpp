// The one read loop of the library: retries on EINTR and knows when a
// kernel-made file is complete without asking for end of file.

#include <errno.h>
#include <unistd.h>

#include "os/base/kira_io.h"

namespace kira {

ssize_t ReadFd(int fd, void* buf, size_t size, ReadEnd end) {
    char* out = static_cast<char*>(buf);
    size_t got = 0;
    while (got < size) {
        const ssize_t n = read(fd, out + got, size - got);
        if (n < 0 && errno == EINTR) {
            continue;
        }
        if (n < 0) {
            return got == 0 ? -1 : static_cast<ssize_t>(got);
        }
        got += static_cast<size_t>(n);
        if (n == 0 || end == ReadEnd::kOneRead || (end == ReadEnd::kShortRead && got < size)) {
            break;
        }
    }
    return static_cast<ssize_t>(got);
}

}  // namespace kira
