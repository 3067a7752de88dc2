// The heartbeat check: a monitored process rewrites its files under
// /tmp/heartbeat/ on every beat; the check answers whether every file of one
// process changed since the previous call. In order:
//   the directory: opening it (a link is followed only when root owns it) and
//   walking its regular files (ForeachDir)
//   one file: its name split into NAME, MOD and PID, the name checked against
//     the configured process and the pid against what it runs, its token and
//     hang flow id read without ever blocking on or following what another
//     user planted in the directory
//   the verdict: the table of files seen, kept in the item's contextbuff
//     (initialisation, the per-file update, compaction), and ProcessHeartBeat
//   clearing: ClearHeartBeatFile removes the files of processes that are
//     gone, relative to the directory it walked and only plain files

#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include "os/base/kira_io.h"
#include "os/base/kira_raii.h"
#include "plugin/linux/plugin_internal.h"
#include "plugin/linux/process_monitor.h"

static_assert(ZADI_HEARTBEAT_NODE_MAX == 7, "the heartbeat table holds seven files");
static_assert(offsetof(FI_CONTEXT_S, contextbuff) % alignof(ZADI_PROCESS_HEARTBEAT_CONTEXT) == 0 &&
                  alignof(FI_CONTEXT_S) % alignof(ZADI_PROCESS_HEARTBEAT_CONTEXT) == 0,
              "the heartbeat table is overlaid on contextbuff in place");

// ---- the directory ----

namespace zadi {
namespace {

// Path buffer of the directory walk, and room for any directory entry name.
constexpr size_t kHeartbeatPathSize = 256;

// The directory is writable by other users: a symbolic link in place of it is
// followed only when root owns the link; any other owner is refused and
// logged (trailing slashes are dropped so that O_NOFOLLOW applies to the last
// component). Null with errno set on failure.
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

// The walk of ForeachDir over the regular files of an opened directory. An
// entry whose path would pass 255 characters is skipped, unless longNames: it
// is then handed over with an empty path, for a callback that works relative
// to the directory.
int WalkDir(kira::DirWalk& walk, const char* dirPath, ZADI_DIR_ITER_FN iterfunc, void* pContext,
            bool longNames = false) {
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

}  // namespace
}  // namespace zadi

int ForeachDir(const char* dirPath, ZADI_DIR_ITER_FN iterfunc, void* pContext) {
    kira::DirWalk walk(zadi::OpenDirNoFollow(dirPath), kira::DirWalk::kRegularFiles);
    if (!walk) {
        return -1;
    }
    return zadi::WalkDir(walk, dirPath, iterfunc, pContext);
}

// ---- one file ----

namespace zadi {
namespace {

constexpr char kSeparator[] = "___";
constexpr size_t kSeparatorLen = sizeof(kSeparator) - 1;
constexpr unsigned int kFieldCount = 3;
constexpr size_t kProcNameSize = 32;

// One fgets(buf, 127, ...) over data from pos: at most 126 bytes, up to and
// including a newline. Returns the number of bytes taken.
size_t TakeLine(const char* data, size_t len, size_t pos, char* out) {
    size_t k = 0;
    while (pos + k < len && k < kHeartbeatLineMax) {
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
    for (unsigned int idx = 0; idx < zadi::kFieldCount; ++idx) {
        char* sep = strstr(start, zadi::kSeparator);
        filenameset[idx] = start;
        if (sep == nullptr) {
            return;
        }
        (void)memset_s(sep, zadi::kSeparatorLen, 0, zadi::kSeparatorLen);
        start = sep + zadi::kSeparatorLen;
    }
}

bool CheckProcIdAndProcName(const char* procId, const char* procName) {
    if (procId == nullptr || procName == nullptr) {
        return false;
    }
    char name[zadi::kProcNameSize] = {0};
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
    if (filenamesetsize != zadi::kFieldCount) {
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
    if (!fd.valid() || !zadi::IsRegularFile(fd.get())) {
        PLUGIN_LOG_ERRNO("Open failed(%s)", filePath);
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
// ---- the verdict ----

namespace zadi {
namespace {

// What ProcessHeartBeat hands its per-file callback. Other callers of the
// exported callback pass the same three pointers as an array, so the layout
// is exactly that and the callback copies it out rather than casting.
struct HeartbeatScanArgs {
    const char* processName;
    const char* moduleId;
    ZADI_PROCESS_HEARTBEAT_CONTEXT* ctx;
};
static_assert(sizeof(HeartbeatScanArgs) == 3 * sizeof(void*), "laid out as an array of three pointers");

ZADI_PROCESS_HEARTBEAT_CONTEXT* Overlay(FI_CONTEXT_S* context) {
    return reinterpret_cast<ZADI_PROCESS_HEARTBEAT_CONTEXT*>(context->contextbuff);
}

// A size beyond what contextbuff holds can only come from a corrupted block;
// never walk past it.
uint32_t Capacity(const ZADI_PROCESS_HEARTBEAT_CONTEXT* ctx) {
    return ctx->uiSize < ZADI_HEARTBEAT_NODE_MAX ? ctx->uiSize : static_cast<uint32_t>(ZADI_HEARTBEAT_NODE_MAX);
}

void ZeroNode(ZADI_PROCESS_HEARTBEAT_NODE* node) { (void)memset_s(node, sizeof(*node), 0, sizeof(*node)); }

// Drops nodes whose file was not seen and moves the rest to the front,
// keeping their order.
void CompactNodes(ZADI_PROCESS_HEARTBEAT_CONTEXT* ctx) {
    uint32_t cap = Capacity(ctx);
    int j = 0;
    for (uint32_t i = 0; i < cap && ctx->stNode[i].uiProcessId != 0; ++i, ++j) {
        ZADI_PROCESS_HEARTBEAT_NODE* node = &ctx->stNode[i];
        if (!node->bFileExist) {
            ZeroNode(node);
            --j;
        } else if (static_cast<int>(i) != j) {
            ctx->stNode[j] = *node;
            ZeroNode(node);
            node->hangFlowId = ZADI_HEARTBEAT_NO_HANGFLOWID;
        }
    }
}

// Only the first file of a pid in a scan moves the node on; a later one (a
// name whose pid field atoi reads as the same number) is only compared, so
// it can neither hide nor fake a change of the first.
void CompareAndStore(ZADI_PROCESS_HEARTBEAT_CONTEXT* ctx, ZADI_PROCESS_HEARTBEAT_NODE* node,
                     const ZADI_PROCESS_HEARTBEAT_NODE& fresh, bool store) {
    size_t used = fresh.uiBufferUsed < sizeof(fresh.szBuffer) ? fresh.uiBufferUsed : sizeof(fresh.szBuffer);
    if (fresh.uiBufferUsed == node->uiBufferUsed && memcmp(fresh.szBuffer, node->szBuffer, used) == 0) {
        // The id reported is the one written with the token that stopped
        // changing, not whatever line 2 says now.
        ctx->bHeartbeatRefreshed = false;
        ctx->hangFlowId = node->hangFlowId;
        return;
    }
    if (!store) {
        return;
    }
    node->uiBufferUsed = fresh.uiBufferUsed;
    (void)memcpy_s(node->szBuffer, sizeof(node->szBuffer), fresh.szBuffer, sizeof(fresh.szBuffer));
    node->hangFlowId = fresh.hangFlowId;
}

}  // namespace
}  // namespace zadi

int CheckProcessHeartBeatFileRefresh(const char* filePath, const char* filename, void* pContext) {
    zadi::HeartbeatScanArgs args;
    memcpy(&args, pContext, sizeof(args));
    const char* processName = args.processName;
    const char* moduleId = args.moduleId;
    ZADI_PROCESS_HEARTBEAT_CONTEXT* ctx = args.ctx;

    char copy[zadi::kHeartbeatPathSize];
    if (strcpy_s(copy, sizeof(copy), filename) != 0) {
        return 0;
    }
    char* fields[3] = {nullptr, nullptr, nullptr};
    SpliteHeartFileName(copy, sizeof(copy), fields);
    if (!CheckFileAndProc(processName, moduleId, fields, 3)) {
        return 0;
    }
    uint32_t procId = static_cast<uint32_t>(atoi(fields[2]));

    uint32_t cap = zadi::Capacity(ctx);
    uint32_t i = 0;
    while (i < cap && ctx->stNode[i].uiProcessId != 0 && ctx->stNode[i].uiProcessId != procId) {
        ++i;
    }
    if (i == cap) {
        return 0;  // table full: further pids are not tracked
    }
    ZADI_PROCESS_HEARTBEAT_NODE* node = &ctx->stNode[i];
    if (node->uiProcessId == 0) {
        // First sight of this pid: nothing to compare with yet.
        if (ReadHeartbeatFile(filePath, node) == 0) {
            node->uiProcessId = procId;
            node->bFileExist = true;
        }
        return 0;
    }
    const bool firstInScan = !node->bFileExist;
    node->bFileExist = true;
    ZADI_PROCESS_HEARTBEAT_NODE fresh;
    zadi::ZeroNode(&fresh);
    if (ReadHeartbeatFile(filePath, &fresh) == 0) {
        zadi::CompareAndStore(ctx, node, fresh, firstInScan);
    }
    return 0;
}

bool HeartBeatRefreshed(const char* pszProcessName, const char* pszPid, FI_CONTEXT_S* context,
                        unsigned int* hangFlowId) {
    ZADI_PROCESS_HEARTBEAT_CONTEXT* ctx = zadi::Overlay(context);
    if (ctx->uiSize == 0) {
        ctx->uiSize = ZADI_HEARTBEAT_NODE_MAX;
        ctx->hangFlowId = ZADI_HEARTBEAT_NO_HANGFLOWID;
        ctx->bHeartbeatRefreshed = true;
    }
    uint32_t cap = zadi::Capacity(ctx);
    for (uint32_t i = 0; i < cap && ctx->stNode[i].uiProcessId != 0; ++i) {
        ctx->stNode[i].bFileExist = false;
    }
    ctx->bHeartbeatRefreshed = true;

    zadi::HeartbeatScanArgs args = {pszProcessName, pszPid, ctx};
    (void)ForeachDir(ZADI_HEARTBEAT_DIR, CheckProcessHeartBeatFileRefresh, &args);

    zadi::CompactNodes(ctx);
    *hangFlowId = ctx->hangFlowId;
    return ctx->bHeartbeatRefreshed;
}

float ProcessHeartBeat(int argc, FI_PARAM_S* argv, FI_CONTEXT_S* context, FI_RESULT_S* result) {
    if (result == nullptr) {
        return zadi::FaultMarker();
    }
    if (argc < 0 || argv == nullptr) {
        zadi::SetFault(result, "Input parameter number error.");
        return zadi::FaultMarker();
    }
    if (context == nullptr) {
        zadi::SetFault(result, "Input parameter context error.");
        return zadi::FaultMarker();
    }
    zadi::ParamValue processName;
    if (!zadi::LoadParam(argc, argv, "ProcessName", &processName)) {
        zadi::SetFault(result, "Get para 'ProcessName' failed.");
        return zadi::FaultMarker();
    }
    zadi::ParamValue moduleId;
    if (!zadi::LoadParam(argc, argv, "ProcessMoudleId", &moduleId)) {
        zadi::SetFault(result, "Get para 'ProcessMoudleId' failed.");
        return zadi::FaultMarker();
    }

    unsigned int hangFlowId = ZADI_HEARTBEAT_NO_HANGFLOWID;
    float value = 1.0f;
    if (!HeartBeatRefreshed(processName.c_str(), moduleId.c_str(), context, &hangFlowId)) {
        value = 0.0f;
        result->hangflowid = hangFlowId;
        PLUGIN_LOG_ERR("Process %s(%s) heartbeat not refreshed, hangFlowId=%d.", processName.c_str(), moduleId.c_str(),
                       static_cast<int>(hangFlowId));
    }
    result->result = 0;
    return value;
}
// ---- clearing ----

namespace zadi {
namespace {

// Context handed by ClearHeartBeatFile to CheckHeartBeatFileValid, so that
// files are removed relative to the directory that was walked.
struct HeartbeatDirRef {
    int dirFd;
};

// Never removes through a link or anything but a plain file: a link, FIFO or
// directory swapped in after the walk saw the entry is left alone.
void RemoveRegularFile(const char* filePath, const char* filename, const HeartbeatDirRef* ref) {
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
}  // namespace zadi

int CheckHeartBeatFileValid(const char* filePath, const char* filename, void* pContext) {
    char copy[zadi::kHeartbeatPathSize];
    if (strcpy_s(copy, sizeof(copy), filename) != 0) {
        return 0;
    }
    char* fields[3] = {nullptr, nullptr, nullptr};
    SpliteHeartFileName(copy, sizeof(copy), fields);
    if (!CheckProcIdAndProcName(fields[2], fields[0])) {
        zadi::RemoveRegularFile(filePath, filename, static_cast<const zadi::HeartbeatDirRef*>(pContext));
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
