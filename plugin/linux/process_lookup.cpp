// Which process a name means. In order:
//   command lines as text: the cmdline file read, its NULs turned into spaces
//   the three match modes (exact, prefix, wildcard) and the wildcard matcher
//     with its quirks
//   the lookup: the kept (stored) pid re-used while it runs the name, else
//     the walk of /proc; every match of a mode for the groups and the census
//   the kernel's name of a pid (its status file)
//   the pre-command gate, a shell command whose output decides
// Nothing here measures; a miss is pid 0, never a failure.

#include <fcntl.h>
#include <stdio.h>
#include <string.h>

#include "plugin/linux/plugin_internal.h"

namespace zadi {
namespace {

constexpr size_t kStoredPidPathSize = 50;  // the stored pid's "/proc/%d/cmdline"

}  // namespace
}  // namespace zadi

// ---- command lines as text ----

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

}  // namespace zadi

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

// ---- the match modes ----

namespace zadi {
namespace {

bool OnlyStarsFrom(const char* pattern, int j, int length) {
    for (; j < length; ++j) {
        if (pattern[j] != '*') {
            return false;
        }
    }
    return true;
}

// The command-line text compared with name in mode (CMDLINE_MATCH_*).
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

}  // namespace

bool CmdlineMatches(const char* path, const char* name, int mode, char* buf, int dirFd) {
    // A kernel thread's cmdline is empty, so it never matches anything.
    return ReadCmdlineText(path, buf, kCmdlineBufSize, dirFd) > 0 && MatchesName(buf, name, mode);
}

}  // namespace zadi

// '?' is one character, '*' any run. Existing configurations rely on the
// quirks: the pattern is anchored only until the first partial match, after
// which a mismatch restarts the pattern one character further on.
bool ZADI_Linux_Plugin::str_fuzzy_match(const char* str, const char* pattern) {
    if (str == nullptr || pattern == nullptr) {
        return false;
    }
    const int strLen = static_cast<int>(strlen(str));
    const int patLen = static_cast<int>(strlen(pattern));
    int i = 0;
    int j = 0;
    int restart = 0;  // pattern position just after the last '*'
    while (i < strLen && j < patLen) {
        if (pattern[j] == '?') {
            ++i;
            ++j;
        } else if (pattern[j] == '*') {
            ++j;
            restart = j;
        } else if (str[i] == pattern[j]) {
            ++i;
            ++j;
        } else {
            if (i == 0 && j == 0) {
                return false;
            }
            i = i + (restart - j) + 1;
            j = restart;
        }
    }
    if (j < patLen) {
        return zadi::OnlyStarsFrom(pattern, j, patLen);
    }
    return i == strLen || (patLen > 0 && pattern[patLen - 1] == '*');
}

bool ZADI_Linux_Plugin::check_with_cmdline(const char* path, const char* name, int mode) {
    kira::UniqueBlock buf(malloc(zadi::kCmdlineBufSize));
    if (!buf) {
        PLUGIN_LOG_ERRNO("Malloc failed");
        return false;
    }
    return zadi::CmdlineMatches(path, name, mode, static_cast<char*>(buf.get()));
}

// ---- the lookup ----

bool ZADI_Linux_Plugin::check_pid_with_name(const char* name, int& pid) {
    char path[zadi::kStoredPidPathSize];
    if (!kira::ProcPidPath(path, sizeof(path), pid, "cmdline")) {
        return false;
    }
    // Called on every item call with a stored pid: the text goes on the
    // stack, never the heap.
    char buf[zadi::kCmdlineBufSize];
    return zadi::CmdlineMatches(path, name, CMDLINE_MATCH_EXACT, buf);
}

pid_t ZADI_Linux_Plugin::get_pid_byname(const char* name, int& pid, unsigned long long& syscputime,
                                        unsigned long long& procputime) {
    // The stored pid still runs the same command line: no /proc walk.
    if (check_pid_with_name(name, pid)) {
        return pid;
    }
    // The previous samples belong to another process.
    pid = 0;
    syscputime = 0;
    procputime = 0;
    (void)zadi::WalkMatching(name, CMDLINE_MATCH_EXACT, [&pid](int found) {
        pid = found;
        return false;
    });
    return pid;
}

pid_t ZADI_Linux_Plugin::get_pid_byname(const char* name, int& pid) {
    unsigned long long syscputime = 0;
    unsigned long long procputime = 0;
    return get_pid_byname(name, pid, syscputime, procputime);
}

void ZADI_Linux_Plugin::get_allpid(const char* name, process_cpu_context_t* table, unsigned int max,
                                   unsigned int* count, int mode) {
    unsigned int found = 0;
    (void)zadi::WalkMatching(name, mode, [&](int pid) {
        if (found >= max) {
            return false;
        }
        table[found++].pid = pid;
        return true;
    });
    *count = found;
}

// ---- the kernel's name of a pid ----

int ZADI_Linux_Plugin::get_procname_bypid(int pid, char* buf, size_t size) {
    char path[zadi::kPidPathSize];
    kira::LineReader reader;
    if (!zadi::OpenPidFile(reader, path, static_cast<unsigned int>(pid), "status")) {
        if (path[0] != '\0') {
            PLUGIN_LOG_ERRNO("Open failed(%s)", path);
        }
        return -1;
    }
    zadi::StatusScan scan;
    scan.name = buf;
    scan.nameSize = size;
    zadi::ScanStatus(reader, &scan);
    return scan.nameFound ? 0 : -1;
}

// ---- the pre-command gate ----

int ZADI_Linux_Plugin::exec_pre_cmd(char* cmd, char* keywords) {
    if (cmd == nullptr || keywords == nullptr) {
        return -1;
    }
    char output[32];
    {
        kira::UniqueHandle<FILE, ::pclose> pipe(popen(cmd, "r"));
        if (!pipe) {
            PLUGIN_LOG_ERRNO("Open file failed");
            return -1;
        }
        (void)memset_s(output, sizeof(output), 0, sizeof(output));
        (void)fread(output, 1, sizeof(output), pipe.get());
        // pclose (the holder) waits for the command; there is no time limit.
    }
    output[sizeof(output) - 1] = '\0';
    return strncmp(output, keywords, strlen(keywords)) == 0 ? 0 : -1;
}
