// snprintf_s, sprintf_s, their va_list forms and the wide swprintf_s
// family: one bounded formatter over vsnprintf/vswprintf.

#include "safec/safec_internal.h"

namespace {

int FormatInto(char* dest, size_t size, const char* format, va_list args) __attribute__((format(printf, 3, 0)));
int FormatInto(char* dest, size_t size, const char* format, va_list args) {
    return vsnprintf(dest, size, format, args);
}

// vswprintf reports truncation only as -1, like an encoding error; both
// end in the same refusal.
int FormatInto(wchar_t* dest, size_t size, const wchar_t* format, va_list args) {
    return vswprintf(dest, size, format, args);
}

// Writes at most min(count, destsz - 1) characters and terminates. A cut
// output returns -1; keepCut says whether the cut text stays (snprintf_s)
// or dest is emptied (sprintf_s).
template <typename CharT>
int FormatBounded(CharT* dest, size_t destsz, size_t count, const CharT* format, va_list args, bool keepCut) {
    if (dest == nullptr || destsz == 0 || destsz > safec::Limits<CharT>::kString) {
        return -1;
    }
    if (format == nullptr) {
        dest[0] = 0;
        return -1;
    }
    const size_t limit = count < destsz ? count : destsz - 1;
    const int written = FormatInto(dest, limit + 1, format, args);
    if (written < 0) {
        dest[0] = 0;
        return -1;
    }
    if (static_cast<size_t>(written) > limit) {
        if (!keepCut) {
            dest[0] = 0;
        }
        return -1;
    }
    return written;
}

}  // namespace

extern "C" {

int vsnprintf_s(char* strDest, size_t destsz, size_t count, const char* format, va_list argList) {
    return FormatBounded(strDest, destsz, count, format, argList, true);
}

int snprintf_s(char* strDest, size_t destsz, size_t count, const char* format, ...) {
    va_list args;
    va_start(args, format);
    const int ret = FormatBounded(strDest, destsz, count, format, args, true);
    va_end(args);
    return ret;
}

int vsprintf_s(char* strDest, size_t destsz, const char* format, va_list argList) {
    return FormatBounded(strDest, destsz, destsz, format, argList, false);
}

int sprintf_s(char* strDest, size_t destsz, const char* format, ...) {
    va_list args;
    va_start(args, format);
    const int ret = FormatBounded(strDest, destsz, destsz, format, args, false);
    va_end(args);
    return ret;
}

int vswprintf_s(wchar_t* strDest, size_t destsz, const wchar_t* format, va_list argList) {
    return FormatBounded(strDest, destsz, destsz, format, argList, false);
}

int swprintf_s(wchar_t* strDest, size_t destsz, const wchar_t* format, ...) {
    va_list args;
    va_start(args, format);
    const int ret = FormatBounded(strDest, destsz, destsz, format, args, false);
    va_end(args);
    return ret;
}

}  // extern "C"
