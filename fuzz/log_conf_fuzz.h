#ifndef FUZZ_LOG_CONF_FUZZ_H
#define FUZZ_LOG_CONF_FUZZ_H

// Shared set-up of the logging configuration parsers' fuzz targets.

#include <pthread.h>
#include <stddef.h>
#include <stdint.h>
#include <string.h>
#include <syslog.h>

#include "os/log/log_internal.h"

// Rejected lines are reported at priority 6, and nobody listens here. The
// tables' locks are normally set up by the logging initialisation, which
// would also map the shared block; only the locks are needed.
inline void InitLogConfFuzz() {
    setlogmask(LOG_MASK(LOG_EMERG));
    pthread_spin_init(&kira_log::gid_tree_lock, PTHREAD_PROCESS_PRIVATE);
    pthread_spin_init(&kira_log::pid_tree_lock, PTHREAD_PROCESS_PRIVATE);
}

// The input after its first byte, cut as the line reader's 256-byte buffer
// would hand it over.
inline void CopyConfLine(const uint8_t* data, size_t size, char (&line)[DBG_CONF_LINE_SIZE]) {
    const size_t len = size - 1 < sizeof(line) - 1 ? size - 1 : sizeof(line) - 1;
    memcpy(line, data + 1, len);
    line[len] = '\0';
}

#endif
