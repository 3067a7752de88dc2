// memset_s.

#include "safec/safec_internal.h"

extern "C" {

// A count above destsz still fills the whole destination: the caller asked
// for at least that much to be set, only the excess is refused.
errno_t memset_s(void* dest, size_t destsz, int c, size_t count) {
    if (destsz == 0 || destsz > SAFEC_MEM_MAX) {
        return ERANGE;
    }
    if (dest == nullptr) {
        return EINVAL;
    }
    if (count > destsz) {
        memset(dest, c, destsz);
        return ERANGE;
    }
    memset(dest, c, count);
    return 0;
}

}  // extern "C"
