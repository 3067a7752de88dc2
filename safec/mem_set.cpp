// memset_s.

#include "safec/safec_internal.h"

extern "C" {

// A count above destMax still fills the whole destination: the caller asked
// for at least that much to be set, only the excess is refused.
errno_t memset_s(void* dest, size_t destMax, int c, size_t count) {
    if (destMax == 0 || destMax > SECUREC_MEM_MAX_LEN) return ERANGE;
    if (dest == nullptr) return EINVAL;
    if (count > destMax) {
        memset(dest, c, destMax);
        return ERANGE;
    }
    memset(dest, c, count);
    return EOK;
}

}  // extern "C"
