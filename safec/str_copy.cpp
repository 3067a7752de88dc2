// strcpy_s, strncpy_s and their wide forms. strcpy_s is strncpy_s whose
// count never cuts the source before destsz does.

#include "safec/safec_internal.h"

extern "C" {

errno_t strcpy_s(char* strDest, size_t destsz, const char* strSrc) {
    return safec::CopyText(strDest, destsz, strSrc, destsz);
}

errno_t strncpy_s(char* strDest, size_t destsz, const char* strSrc, size_t count) {
    return safec::CopyText(strDest, destsz, strSrc, count);
}

errno_t wcscpy_s(wchar_t* strDest, size_t destsz, const wchar_t* strSrc) {
    return safec::CopyText(strDest, destsz, strSrc, destsz);
}

errno_t wcsncpy_s(wchar_t* strDest, size_t destsz, const wchar_t* strSrc, size_t count) {
    return safec::CopyText(strDest, destsz, strSrc, count);
}

}  // extern "C"
