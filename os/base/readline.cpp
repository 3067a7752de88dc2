// Line reader on a raw descriptor, one byte per read so that nothing past
// the line is consumed (the descriptor may be shared with other readers).

#include <unistd.h>

#include "os/base/kira_file.h"
#include "os/base/readline_internal.h"

extern "C" KIRA_EXPORT char* KIRA_readline(int fd, char* buf, int size) {
    const bool got = kira::ReadLinePiece(buf, size, [fd](char* c) { return read(fd, c, 1) == 1; });
    return got ? buf : nullptr;
}
