// One heartbeat file: splitting its name, checking that the name belongs to
// the configured process and that the pid still runs it, and reading the
// token and hang flow id without ever blocking on or following what another
// user planted in the directory.

#include <errno.h>
#include <fcntl.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include "os/base/kira_io.h"
#include "os/base/kira_raii.h"
#include "plugin/linux/plugin_log_internal.h"
#include "plugin/linux/process_monitor.h"
#include "plugin/linux/process_monitor_internal.h"
#include "plugin/linux/zadi_linux_plugin.h"
#include "safec/safec.h"

namespace {

constexpr char kSeparator[] = "___";
constexpr size_t kSeparatorLen = sizeof(kSeparator) - 1;
constexpr unsigned int kFieldCount = 3;
constexpr size_t kProcNameSize = 32;

// One fgets(buf, 127, ...) over data from pos: at most 126 bytes, up to and
// including a newline. Returns the number of bytes taken.
size_t TakeLine(const char* data, size_t len, size_t pos, char* out) {
    size_t k = 0;
    while (pos + k < len && k < zadi::kHeartbeatLineMax) {
        char c = data[pos + k];
        out[k++] = c;
        if (c == '\n') {
            break;
        }
    }
    return k;
}

// A FIFO or device would block or misbehave on read; only plain files hold
// heartbeats.
bool IsRegularFile(int fd) {
    struct stat st;
    if (fstat(fd, &st) != 0) {
        return false;
    }
    if (!S_ISREG(st.st_mode)) {
        errno = EINVAL;
        return false;
    }
    return true;
}

}  // namespace

namespace zadi {

bool ParseHeartbeatLines(const char* data, size_t len, ZADI_PROCESS_HEARTBEAT_NODE* node) {
    char line[kHeartbeatLineMax + 2] = {0};
    size_t taken = TakeLine(data, len, 0, line);
    if (taken == 0) {
        return false;
    }
    size_t used = strlen(line);
    if (used > 0 && line[used - 1] == '\n') {
        line[--used] = '\0';
    }
    node->uiBufferUsed = static_cast<uint32_t>(used);
    (void)strcpy_s(node->szBuffer, sizeof(node->szBuffer), line);

    (void)memset_s(line, sizeof(line), 0, sizeof(line));
    if (TakeLine(data, len, taken, line) != 0) {
        node->hangFlowId = static_cast<uint32_t>(strtoll(line, nullptr, 10));
    }
    return true;
}

}  // namespace zadi

void SpliteHeartFileName(char* filename, unsigned int /*filenamesize*/, char** filenameset) {
    if (filename == nullptr || filenameset == nullptr) {
        return;
    }
    char* start = filename;
    for (unsigned int idx = 0; idx < kFieldCount; ++idx) {
        char* sep = strstr(start, kSeparator);
        filenameset[idx] = start;
        if (sep == nullptr) {
            return;
        }
        (void)memset_s(sep, kSeparatorLen, 0, kSeparatorLen);
        start = sep + kSeparatorLen;
    }
}

bool CheckProcIdAndProcName(const char* procId, const char* procName) {
    if (procId == nullptr || procName == nullptr) {
        return false;
    }
    char name[kProcNameSize] = {0};
    if (ZADI_Linux_Plugin::get_procname_bypid(atoi(procId), name, sizeof(name)) != 0) {
        return false;
    }
    return strcmp(name, procName) == 0;
}

bool CheckFileAndProc(const char* pszProcessName, const char* pszModId, char** filenameset,
                      unsigned int filenamesetsize) {
    if (pszProcessName == nullptr || pszModId == nullptr || filenameset == nullptr) {
        return false;
    }
    if (filenamesetsize != kFieldCount) {
        return false;
    }
    if (filenameset[0] == nullptr || filenameset[1] == nullptr || filenameset[2] == nullptr) {
        return false;
    }
    if (strcmp(filenameset[0], pszProcessName) != 0 || strcmp(filenameset[1], pszModId) != 0) {
        return false;
    }
    return CheckProcIdAndProcName(filenameset[2], filenameset[0]);
}

int ReadHeartbeatFile(const char* filePath, ZADI_PROCESS_HEARTBEAT_NODE* pstHeartBeatNode) {
    pstHeartBeatNode->hangFlowId = ZADI_HEARTBEAT_NO_HANGFLOWID;
    kira::UniqueFd fd(open(filePath, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    if (!fd.valid() || !IsRegularFile(fd.get())) {
        PLUGIN_LOG_ERR("Open failed(%s), errno(%d, %s).", filePath, errno, strerror(errno));
        return 1;
    }
    // Both lines fit in one read; a file being rewritten meanwhile simply
    // yields whatever part of it is there.
    char data[zadi::kHeartbeatReadMax];
    ssize_t n = kira::ReadFd(fd.get(), data, sizeof(data), kira::ReadEnd::kOneRead);
    if (n > 0) {
        (void)zadi::ParseHeartbeatLines(data, static_cast<size_t>(n), pstHeartBeatNode);
    }
    return 0;
}
