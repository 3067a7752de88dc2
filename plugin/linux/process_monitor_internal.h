#ifndef PLUGIN_LINUX_PROCESS_MONITOR_INTERNAL_H
#define PLUGIN_LINUX_PROCESS_MONITOR_INTERNAL_H

// Pieces of the heartbeat check kept apart for tests and fuzzing: the safe
// opening and walking of the heartbeat directory, the per-file callback's
// context, and the parser of a file's first two lines. Never exported.

#include <dirent.h>
#include <stddef.h>

#include "os/base/kira_io.h"
#include "plugin/linux/process_monitor.h"

namespace zadi {

// Longest line the reader takes (fgets with a 127-byte limit).
constexpr size_t kHeartbeatLineMax = 126;
// Bytes that can make up the two lines that are looked at.
constexpr size_t kHeartbeatReadMax = 2 * kHeartbeatLineMax;
// Path buffer of the directory walk, and room for any directory entry name.
constexpr size_t kHeartbeatPathSize = 256;

// The directory is writable by other users: a symbolic link in place of it is
// followed only when root owns the link; any other owner is refused and
// logged (trailing slashes are dropped so that O_NOFOLLOW applies to the last
// component). Null with errno set on failure.
DIR* OpenDirNoFollow(const char* dirPath);

// The walk of ForeachDir over the regular files of an opened directory. An
// entry whose path would pass 255 characters is skipped, unless longNames: it
// is then handed over with an empty path, for a callback that works relative
// to the directory.
int WalkDir(kira::DirWalk& walk, const char* dirPath, ZADI_DIR_ITER_FN iterfunc, void* pContext,
            bool longNames = false);

// What ProcessHeartBeat hands its per-file callback. Other callers of the
// exported callback pass the same three pointers as an array, so the layout
// is exactly that and the callback copies it out rather than casting.
struct HeartbeatScanArgs {
    const char* processName;
    const char* moduleId;
    ZADI_PROCESS_HEARTBEAT_CONTEXT* ctx;
};
static_assert(sizeof(HeartbeatScanArgs) == 3 * sizeof(void*), "laid out as an array of three pointers");

// Context handed by ClearHeartBeatFile to CheckHeartBeatFileValid, so that
// files are removed relative to the directory that was walked.
struct HeartbeatDirRef {
    int dirFd;
};

// Applies the first lines of a heartbeat file (data, len bytes) to a node the
// way two fgets calls with a 127-byte limit would see them. Returns false
// when line 1 is empty (end of file at once): the node's token is then left
// as it was. hangFlowId is only written when line 2 exists.
bool ParseHeartbeatLines(const char* data, size_t len, ZADI_PROCESS_HEARTBEAT_NODE* node);

}  // namespace zadi

#endif
