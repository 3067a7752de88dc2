// Command lines as text: the cmdline file read and its NULs turned into
// spaces, the three match modes, and the readers built on them.

#include <fcntl.h>
#include <string.h>

#include "plugin/linux/plugin_log_internal.h"
#include "plugin/linux/proc_read_internal.h"
#include "safec/safec.h"

int ZADI_Linux_Plugin::read_file(const char* path, char* buf, unsigned int size, int line) {
    if (path == nullptr || buf == nullptr || size == 0) {
        return -1;
    }
    kira::LineReader reader;
    if (!reader.Open(path, kira::ReadEnd::kUntilEof)) {
        return -1;
    }
    for (int i = 0; i < line; ++i) {
        (void)memset_s(buf, size, 0, size);
        // One less than the buffer: at least two NULs stay at the end.
        if (!reader.Gets(buf, static_cast<int>(size - 1))) {
            return -1;
        }
    }
    return 0;
}

void ZADI_Linux_Plugin::change_cmdlie_to_str(char* buf, unsigned int size) {
    for (unsigned int i = 0; i + 1 < size; ++i) {
        if (buf[i] == '\0' && buf[i + 1] == '\0') {
            // An empty argument ends the text there; later arguments are lost.
            break;
        }
        if (buf[i] == '\0') {
            buf[i] = ' ';
        }
    }
}

namespace zadi {

ssize_t ReadCmdlineText(const char* path, char* buf, size_t size, int dirFd) {
    kira::UniqueFd fd(openat(dirFd, path, O_RDONLY | O_CLOEXEC));
    if (!fd.valid()) {
        return -1;
    }
    (void)memset_s(buf, size, 0, size);
    const ssize_t got = size > 2 ? kira::ReadFd(fd.get(), buf, size - 2, kira::ReadEnd::kShortRead) : 0;
    if (got <= 0) {
        return 0;
    }
    // As fgets: the text ends after the first newline.
    const char* newline = static_cast<const char*>(memchr(buf, '\n', static_cast<size_t>(got)));
    const ssize_t taken = newline == nullptr ? got : newline - buf + 1;
    (void)memset_s(buf + taken, size - static_cast<size_t>(taken), 0, static_cast<size_t>(got - taken));
    ZADI_Linux_Plugin::change_cmdlie_to_str(buf, static_cast<unsigned int>(size));
    return taken;
}

bool MatchesName(const char* text, const char* name, int mode) {
    switch (mode) {
        case CMDLINE_MATCH_PREFIX:
            return strncmp(text, name, strlen(name)) == 0;
        case CMDLINE_MATCH_FUZZY:
            return ZADI_Linux_Plugin::str_fuzzy_match(text, name);
        default:
            return strcmp(text, name) == 0;
    }
}

bool CmdlineMatches(const char* path, const char* name, int mode, char* buf, int dirFd) {
    // A kernel thread's cmdline is empty, so it never matches anything.
    return ReadCmdlineText(path, buf, kCmdlineBufSize, dirFd) > 0 && MatchesName(buf, name, mode);
}

}  // namespace zadi

bool ZADI_Linux_Plugin::check_with_cmdline(const char* path, const char* name, int mode) {
    kira::UniqueBlock buf(malloc(zadi::kCmdlineBufSize));
    if (!buf) {
        PLUGIN_LOG_ERR("Malloc failed, errno(%d, %s).", errno, strerror(errno));
        return false;
    }
    return zadi::CmdlineMatches(path, name, mode, static_cast<char*>(buf.get()));
}

int ZADI_Linux_Plugin::get_cmdline_bypid(int pid, char* buf, size_t size) {
    if (buf == nullptr) {
        return -1;
    }
    char path[zadi::kPidPathSize];
    if (!kira::ProcPidPath(path, sizeof(path), static_cast<unsigned int>(pid), "cmdline")) {
        return -1;
    }
    if (size > 2) {
        return zadi::ReadCmdlineText(path, buf, size) > 0 ? 0 : -1;
    }
    // Too small for any text: answered as the line reader answers it.
    if (read_file(path, buf, static_cast<unsigned int>(size), 1) != 0) {
        return -1;
    }
    change_cmdlie_to_str(buf, static_cast<unsigned int>(size));
    return 0;
}
