// Signal handlers without SA_RESTART, so that a signal cuts a wait short.

#include <signal.h>
#include <string.h>

#include "tools/runner/runner.h"

namespace zr {

void CatchSignals(void (*handler)(int), std::initializer_list<int> signals) {
    struct sigaction sa;
    memset(&sa, 0, sizeof(sa));
    sa.sa_handler = handler;
    sigemptyset(&sa.sa_mask);
    for (int sig : signals) {
        sigaction(sig, &sa, nullptr);
    }
}

}  // namespace zr
