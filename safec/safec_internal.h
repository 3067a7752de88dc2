#ifndef SAFEC_SAFEC_INTERNAL_H
#define SAFEC_SAFEC_INTERNAL_H

// Shared by the narrow and wide copy routines: size limits per element
// type, the overlap test, and the string copy/append/tokenise logic written
// once as templates over char and wchar_t.

#include <errno.h>
#include <stdint.h>
#include <string.h>
#include <wchar.h>

#include "safec/safec.h"

namespace safec {

template <typename CharT>
struct Limits;

template <>
struct Limits<char> {
    static constexpr size_t kString = SAFEC_STRING_MAX;
    static constexpr size_t kMem = SAFEC_MEM_MAX;
};

template <>
struct Limits<wchar_t> {
    static constexpr size_t kString = SAFEC_WCHAR_STRING_MAX;
    static constexpr size_t kMem = SAFEC_WCHAR_MEM_MAX;
};

inline bool RangesOverlap(const void* a, size_t aBytes, const void* b, size_t bBytes) {
    const uintptr_t pa = reinterpret_cast<uintptr_t>(a);
    const uintptr_t pb = reinterpret_cast<uintptr_t>(b);
    return pa < pb + bBytes && pb < pa + aBytes;
}

inline size_t BoundedLength(const char* s, size_t limit) { return strnlen(s, limit); }
inline size_t BoundedLength(const wchar_t* s, size_t limit) { return wcsnlen(s, limit); }

inline size_t Smaller(size_t a, size_t b) { return a < b ? a : b; }

// The source is read up to its terminator only when the count did not cut
// it first; the overlap test must cover exactly what is read.
inline size_t SourceSpan(size_t copied, size_t count) { return copied < count ? copied + 1 : copied; }

template <typename CharT>
errno_t ResetText(CharT* dest, errno_t code) {
    dest[0] = 0;
    return code;
}

// The checks every string routine starts with, in their fixed order; a
// refusal once the destination is known usable leaves it empty.
template <typename CharT>
errno_t CheckTextArgs(CharT* dest, size_t destsz, const CharT* src, size_t count) {
    if (destsz == 0 || destsz > Limits<CharT>::kString) {
        return ERANGE;
    }
    if (dest == nullptr) {
        return EINVAL;
    }
    if (src == nullptr) {
        return ResetText(dest, EINVAL);
    }
    if (count > Limits<CharT>::kString) {
        return ResetText(dest, ERANGE);
    }
    return 0;
}

// Copies at most count characters of src and terminates.
template <typename CharT>
errno_t CopyText(CharT* dest, size_t destsz, const CharT* src, size_t count) {
    const errno_t bad = CheckTextArgs(dest, destsz, src, count);
    if (bad != 0) {
        return bad;
    }
    const size_t n = BoundedLength(src, Smaller(count, destsz));
    if (n == destsz) {
        return ResetText(dest, ERANGE);
    }
    if (RangesOverlap(dest, (n + 1) * sizeof(CharT), src, SourceSpan(n, count) * sizeof(CharT))) {
        return ResetText(dest, EINVAL);
    }
    memcpy(dest, src, n * sizeof(CharT));
    dest[n] = 0;
    return 0;
}

// Appends at most count characters of src to the text in dest; a dest with
// no terminator within destsz is not a text to append to.
template <typename CharT>
errno_t AppendText(CharT* dest, size_t destsz, const CharT* src, size_t count) {
    const errno_t bad = CheckTextArgs(dest, destsz, src, count);
    if (bad != 0) {
        return bad;
    }
    const size_t used = BoundedLength(dest, destsz);
    if (used == destsz) {
        return ResetText(dest, EINVAL);
    }
    const size_t room = destsz - used;
    const size_t n = BoundedLength(src, Smaller(count, room));
    if (n == room) {
        return ResetText(dest, ERANGE);
    }
    if (RangesOverlap(dest, (used + n + 1) * sizeof(CharT), src, SourceSpan(n, count) * sizeof(CharT))) {
        return ResetText(dest, EINVAL);
    }
    memcpy(dest + used, src, n * sizeof(CharT));
    dest[used + n] = 0;
    return 0;
}

template <typename CharT>
bool IsDelimiter(CharT c, const CharT* delim) {
    for (; *delim != 0; ++delim) {
        if (*delim == c) {
            return true;
        }
    }
    return false;
}

// strtok_r: the context keeps the position after the last token.
template <typename CharT>
CharT* NextToken(CharT* token, const CharT* delim, CharT** context) {
    if (delim == nullptr || context == nullptr) {
        return nullptr;
    }
    CharT* p = token != nullptr ? token : *context;
    if (p == nullptr) {
        return nullptr;
    }
    while (*p != 0 && IsDelimiter(*p, delim)) {
        ++p;
    }
    if (*p == 0) {
        *context = p;
        return nullptr;
    }
    CharT* const start = p;
    while (*p != 0 && !IsDelimiter(*p, delim)) {
        ++p;
    }
    if (*p != 0) {
        *p++ = 0;
    }
    *context = p;
    return start;
}

}  // namespace safec

#endif
