#ifndef OS_BASE_KIRA_ATOMIC_H
#define OS_BASE_KIRA_ATOMIC_H

// Counters updated atomically (sequentially consistent). The value argument
// comes before the counter pointer. The *_return forms give the low 32 bits
// of the new value; the *_and_test forms give 1 when the new value is 0.

#include <stdint.h>

#include "os/base/kira_export.h"

#ifdef __cplusplus
extern "C" {
#endif

// One 64-bit signed integer in caller memory.
typedef struct tagKIRA_ATOMIC64_S {
    volatile int64_t counter;
} atomic64_t;

#define ATOMIC64_INIT(i) \
    { (i) }

KIRA_EXPORT void atomic_set(atomic64_t* v, int32_t i);
KIRA_EXPORT int64_t atomic_read(const atomic64_t* v);
KIRA_EXPORT void atomic_add(int32_t i, atomic64_t* v);
KIRA_EXPORT int32_t atomic_add_return(int32_t i, atomic64_t* v);
KIRA_EXPORT void atomic_sub(int32_t i, atomic64_t* v);
KIRA_EXPORT int32_t atomic_sub_return(int32_t i, atomic64_t* v);
KIRA_EXPORT int32_t atomic_sub_and_test(int32_t i, atomic64_t* v);
KIRA_EXPORT void atomic_inc(atomic64_t* v);
KIRA_EXPORT int32_t atomic_inc_return(atomic64_t* v);
KIRA_EXPORT int32_t atomic_inc_and_test(atomic64_t* v);
KIRA_EXPORT void atomic_dec(atomic64_t* v);
KIRA_EXPORT int32_t atomic_dec_return(atomic64_t* v);
KIRA_EXPORT int32_t atomic_dec_and_test(atomic64_t* v);

#ifdef __cplusplus
}
#endif

#endif
