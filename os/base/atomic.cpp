// Sequentially consistent counters on one 64-bit integer in caller memory.

#include "os/base/kira_atomic.h"

namespace {

inline int64_t AddFetch(atomic64_t* v, int64_t delta) {
    return __atomic_add_fetch(&v->counter, delta, __ATOMIC_SEQ_CST);
}

// The *_return forms hand back the low 32 bits of the 64-bit counter.
inline int32_t Low32(int64_t value) {
    return static_cast<int32_t>(static_cast<uint32_t>(static_cast<uint64_t>(value)));
}

}  // namespace

extern "C" {

KIRA_EXPORT void atomic_set(atomic64_t* v, int32_t i) {
    __atomic_store_n(&v->counter, static_cast<int64_t>(i), __ATOMIC_SEQ_CST);
}

KIRA_EXPORT int64_t atomic_read(const atomic64_t* v) { return __atomic_load_n(&v->counter, __ATOMIC_SEQ_CST); }

KIRA_EXPORT void atomic_add(int32_t i, atomic64_t* v) { AddFetch(v, i); }

KIRA_EXPORT int32_t atomic_add_return(int32_t i, atomic64_t* v) { return Low32(AddFetch(v, i)); }

KIRA_EXPORT void atomic_sub(int32_t i, atomic64_t* v) { AddFetch(v, -static_cast<int64_t>(i)); }

KIRA_EXPORT int32_t atomic_sub_return(int32_t i, atomic64_t* v) { return Low32(AddFetch(v, -static_cast<int64_t>(i))); }

KIRA_EXPORT int32_t atomic_sub_and_test(int32_t i, atomic64_t* v) { return AddFetch(v, -static_cast<int64_t>(i)) == 0; }

KIRA_EXPORT void atomic_inc(atomic64_t* v) { AddFetch(v, 1); }

KIRA_EXPORT int32_t atomic_inc_return(atomic64_t* v) { return Low32(AddFetch(v, 1)); }

KIRA_EXPORT int32_t atomic_inc_and_test(atomic64_t* v) { return AddFetch(v, 1) == 0; }

KIRA_EXPORT void atomic_dec(atomic64_t* v) { AddFetch(v, -1); }

KIRA_EXPORT int32_t atomic_dec_return(atomic64_t* v) { return Low32(AddFetch(v, -1)); }

KIRA_EXPORT int32_t atomic_dec_and_test(atomic64_t* v) { return AddFetch(v, -1) == 0; }

}  // extern "C"
