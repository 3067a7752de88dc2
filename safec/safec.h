#ifndef SAFEC_SAFEC_H
#define SAFEC_SAFEC_H

// Bounds-checked copy, format and scan routines. Every routine takes the
// size of its destination; none writes past it. Sizes of wide routines are
// counted in wchar_t elements.
//
// Copy routines (errno_t): 0 on success, otherwise one of
//   ERANGE  destsz is 0 or above the SAFEC_*_MAX limit (nothing written), or
//           the data does not fit (count > destsz, or the text plus its
//           terminator longer than destsz, or count above the limit);
//   EINVAL  a null pointer (or, for the *cat_s routines, a destination that
//           holds no terminator within destsz), or source and destination
//           that overlap where the plain C routine forbids it (memcpy_s,
//           str*cpy_s, str*cat_s).
// Checks run in this order: destsz, destination, source, sizes, overlap.
// On a failure after the destsz/destination checks the destination is reset:
//   - strings: dest[0] = 0 (an empty string);
//   - memcpy_s/memmove_s: the first destsz bytes are zeroed, so no partial
//     copy can pass for valid data;
//   - memset_s with count > destsz: destsz bytes are filled with c (the
//     whole buffer is set as asked, only the excess is refused), ERANGE.
//
// strncpy_s copies at most count characters and always terminates; when
// that text plus its terminator does not fit in destsz it fails (ERANGE,
// dest empty). strncat_s appends at most count characters likewise.
// strtok_s/wcstok_s follow strtok_r; a null delimiter set or context, or a
// null token with a null saved context, gives null.
//
// Format routines return the number of characters written, or -1:
//   snprintf_s/vsnprintf_s write at most min(count, destsz - 1) characters
//   and terminate. On truncation they return -1 and keep the cut, terminated
//   text (1024/1023 keeps the first 1023 characters).
//   sprintf_s/vsprintf_s/swprintf_s/vswprintf_s have no count: the limit is
//   destsz - 1, and on truncation dest is emptied and -1 returned.
//   A null dest or format, or destsz 0 or above the limit, gives -1; dest
//   is emptied when it is non-null and destsz usable.
//
// Scan routines return the number of fields assigned, or -1 (EOF) when the
// input ends (or a null argument is given) before the first conversion
// completes. %s, %c and %[ take a buffer size right after the buffer
// pointer, read as unsigned int (callers pass sizeof(buf)); it counts
// elements of the target type. A field that does not fit (for %s and %[
// including its terminator) ends the scan: that field is not assigned or
// counted and its buffer is set empty. Supported: whitespace directives,
// literals, %%, '*', widths, hh h l ll j z t L (q as ll), d i u o x X p n,
// f e g E G a A F, s c [ (with ^, a leading ], ranges a-z). %ls/%lc/%l[ in
// the narrow forms store wide characters and %s/%c/%[ in the wide forms
// store multibyte text, both through the current locale.

#include <errno.h>
#include <stdarg.h>
#include <stddef.h>
#include <stdio.h>
#include <wchar.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef int errno_t;

// Largest destination size accepted; a bigger one is taken as a wrapped
// negative size and refused.
#define SAFEC_STRING_MAX (0x7fffffffUL)
#define SAFEC_MEM_MAX (0x7fffffffUL)
#define SAFEC_WCHAR_STRING_MAX (SAFEC_STRING_MAX / sizeof(wchar_t))
#define SAFEC_WCHAR_MEM_MAX (SAFEC_MEM_MAX / sizeof(wchar_t))

errno_t memcpy_s(void* dest, size_t destsz, const void* src, size_t count);
errno_t memmove_s(void* dest, size_t destsz, const void* src, size_t count);
errno_t memset_s(void* dest, size_t destsz, int c, size_t count);
errno_t strcpy_s(char* strDest, size_t destsz, const char* strSrc);
errno_t strncpy_s(char* strDest, size_t destsz, const char* strSrc, size_t count);
errno_t strcat_s(char* strDest, size_t destsz, const char* strSrc);
errno_t strncat_s(char* strDest, size_t destsz, const char* strSrc, size_t count);
char* strtok_s(char* strToken, const char* strDelimit, char** context);

int snprintf_s(char* strDest, size_t destsz, size_t count, const char* format, ...)
    __attribute__((format(printf, 4, 5)));
int sprintf_s(char* strDest, size_t destsz, const char* format, ...) __attribute__((format(printf, 3, 4)));
int vsnprintf_s(char* strDest, size_t destsz, size_t count, const char* format, va_list argList)
    __attribute__((format(printf, 4, 0)));
int vsprintf_s(char* strDest, size_t destsz, const char* format, va_list argList) __attribute__((format(printf, 3, 0)));

// %s, %c and %[ take a buffer size (size_t... passed as unsigned int, the
// usual convention) right after the buffer pointer.
int sscanf_s(const char* buffer, const char* format, ...);
int vsscanf_s(const char* buffer, const char* format, va_list argList);
int fscanf_s(FILE* stream, const char* format, ...);
int vfscanf_s(FILE* stream, const char* format, va_list argList);

errno_t wmemcpy_s(wchar_t* dest, size_t destsz, const wchar_t* src, size_t count);
errno_t wmemmove_s(wchar_t* dest, size_t destsz, const wchar_t* src, size_t count);
errno_t wcscpy_s(wchar_t* strDest, size_t destsz, const wchar_t* strSrc);
errno_t wcsncpy_s(wchar_t* strDest, size_t destsz, const wchar_t* strSrc, size_t count);
errno_t wcscat_s(wchar_t* strDest, size_t destsz, const wchar_t* strSrc);
errno_t wcsncat_s(wchar_t* strDest, size_t destsz, const wchar_t* strSrc, size_t count);
wchar_t* wcstok_s(wchar_t* strToken, const wchar_t* strDelimit, wchar_t** context);
int swprintf_s(wchar_t* strDest, size_t destsz, const wchar_t* format, ...);
int vswprintf_s(wchar_t* strDest, size_t destsz, const wchar_t* format, va_list argList);
int swscanf_s(const wchar_t* buffer, const wchar_t* format, ...);
int vswscanf_s(const wchar_t* buffer, const wchar_t* format, va_list argList);
int fwscanf_s(FILE* stream, const wchar_t* format, ...);
int vfwscanf_s(FILE* stream, const wchar_t* format, va_list argList);

#ifdef __cplusplus
}
#endif

#endif
