#ifndef OS_TIME_TIME_INTERNAL_H
#define OS_TIME_TIME_INTERNAL_H

// Helpers shared inside the time layer; never exported.

#include <stdint.h>

// Seconds since the epoch straight from gettimeofday, sign kept.
int64_t _KIRA_GetTime(void);

#endif
