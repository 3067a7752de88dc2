#ifndef OS_LOG_LOG_UTIL_INTERNAL_H
#define OS_LOG_LOG_UTIL_INTERNAL_H

// Small helpers shared by the group and module tables: the layer's lock
// holders, the relaxed atomics the lock-free readers rely on, and the
// configuration file reading and saving that both tables do the same way.

#include <pthread.h>
#include <stddef.h>
#include <stdint.h>

#include "os/base/kira_raii.h"

using kira::MutexGuard;
using kira::SpinGuard;

template <typename T>
inline T RelaxedLoad(const T* p) {
    return __atomic_load_n(p, __ATOMIC_RELAXED);
}
template <typename T>
inline void RelaxedStore(T* p, T v) {
    __atomic_store_n(p, v, __ATOMIC_RELAXED);
}

// A configuration line that begins with a newline or holds '#' anywhere
// carries nothing.
bool DbgIsIgnoredConfLine(const char* line);
// Module files accept commas and blanks alike as separators.
void DbgCommasToBlanks(char* line);

// Reads path line by line (256-byte pieces) and hands each to parse(line,
// arg); a negative answer logs "<reader>: <path> <parser> fail, (<line>)".
// A file that cannot be opened, or is not a regular file, is skipped
// silently; past 100000 lines the rest is ignored, with one line saying so.
void DbgReadConfFile(const char* path, const char* reader, const char* parser,
                     int32_t (*parse)(char* line, uint32_t arg), uint32_t arg);
// Reads DBG_CONF_DIR/name with reader when name begins with prefix.
void DbgReadPrefixedConf(const char* name, const char* prefix, void (*reader)(const char* path));
// Hands every entry name of DBG_CONF_DIR to fn while holding mutex. False
// when the directory cannot be opened.
bool DbgForEachConfEntry(const char* caller, pthread_mutex_t* mutex, void (*fn)(const char* name));

// Produces the next saved line into buf; false when there is none.
typedef bool (*DbgSaveLineFn)(void** cursor, char* buf, size_t size);
// Writes every line to "<finalPath>.new" synchronously, then renames it with
// "mv -f", all under mutex. Returns the command's status, or the failed
// open's result, or the count of a short write.
int32_t DbgSaveConf(const char* caller, const char* finalPath, pthread_mutex_t* mutex, DbgSaveLineFn next);

#endif
