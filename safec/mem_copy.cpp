// memcpy_s, memmove_s and their wide forms: one block copy, which refuses
// overlap unless it moves.

#include "safec/safec_internal.h"

namespace {

// A refused copy zeroes the whole destination so no partial data can pass
// for a good copy.
template <typename T>
errno_t Refuse(T* dest, size_t destMax, errno_t code) {
    memset(dest, 0, destMax * sizeof(T));
    return code;
}

template <typename T>
errno_t CopyBlock(T* dest, size_t destMax, const T* src, size_t count, bool mayOverlap) {
    if (destMax == 0 || destMax > safec::Limits<T>::kMem) return ERANGE;
    if (dest == nullptr) return EINVAL;
    if (src == nullptr) return Refuse(dest, destMax, EINVAL);
    if (count > destMax) return Refuse(dest, destMax, ERANGE);
    if (count == 0) return EOK;
    if (mayOverlap) {
        memmove(dest, src, count * sizeof(T));
        return EOK;
    }
    if (safec::RangesOverlap(dest, count * sizeof(T), src, count * sizeof(T))) {
        return Refuse(dest, destMax, EOVERLAP_AND_RESET);
    }
    memcpy(dest, src, count * sizeof(T));
    return EOK;
}

}  // namespace

extern "C" {

errno_t memcpy_s(void* dest, size_t destMax, const void* src, size_t count) {
    return CopyBlock(static_cast<char*>(dest), destMax, static_cast<const char*>(src), count, false);
}

errno_t memmove_s(void* dest, size_t destMax, const void* src, size_t count) {
    return CopyBlock(static_cast<char*>(dest), destMax, static_cast<const char*>(src), count, true);
}

errno_t wmemcpy_s(wchar_t* dest, size_t destMax, const wchar_t* src, size_t count) {
    return CopyBlock(dest, destMax, src, count, false);
}

errno_t wmemmove_s(wchar_t* dest, size_t destMax, const wchar_t* src, size_t count) {
    return CopyBlock(dest, destMax, src, count, true);
}

}  // extern "C"
