// File copy in 128-byte blocks through the layer's own file calls.

#include <errno.h>
#include <fcntl.h>
#include <syslog.h>

#include "os/base/kira_file.h"
#include "os/base/kira_raii.h"

namespace {

constexpr unsigned int kCopyBlock = 128;

// Ends after the first block the write did not fill: that is how the end
// of the source is recognised, so an exact multiple of the block size needs
// one more, empty, round.
int CopyBlocks(int in, int out, const char* src, const char* dst) {
    char block[kCopyBlock];
    ssize_t written;
    do {
        ssize_t got = KIRA_read(in, block, kCopyBlock);
        if (got < 0) {
            syslog(LOG_INFO, "Copy read data from file (%s) to (%s) Fail, (%d).\n", src, dst, errno);
            return -1;
        }
        written = KIRA_write(out, block, static_cast<unsigned int>(got));
        if (written < 0) {
            syslog(LOG_INFO, "Copy write data from file (%s) to (%s) Fail, (%d).\n", src, dst, errno);
            return -1;
        }
    } while (written == static_cast<ssize_t>(kCopyBlock));
    return 0;
}

}  // namespace

extern "C" KIRA_EXPORT int KIRA_copy(const char* src, const char* dst) {
    if (src == nullptr || dst == nullptr) {
        syslog(LOG_INFO, "Input para null.\n");
        return -1;
    }
    // Read-write on purpose: a source the caller may not modify is refused.
    kira::UniqueFd in(KIRA_open(src, O_RDWR, 0));
    if (!in.valid()) {
        syslog(LOG_INFO, "Open source file (%s) error,return.\n", src);
        return -1;
    }
    kira::UniqueFd out(KIRA_open(dst, O_RDWR | O_CREAT | O_TRUNC, 0600));
    if (!out.valid()) {
        syslog(LOG_INFO, "Open dest file (%s) error,return.\n", dst);
        return -1;
    }
    return CopyBlocks(in.get(), out.get(), src, dst);
}
