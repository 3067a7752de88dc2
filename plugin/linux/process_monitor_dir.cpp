// The heartbeat directory: opening it (a link is followed only when root owns
// it), walking its regular files, and ClearHeartBeatFile, which removes the files
// of processes that are gone, relative to the directory it walked and only
// when the entry is still a regular file.

#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include "os/base/kira_raii.h"
#include "plugin/linux/plugin_log_internal.h"
#include "plugin/linux/process_monitor.h"
#include "plugin/linux/process_monitor_internal.h"
#include "safec/safec.h"

namespace {

// Never removes through a link or anything but a plain file: a link, FIFO or
// directory swapped in after the walk saw the entry is left alone.
void RemoveRegularFile(const char* filePath, const char* filename, const zadi::HeartbeatDirRef* ref) {
    struct stat st;
    if (ref != nullptr) {
        if (fstatat(ref->dirFd, filename, &st, AT_SYMLINK_NOFOLLOW) == 0 && S_ISREG(st.st_mode)) {
            (void)unlinkat(ref->dirFd, filename, 0);
        }
        return;
    }
    if (lstat(filePath, &st) == 0 && S_ISREG(st.st_mode)) {
        (void)unlink(filePath);
    }
}

}  // namespace

namespace zadi {

DIR* OpenDirNoFollow(const char* dirPath) {
    // Any path the system can open: only the entry paths are held to 255.
    char path[PATH_MAX];
    if (dirPath == nullptr || strcpy_s(path, sizeof(path), dirPath) != 0) {
        errno = EINVAL;
        return nullptr;
    }
    size_t len = strlen(path);
    while (len > 1 && path[len - 1] == '/') {
        path[--len] = '\0';
    }
    constexpr int kFlags = O_RDONLY | O_DIRECTORY | O_NONBLOCK | O_CLOEXEC;
    kira::UniqueFd fd(open(path, kFlags | O_NOFOLLOW));
    if (!fd.valid() && (errno == ELOOP || errno == ENOTDIR)) {
        // Only root can have made a root-owned link in sticky /tmp, and no
        // one else can replace it: a node's image may set the directory up so.
        const int refused = errno;
        struct stat st;
        if (lstat(path, &st) != 0 || !S_ISLNK(st.st_mode)) {
            errno = refused;
            return nullptr;
        }
        if (st.st_uid != 0) {
            PLUGIN_LOG_ERR("Heartbeat directory %s is a link owned by uid %u, not followed.", path,
                           static_cast<unsigned>(st.st_uid));
            errno = ELOOP;
            return nullptr;
        }
        fd.reset(open(path, kFlags));
    }
    if (!fd.valid()) {
        return nullptr;
    }
    DIR* dir = fdopendir(fd.get());
    if (dir != nullptr) {
        (void)fd.release();
    }
    return dir;
}

int WalkDir(kira::DirWalk& walk, const char* dirPath, ZADI_DIR_ITER_FN iterfunc, void* pContext, bool longNames) {
    char path[kHeartbeatPathSize];
    while (const char* name = walk.Next()) {
        // A path that does not fit would name some other file.
        if (snprintf_s(path, sizeof(path), sizeof(path) - 1, "%s/%s", dirPath, name) < 0) {
            if (!longNames) {
                continue;
            }
            path[0] = '\0';
        }
        if (iterfunc(path, name, pContext) != 0) {
            break;
        }
    }
    return 0;
}

}  // namespace zadi

int ForeachDir(const char* dirPath, ZADI_DIR_ITER_FN iterfunc, void* pContext) {
    kira::DirWalk walk(zadi::OpenDirNoFollow(dirPath), kira::DirWalk::kRegularFiles);
    if (!walk) {
        return -1;
    }
    return zadi::WalkDir(walk, dirPath, iterfunc, pContext);
}

int CheckHeartBeatFileValid(const char* filePath, const char* filename, void* pContext) {
    char copy[zadi::kHeartbeatPathSize];
    if (strcpy_s(copy, sizeof(copy), filename) != 0) {
        return 0;
    }
    char* fields[3] = {nullptr, nullptr, nullptr};
    SpliteHeartFileName(copy, sizeof(copy), fields);
    if (!CheckProcIdAndProcName(fields[2], fields[0])) {
        RemoveRegularFile(filePath, filename, static_cast<const zadi::HeartbeatDirRef*>(pContext));
    }
    return 0;
}

float ClearHeartBeatFile(int /*argc*/, FI_PARAM_S* /*argv*/, FI_CONTEXT_S* /*context*/, FI_RESULT_S* result) {
    kira::DirWalk walk(zadi::OpenDirNoFollow(ZADI_HEARTBEAT_DIR), kira::DirWalk::kRegularFiles);
    if (walk) {
        zadi::HeartbeatDirRef ref{dirfd(walk.dir())};
        (void)zadi::WalkDir(walk, ZADI_HEARTBEAT_DIR, CheckHeartBeatFileValid, &ref, true);
    }
    // The agent always passes a result here; a null one is still not written.
    if (result != nullptr) {
        result->result = 0;
    }
    return 1.0f;
}
