// Hiding the runner from the process items it calls. The items find
// processes by their command line, and the runner's own command line may
// hold the very name or pattern it was asked to look for; a wildcard such as
// "*nginx*" would then report the runner. So once the arguments are parsed
// the runner empties its command line: it moves the start of its argument
// area onto the end (PR_SET_MM, which needs CAP_SYS_RESOURCE), and then reads
// like a kernel thread, which no item ever matches. Without the privilege it
// blanks the area instead: the text reads empty and only a pattern made of
// nothing but '*' still matches it.

#include <string.h>
#include <sys/prctl.h>

#include "tools/runner/runner.h"

namespace zr {

void HideCommandLine(int argc, char** argv) {
    if (argc <= 0) {
        return;
    }
    char* start = argv[0];
    char* end = argv[argc - 1] + strlen(argv[argc - 1]) + 1;
    if (prctl(PR_SET_MM, PR_SET_MM_ARG_START, reinterpret_cast<unsigned long>(end), 0, 0) != 0) {
        memset(start, 0, static_cast<size_t>(end - start));
    }
}

}  // namespace zr
