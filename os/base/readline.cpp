// Line reader on a raw descriptor, one byte per read so that nothing past
// the line is consumed (the descriptor may be shared with other readers).

#include <unistd.h>

#include "os/base/kira_file.h"

extern "C" KIRA_EXPORT char* KIRA_readline(int fd, char* buf, int size) {
    // A negative size would put the final terminator before the buffer.
    if (size <= 0 || buf == nullptr) {
        return nullptr;
    }
    int pos = 0;
    int accepted = 0;
    while (pos < size - 1) {
        if (read(fd, buf + pos, 1) != 1) {
            buf[pos] = '\0';
            break;
        }
        if (buf[pos] == '\n') {
            buf[pos + 1] = '\0';
            accepted++;
            break;
        }
        // Carriage returns are dropped: the next byte overwrites this one.
        if (buf[pos] != '\r') {
            accepted++;
            pos++;
        }
    }
    buf[size - 1] = '\0';
    return accepted == 0 ? nullptr : buf;
}
