#ifndef SAFEC_SECUREC_H
#define SAFEC_SECUREC_H

// Bounds-checked copy, format and scan routines. Every routine takes the
// size of its destination; none writes past it.
//
// Return convention of the copy routines (errno_t): EOK (0) on success,
// otherwise a non-zero error code; where a destination string is given and
// its size is usable, it is left NUL-terminated (empty on most failures).
// The format routines return the number of characters written, or -1 on a
// bad argument or truncation (the output is then still terminated).
// The scan routines return the number of fields assigned, or -1 (EOF) on
// input failure before the first conversion.

#include <stdarg.h>
#include <stddef.h>
#include <stdio.h>
#include <wchar.h>

#ifndef EOK
#define EOK 0
#endif

#ifdef __cplusplus
extern "C" {
#endif

typedef int errno_t;

// Largest destination size accepted; a bigger one is taken as a wrapped
// negative size and refused.
#define SECUREC_STRING_MAX_LEN (0x7fffffffUL)
#define SECUREC_MEM_MAX_LEN (0x7fffffffUL)

errno_t memcpy_s(void* dest, size_t destMax, const void* src, size_t count);
errno_t memmove_s(void* dest, size_t destMax, const void* src, size_t count);
errno_t memset_s(void* dest, size_t destMax, int c, size_t count);
errno_t strcpy_s(char* strDest, size_t destMax, const char* strSrc);
errno_t strncpy_s(char* strDest, size_t destMax, const char* strSrc, size_t count);
errno_t strcat_s(char* strDest, size_t destMax, const char* strSrc);
errno_t strncat_s(char* strDest, size_t destMax, const char* strSrc, size_t count);
char* strtok_s(char* strToken, const char* strDelimit, char** context);

int snprintf_s(char* strDest, size_t destMax, size_t count, const char* format, ...)
    __attribute__((format(printf, 4, 5)));
int sprintf_s(char* strDest, size_t destMax, const char* format, ...)
    __attribute__((format(printf, 3, 4)));
int vsnprintf_s(char* strDest, size_t destMax, size_t count, const char* format, va_list argList)
    __attribute__((format(printf, 4, 0)));
int vsprintf_s(char* strDest, size_t destMax, const char* format, va_list argList)
    __attribute__((format(printf, 3, 0)));

// %s, %c and %[ take a buffer size (size_t... passed as unsigned int, the
// usual convention) right after the buffer pointer.
int sscanf_s(const char* buffer, const char* format, ...);
int vsscanf_s(const char* buffer, const char* format, va_list argList);
int fscanf_s(FILE* stream, const char* format, ...);
int vfscanf_s(FILE* stream, const char* format, va_list argList);

errno_t wmemcpy_s(wchar_t* dest, size_t destMax, const wchar_t* src, size_t count);
errno_t wmemmove_s(wchar_t* dest, size_t destMax, const wchar_t* src, size_t count);
errno_t wcscpy_s(wchar_t* strDest, size_t destMax, const wchar_t* strSrc);
errno_t wcsncpy_s(wchar_t* strDest, size_t destMax, const wchar_t* strSrc, size_t count);
errno_t wcscat_s(wchar_t* strDest, size_t destMax, const wchar_t* strSrc);
errno_t wcsncat_s(wchar_t* strDest, size_t destMax, const wchar_t* strSrc, size_t count);
wchar_t* wcstok_s(wchar_t* strToken, const wchar_t* strDelimit, wchar_t** context);
int swprintf_s(wchar_t* strDest, size_t destMax, const wchar_t* format, ...);
int vswprintf_s(wchar_t* strDest, size_t destMax, const wchar_t* format, va_list argList);
int swscanf_s(const wchar_t* buffer, const wchar_t* format, ...);
int vswscanf_s(const wchar_t* buffer, const wchar_t* format, va_list argList);
int fwscanf_s(FILE* stream, const wchar_t* format, ...);
int vfwscanf_s(FILE* stream, const wchar_t* format, va_list argList);

#ifdef __cplusplus
}
#endif

#endif
