// The guarded shell runner every command of the layer goes through.

#include <errno.h>
#include <string.h>
#include <sys/wait.h>
#include <unistd.h>

#include "os/base/kira_system.h"

namespace {

// A ';' or "||" anywhere before the last character chains a second command
// and is refused; the last character is deliberately not examined, so a
// trailing ';' passes. A single '|' and "&&" are allowed.
bool ChainsCommands(const char* command) {
    size_t len = strlen(command);
    for (size_t i = 0; i + 1 < len; i++) {
        if (command[i] == ';' || (command[i] == '|' && command[i + 1] == '|')) {
            return true;
        }
    }
    return false;
}

}  // namespace

extern "C" {

// Returns the raw wait status, not the exit code: callers test for 0.
KIRA_EXPORT int KIRA_system(const char* command) {
    if (command == nullptr || ChainsCommands(command)) {
        return -1;
    }
    pid_t pid = fork();
    if (pid < 0) {
        return -1;
    }
    if (pid == 0) {
        execl("/bin/sh", "sh", "-c", command, static_cast<char*>(nullptr));
        _exit(127);
    }
    int status = 0;
    while (waitpid(pid, &status, 0) < 0) {
        if (errno != EINTR) {
            return -1;
        }
    }
    return status;
}

KIRA_EXPORT int KIRA_Execute(const char* command) {
    if (command == nullptr) {
        return -1;
    }
    return KIRA_system(command);
}

}  // extern "C"
