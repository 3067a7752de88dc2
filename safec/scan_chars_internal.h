#ifndef SAFEC_SCAN_CHARS_INTERNAL_H
#define SAFEC_SCAN_CHARS_INTERNAL_H

// Character tests of the scanner, for char and wchar_t alike. Digits and
// letters are compared against ASCII so the same code serves both types.

#include <ctype.h>
#include <stdint.h>
#include <wctype.h>

namespace safec {

inline bool IsSpace(char c) { return isspace(static_cast<unsigned char>(c)) != 0; }
inline bool IsSpace(wchar_t c) { return iswspace(static_cast<wint_t>(c)) != 0; }

// Character codes compare unsigned, so ranges like "\x80-\xff" work.
inline unsigned long Code(char c) { return static_cast<unsigned char>(c); }
inline unsigned long Code(wchar_t c) { return static_cast<uint32_t>(c); }

// Value of a digit in any base up to 36; 99 for a non-digit.
template <typename CharT>
int DigitValue(CharT c) {
    if (c >= '0' && c <= '9') {
        return static_cast<int>(c - '0');
    }
    if (c >= 'a' && c <= 'z') {
        return static_cast<int>(c - 'a') + 10;
    }
    if (c >= 'A' && c <= 'Z') {
        return static_cast<int>(c - 'A') + 10;
    }
    return 99;
}

template <typename CharT>
CharT Lower(CharT c) {
    return (c >= 'A' && c <= 'Z') ? static_cast<CharT>(c - 'A' + 'a') : c;
}

}  // namespace safec

#endif
