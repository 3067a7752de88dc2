// memcpy_s, memmove_s and their wide forms: one block copy, which refuses
// overlap unless it moves.

#include "safec/safec_internal.h"

namespace {

// A refused copy zeroes the whole destination so no partial data can pass
// for a good copy.
template <typename T>
errno_t Refuse(T* dest, size_t destsz, errno_t code) {
    memset(dest, 0, destsz * sizeof(T));
    return code;
}

template <typename T>
errno_t CopyBlock(T* dest, size_t destsz, const T* src, size_t count, bool mayOverlap) {
    if (destsz == 0 || destsz > safec::Limits<T>::kMem) {
        return ERANGE;
    }
    if (dest == nullptr) {
        return EINVAL;
    }
    if (src == nullptr) {
        return Refuse(dest, destsz, EINVAL);
    }
    if (count > destsz) {
        return Refuse(dest, destsz, ERANGE);
    }
    if (count == 0) {
        return 0;
    }
    if (mayOverlap) {
        memmove(dest, src, count * sizeof(T));
        return 0;
    }
    if (safec::RangesOverlap(dest, count * sizeof(T), src, count * sizeof(T))) {
        return Refuse(dest, destsz, EINVAL);
    }
    memcpy(dest, src, count * sizeof(T));
    return 0;
}

}  // namespace

extern "C" {

errno_t memcpy_s(void* dest, size_t destsz, const void* src, size_t count) {
    return CopyBlock(static_cast<char*>(dest), destsz, static_cast<const char*>(src), count, false);
}

errno_t memmove_s(void* dest, size_t destsz, const void* src, size_t count) {
    return CopyBlock(static_cast<char*>(dest), destsz, static_cast<const char*>(src), count, true);
}

errno_t wmemcpy_s(wchar_t* dest, size_t destsz, const wchar_t* src, size_t count) {
    return CopyBlock(dest, destsz, src, count, false);
}

errno_t wmemmove_s(wchar_t* dest, size_t destsz, const wchar_t* src, size_t count) {
    return CopyBlock(dest, destsz, src, count, true);
}

}  // extern "C"
