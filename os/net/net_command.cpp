// The argument screen and the bounded command runner behind every port,
// bond and route command.

#include <stdarg.h>
#include <stdint.h>
#include <syslog.h>

#include "os/net/net_internal.h"
#include "safec/safec.h"

namespace kira_net {
namespace {

// One bit per byte value a shell leaves alone.
struct SafeSet {
    uint64_t bits[4] = {};
    constexpr SafeSet() {
        for (int c = '0'; c <= '9'; c++) {
            Add(c);
        }
        for (int c = 'a'; c <= 'z'; c++) {
            Add(c);
        }
        for (int c = 'A'; c <= 'Z'; c++) {
            Add(c);
        }
        for (char c : {'.', ':', '-', '_', '@', '/', '%', '+'}) {
            Add(c);
        }
    }
    constexpr void Add(int c) { bits[c >> 6] |= uint64_t{1} << (c & 63); }
    constexpr bool Has(unsigned char c) const { return (bits[c >> 6] >> (c & 63)) & 1; }
};
constexpr SafeSet kSafe;

bool TextSafe(const char* text) {
    for (const unsigned char* p = reinterpret_cast<const unsigned char*>(text); *p != '\0'; p++) {
        if (!kSafe.Has(*p)) {
            return false;
        }
    }
    return true;
}

// Truncation reports -1 but keeps the cut, terminated text: that runs.
void FormatInto(char (&command)[NET_COMMAND_SIZE], const char* format, va_list args) {
    (void)vsnprintf_s(command, sizeof command, sizeof command - 1, format, args);
}

}  // namespace

bool AnyNull(std::initializer_list<const char*> args) {
    for (const char* arg : args) {
        if (arg == nullptr) {
            return true;
        }
    }
    return false;
}

bool ShellSafe(const char* function, std::initializer_list<const char*> args) {
    for (const char* arg : args) {
        if (arg != nullptr && !TextSafe(arg)) {
            syslog(LOG_INFO, "%s: argument holds a character not allowed in a command, nothing executed.", function);
            return false;
        }
    }
    return true;
}

void FormatCommand(char (&command)[NET_COMMAND_SIZE], const char* format, ...) {
    va_list args;
    va_start(args, format);
    FormatInto(command, format, args);
    va_end(args);
}

int RunCommandLine(Runner run, const char* failure, const char* format, ...) {
    char command[NET_COMMAND_SIZE];
    va_list args;
    va_start(args, format);
    FormatInto(command, format, args);
    va_end(args);
    int status = run(command);
    if (status != 0) {
        syslog(LOG_INFO, failure, command, status);
        return -1;
    }
    return 0;
}

}  // namespace kira_net
